// Redirected handles: opening by the set in force, and the calls that go through a handle's own set.
#include "Kernel/Services/Redirect.h"

#include "Common/NarrowText.h"
#include "Common/WideUTF8.h"
#include "Kernel/Base/Status.h"
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/TempFile.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace rv {
namespace {

constexpr char kTag[4] = {'R', 'F', 'I', 'L'};
/// The largest file that is read into memory when it is opened.
constexpr R_UINT64 kMostHeld = 32 << 20;
constexpr R_INT kCreates = FILE_MODE_CREATE | FILE_MODE_TRUNCATE;
/// What a filter sees of a write at a time: the caller's bytes are not its to change.
constexpr R_UINT kFilterPiece = 4096;

// --- Opening

constexpr R_WCHAR folded(R_WCHAR unit) noexcept
{
    if (unit == '/') return '\\';
    return unit >= 'A' && unit <= 'Z' ? static_cast<R_WCHAR>(unit + ('a' - 'A')) : unit;
}

/// Whether a file is a remote desktop client's: reading it ahead costs more than it saves.
bool isClientShare(const R_WCHAR* name) noexcept
{
    constexpr R_WCHAR kShare[] = RV_WIDE("\\\\tsclient\\");
    for (size_t i = 0; kShare[i] != 0; ++i)
        if (folded(name[i]) != kShare[i]) return false;
    return true;
}

/// Whether a file may be held in memory. An empty one has nothing to hold; where the system makes the content up as it
/// is read, it gives that size, too. One for writing alone cannot be read.
bool mayBeHeld(const R_WCHAR* name, R_INT nMode) noexcept
{
    if ((nMode & kCreates) != 0 || (nMode & 3) == FILE_MODE_WRITE || isClientShare(name)) return false;
    FileFacts facts;
    return platform().fileFacts(name, &facts) && !facts.folder && facts.size > 0 && facts.size <= kMostHeld;
}

R_INT64 openThrough(const REDIRECTSET& set, const R_WCHAR* name, R_INT nMode, R_INT nPermission,
                    HandleKind kind) noexcept
{
    if (set.pfnOpen == nullptr) return R_INVALID_FILE;
    const R_INT64 underlying = set.pfnOpen(name, nMode, nPermission, set.pOpenData);
    return underlying == R_INVALID_FILE ? R_INVALID_FILE : wrapFile(underlying, set, kind);
}

/// The bytes of a native file from its start on, at most `room`; negative when it cannot be read.
R_INT64 readAll(R_INT64 native, void* content, R_UINT64 room) noexcept
{
    R_UINT64 length = 0;
    while (length < room) {
        const R_INT got = R_OsRead(native, static_cast<char*>(content) + length, static_cast<R_UINT>(room - length));
        if (got < 0) return got;
        if (got == 0) break;
        length += static_cast<R_UINT>(got);
    }
    return static_cast<R_INT64>(length);
}

/// Offers a native file to the files in memory. kNoFile: it stays what it is, at its start; where it cannot be put
/// back there, *lost says so.
R_INT64 hold(R_INT64 native, R_INT nMode, bool* lost) noexcept
{
    const R_INT64 size = R_OsSeek(native, 0, FILE_FROM_END);
    *lost = R_OsSeek(native, 0, FILE_FROM_START) != 0;
    if (*lost || size <= 0 || static_cast<R_UINT64>(size) > kMostHeld) return kNoFile;
    const auto room = static_cast<R_UINT64>(size) + 1; // one more tells a file that is still growing
    void* const content = platform().allocate(room);
    if (content == nullptr) return kNoFile;
    const R_INT64 length = readAll(native, content, room);
    *lost = R_OsSeek(native, 0, FILE_FROM_START) != 0;
    const bool whole = !*lost && length == size;
    const bool writable = (nMode & 3) != FILE_MODE_READ;
    const R_INT64 held = whole ? holdSmallFile(native, content, static_cast<R_UINT64>(size), writable) : kNoFile;
    if (held == kNoFile) platform().release(content);
    return held;
}

/// A small file: in memory if it is accepted there, else the native one, buffered where files are.
R_INT64 openSmall(const REDIRECTSET& current, const R_WCHAR* name, R_INT nMode, R_INT nPermission) noexcept
{
    const R_INT64 native = R_OsOpen(name, nMode, nPermission);
    if (native == R_INVALID_FILE) return R_INVALID_FILE;
    REDIRECTSET set = current;
    bool lost = false;
    R_INT64 underlying = hold(native, nMode, &lost);
    if (underlying != kNoFile) {
        takeFirstOperations(set, kMemoryRedirectSet);
    } else if (lost) {
        (void)R_OsClose(native);
        return R_INVALID_FILE;
    } else {
        underlying = isOsSet(current) ? native : bufferNative(native, nMode);
        takeFirstOperations(set, underlying == native ? kOsRedirectSet : bufferedRedirectSet());
        if (underlying == R_INVALID_FILE) {
            (void)R_OsClose(native);
            return R_INVALID_FILE;
        }
    }
    return wrapFile(underlying, set, HandleKind::current);
}

R_INT64 open(const R_WCHAR* name, R_INT nMode, R_INT nPermission) noexcept
{
    if (isPseudoName(name)) {
        REDIRECTSET named;
        if (!namedRedirectSet(name, &named)) return R_INVALID_FILE;
        return openThrough(named, name, nMode, nPermission, HandleKind::own);
    }
    const REDIRECTSET set = currentRedirectSet(false);
    if (isDefaultSet(set) && mayBeHeld(name, nMode)) return openSmall(set, name, nMode, nPermission);
    return openThrough(set, name, nMode, nPermission, HandleKind::current);
}

// --- Reading and writing

// Out of line: a filter is rare, and its pieces want a stack of their own.
[[gnu::noinline]] R_INT passFilter(const RedirectedFile& file, void* buffer, R_INT bytes, bool writing) noexcept
{
    const auto handle = reinterpret_cast<R_INT64>(&file);
    const R_INT answer = file.filter(handle, buffer, static_cast<R_UINT>(bytes), writing ? 1 : 0, file.filterData);
    return answer == SUCCESS ? bytes : -1;
}

/// What an operation answered: more bytes than were asked for are none.
inline R_INT moved(R_INT answer, R_UINT asked) noexcept
{
    return answer > 0 && static_cast<R_UINT>(answer) > asked ? -1 : answer;
}

inline R_INT read(const RedirectedFile& file, void* buffer, R_UINT bytes) noexcept
{
    if (buffer == nullptr || file.set.pfnRead == nullptr) return -1;
    const R_INT got = moved(file.set.pfnRead(file.underlying, buffer, bytes, file.set.pReadData), bytes);
    return file.filter == nullptr || got <= 0 ? got : passFilter(file, buffer, got, false);
}

[[gnu::noinline]] R_INT writeFiltered(const RedirectedFile& file, const void* buffer, R_UINT bytes) noexcept
{
    bytes = std::min<R_UINT>(bytes, INT_MAX); // the most that the answer can tell
    char piece[kFilterPiece];
    R_UINT done = 0;
    while (done < bytes) {
        const R_UINT count = std::min(bytes - done, kFilterPiece);
        memcpy(piece, static_cast<const char*>(buffer) + done, count);
        if (passFilter(file, piece, static_cast<R_INT>(count), true) < 0) return -1;
        const R_INT put = moved(file.set.pfnWrite(file.underlying, piece, count, file.set.pWriteData), count);
        if (put < 0) return put;
        done += static_cast<R_UINT>(put);
        if (static_cast<R_UINT>(put) < count) break;
    }
    return static_cast<R_INT>(done);
}

inline R_INT write(const RedirectedFile& file, const void* buffer, R_UINT bytes) noexcept
{
    if ((buffer == nullptr && bytes > 0) || file.set.pfnWrite == nullptr) return -1;
    if (file.filter != nullptr && bytes > 0) return writeFiltered(file, buffer, bytes);
    return moved(file.set.pfnWrite(file.underlying, buffer, bytes, file.set.pWriteData), bytes);
}

R_UINT nextPiece(R_INT64 left) noexcept { return static_cast<R_UINT>(std::min<R_INT64>(left, kMaxTransfer)); }

} // namespace

RedirectedFile* redirectedFile(R_INT64 handle) noexcept
{
    if (!mayBeRecord(handle)) return nullptr;
    auto* const file = reinterpret_cast<RedirectedFile*>(handle);
    return memcmp(file->tag, kTag, sizeof kTag) == 0 ? file : nullptr;
}

R_INT64 makeHandle(R_INT64 underlying, const REDIRECTSET& set, HandleKind kind) noexcept
{
    void* const memory = platform().allocate(sizeof(RedirectedFile));
    if (memory == nullptr) return R_INVALID_FILE;
    auto* const file = new (memory) RedirectedFile{{}, underlying, kind, set, nullptr, nullptr};
    memcpy(file->tag, kTag, sizeof kTag);
    return reinterpret_cast<R_INT64>(file);
}

R_INT64 wrapFile(R_INT64 underlying, const REDIRECTSET& set, HandleKind kind) noexcept
{
    const R_INT64 handle = makeHandle(underlying, set, kind);
    if (handle == R_INVALID_FILE && set.pfnClose != nullptr) (void)set.pfnClose(underlying, set.pCloseData);
    return handle;
}

namespace {

/// Takes a handle's record away; the handle is none from here on, whoever else still has it.
void dropHandle(RedirectedFile* file) noexcept
{
    memset(file->tag, 0, sizeof file->tag);
    platform().release(file);
}

/// A handle over a file that the caller has opened, and keeps when this fails.
R_INT giveHandle(R_INT64 underlying, const REDIRECTSET& set, HandleKind kind, R_INT64* phFile) noexcept
{
    *phFile = makeHandle(underlying, set, kind);
    return *phFile == R_INVALID_FILE ? ERROR_FAILURE : SUCCESS;
}

} // namespace
} // namespace rv

using namespace rv;

R_INT64 R_RedirectedOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    if (pszName == nullptr) return R_INVALID_FILE;
    return open(pszName, nMode, nPermission);
}

R_INT64 R_RedirectedOpenA(const char* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    if (pszName == nullptr) return R_INVALID_FILE;
    const NarrowArgument name(pszName);
    return name ? open(name.get(), nMode, nPermission) : R_INVALID_FILE;
}

R_INT64 R_RedirectedOpenUTF8(const char* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    if (pszName == nullptr) return R_INVALID_FILE;
    const WideText name(pszName);
    return name ? open(name.get(), nMode, nPermission) : R_INVALID_FILE;
}

R_INT R_RedirectedRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    return file == nullptr ? -1 : read(*file, pBuffer, uBytes);
}

R_INT64 R_RedirectedReadBig(R_INT64 hFile, void* pBuffer, R_INT64 nBytes) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr || nBytes < 0 || (pBuffer == nullptr && nBytes > 0)) return -1;
    for (R_INT64 done = 0; done < nBytes;) {
        const R_INT got = read(*file, static_cast<char*>(pBuffer) + done, nextPiece(nBytes - done));
        if (got <= 0) return got < 0 ? got : -1; // the bytes that were asked for are not there
        done += got;
    }
    return nBytes;
}

R_INT R_RedirectedWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    return file == nullptr ? -1 : write(*file, pBuffer, uBytes);
}

R_INT64 R_RedirectedWriteBig(R_INT64 hFile, const void* pBuffer, R_INT64 nBytes) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr || nBytes < 0 || (pBuffer == nullptr && nBytes > 0)) return -1;
    R_INT64 done = 0;
    do { // once for no bytes, too: that cuts the file
        const R_UINT asked = nextPiece(nBytes - done);
        const R_INT put = write(*file, static_cast<const char*>(pBuffer) + done, asked);
        if (put < 0 || static_cast<R_UINT>(put) < asked) return put < 0 ? put : -1;
        done += put;
    } while (done < nBytes);
    return nBytes;
}

R_INT64 R_RedirectedSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr || file->set.pfnSeek == nullptr) return -1;
    return file->set.pfnSeek(file->underlying, nDistance, nOrigin, file->set.pSeekData);
}

R_INT R_RedirectedClose(R_INT64 hFile) noexcept
{
    RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr) return -1;
    const R_INT64 underlying = file->underlying;
    const REDIRECTCLOSE close = file->set.pfnClose;
    void* const userData = file->set.pCloseData;
    dropHandle(file);
    return close == nullptr ? -1 : close(underlying, userData);
}

R_INT R_UsesRedirectIO(const R_WCHAR* pszName, R_INT64 hFile) noexcept
{
    if (isPseudoName(pszName)) return 1;
    const RedirectedFile* const file = redirectedFile(hFile);
    return file != nullptr && !isOsSet(file->set) ? 1 : 0;
}

R_INT R_CreateRedirectedFileHandle(R_INT64 hNative, R_INT64* phFile, R_INT nMode) noexcept
{
    if (phFile == nullptr) return ERROR_NULL_PTR;
    if (hNative == -1 || hNative == -2) return ERROR_INV_PARAMETER;
    *phFile = R_INVALID_FILE;
    REDIRECTSET set = currentRedirectSet(false);
    if (!isBufferedSet(set)) return giveHandle(hNative, set, HandleKind::current, phFile);
    if (isDefaultSet(set)) takeFirstOperations(set, bufferedRedirectSet());
    // A program's own operations stand above the buffer, as they do in a file that the set opens.
    const R_INT64 buffered = bufferNative(hNative, nMode);
    if (buffered == R_INVALID_FILE) return ERROR_FAILURE;
    const R_INT status = giveHandle(buffered, set, HandleKind::current, phFile);
    if (status != SUCCESS) unbufferNative(buffered);
    return status;
}

R_INT64 R_ExtractRedirectedFileHandle(R_INT64 hFile) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    return file == nullptr ? R_INVALID_FILE : file->underlying;
}

R_INT R_CreateRedirectedCallbackFileHandle(R_INT64 hUnderlying, const REDIRECTSET* pSet, R_INT64* phFile) noexcept
{
    if (pSet == nullptr || phFile == nullptr) return ERROR_NULL_PTR;
    if (pSet->uStructSize != REDIRECTSET_SIZE) return ERROR_INV_STRUCT_SIZE;
    if (hUnderlying == -1 || hUnderlying == -2) return ERROR_INV_PARAMETER;
    return giveHandle(hUnderlying, cleanSet(*pSet, kOsRedirectSet), HandleKind::own, phFile);
}

R_INT R_CloseRedirectedCallbackFileHandle(R_INT64 hFile) noexcept
{
    RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr || file->kind != HandleKind::own) return ERROR_INV_HANDLE;
    dropHandle(file);
    return SUCCESS;
}

R_INT R_FilterIO(R_INT64 hFile, FILTERIOCALLBACK pfnFilter, void* pUserData) noexcept
{
    RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr) return ERROR_INV_HANDLE;
    file->filter = pfnFilter;
    file->filterData = pUserData;
    return SUCCESS;
}

R_INT R_GetFilterIOData(R_INT64 hFile, FILTERIOCALLBACK* ppfnFilter, void** ppUserData) noexcept
{
    const RedirectedFile* const file = redirectedFile(hFile);
    if (file == nullptr) return ERROR_INV_HANDLE;
    if (ppfnFilter != nullptr) *ppfnFilter = file->filter;
    if (ppUserData != nullptr) *ppUserData = file->filterData;
    return SUCCESS;
}
