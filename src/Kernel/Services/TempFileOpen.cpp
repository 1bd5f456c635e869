// Operations on files that may live in memory. What lives elsewhere goes on to the handle layer.
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/TempFileList.h"
#include "Platform/NativeErrors.h"

#include <algorithm>
#include <cstring>

using namespace rv;

namespace {

/// Handles of files in memory lie above this: native handles have 32 bits, and addresses do not reach so far.
constexpr R_INT64 kMark = R_INT64{1} << 62;
constexpr R_UINT kMaxAnswer = 0x7FFFFFFF; // what the answer of one transfer can say
constexpr R_UINT64 kMaxPosition = INT64_MAX;

R_INT64 handleOf(MemoryHandle* record) noexcept
{
    return kMark + static_cast<R_INT64>(reinterpret_cast<intptr_t>(record));
}

/// Null for any handle of the layer below.
MemoryHandle* memoryHandle(R_INT64 handle) noexcept
{
    if (handle <= kMark) return nullptr;
    auto* const record = reinterpret_cast<MemoryHandle*>(static_cast<intptr_t>(handle - kMark));
    return memcmp(record->tag, "RMEM", 4) == 0 ? record : nullptr;
}

R_INT failed(uint32_t error) noexcept
{
    platform().setNativeError(error);
    return -1;
}

class FileLock {
public:
    explicit FileLock(FileInMemory* file) noexcept : lock_(&file->lock) { platform().enterLock(lock_); }
    ~FileLock() { platform().leaveLock(lock_); }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    LockStorage* lock_;
};

// --- Opening

MemoryHandle::Rights rightsOf(R_INT mode, R_INT permission) noexcept
{
    constexpr R_UINT kRead = FileRequest::kRead, kWrite = FileRequest::kWrite;
    MemoryHandle::Rights rights;
    switch (mode & 3) {
    case FILE_MODE_READ: rights.access = kRead; break;
    case FILE_MODE_WRITE: rights.access = kWrite; break;
    default: rights.access = kRead | kWrite; break;
    }
    if ((permission & FILE_SHARE_BIT_READ) != 0)
        rights.sharing = (permission & FILE_SHARE_BIT_WRITE) != 0 ? kRead | kWrite : kRead;
    rights.deleteOnClose = (mode & FILE_MODE_TEMPORARY) != 0;
    return rights;
}

/// Whether those who have the file open and who is about to open it allow each other what they want. Nobody can allow
/// others to delete it.
bool sharingAllows(const FileInMemory* file, const MemoryHandle::Rights& wanted, bool cuts) noexcept
{
    const R_UINT access = wanted.access | (cuts ? FileRequest::kWrite : 0);
    for (const MemoryHandle* other = file->handles; other != nullptr; other = other->next) {
        if ((access & ~other->rights.sharing) != 0 || (other->rights.access & ~wanted.sharing) != 0) return false;
        if (wanted.deleteOnClose || other->rights.deleteOnClose) return false;
    }
    return true;
}

R_INT64 openInMemory(FileInMemory* file, R_INT mode, R_INT permission) noexcept
{
    const MemoryHandle::Rights rights = rightsOf(mode, permission);
    const bool creates = (mode & FILE_MODE_CREATE) != 0;
    const bool cuts = creates || (mode & FILE_MODE_TRUNCATE) != 0;
    if (cuts && !creates && (rights.access & FileRequest::kWrite) == 0) return failed(native::kInvalidParameter);
    if (!sharingAllows(file, rights, cuts)) return failed(native::kSharingViolation);
    MemoryHandle* const handle = addHandle(file, rights);
    if (handle == nullptr) return failed(native::kNotEnoughMemory);
    if (cuts) {
        const FileLock guard(file);
        if (file->content.setSize(0)) return handleOf(handle);
    } else {
        return handleOf(handle);
    }
    handle->rights.deleteOnClose = false; // what could not be opened is not removed
    const uint32_t error = platform().nativeError();
    dropHandle(handle);
    return failed(error);
}

R_INT64 openFile(const R_WCHAR* name, R_INT mode, R_INT permission, void*) noexcept
{
    if (isMemoryTempFile(name)) {
        const LockGuard guard(tempFileLock());
        // Somebody may have removed it meanwhile.
        if (FileInMemory* const file = findInMemory(name)) return openInMemory(file, mode, permission);
    }
    return R_OsOpen(name, mode, permission);
}

// --- Using

R_INT readFile(R_INT64 file, void* buffer, R_UINT bytes, void*) noexcept
{
    MemoryHandle* const handle = memoryHandle(file);
    if (handle == nullptr) return R_OsRead(file, buffer, bytes);
    if (buffer == nullptr) return failed(native::kInvalidParameter);
    if ((handle->rights.access & FileRequest::kRead) == 0) return failed(native::kAccessDenied);
    const FileLock guard(handle->file);
    const int64_t done = handle->file->content.read(handle->position, buffer, std::min(bytes, kMaxAnswer));
    if (done > 0) handle->position += static_cast<R_UINT64>(done);
    return static_cast<R_INT>(done);
}

R_INT writeFile(R_INT64 file, const void* buffer, R_UINT bytes, void*) noexcept
{
    MemoryHandle* const handle = memoryHandle(file);
    if (handle == nullptr) return R_OsWrite(file, buffer, bytes);
    if (buffer == nullptr && bytes != 0) return failed(native::kInvalidParameter);
    if ((handle->rights.access & FileRequest::kWrite) == 0) return failed(native::kAccessDenied);
    const FileLock guard(handle->file);
    if (bytes == 0) return handle->file->content.setSize(handle->position) ? 0 : -1;
    const int64_t done = handle->file->content.write(handle->position, buffer, std::min(bytes, kMaxAnswer));
    if (done > 0) handle->position += static_cast<R_UINT64>(done);
    return static_cast<R_INT>(done);
}

R_INT64 seekFile(R_INT64 file, R_INT64 distance, R_INT origin, void*) noexcept
{
    MemoryHandle* const handle = memoryHandle(file);
    if (handle == nullptr) return R_OsSeek(file, distance, origin);
    const FileLock guard(handle->file);
    R_UINT64 start = 0;
    if (origin == FILE_FROM_CURRENT) {
        start = handle->position;
    } else if (origin != FILE_FROM_START) {
        const int64_t size = handle->file->content.size();
        if (size < 0) return -1;
        start = static_cast<R_UINT64>(size);
    }
    // Both are below 2^63: the sum wraps only where it is negative.
    const R_UINT64 position = start + static_cast<R_UINT64>(distance);
    if (distance < 0 ? position > start : position > kMaxPosition)
        return failed(distance < 0 ? native::kNegativeSeek : native::kInvalidParameter);
    handle->position = position;
    return static_cast<R_INT64>(position);
}

R_INT closeFile(R_INT64 file, void*) noexcept
{
    MemoryHandle* const handle = memoryHandle(file);
    if (handle == nullptr) return R_OsClose(file);
    bool finished;
    {
        // Not under the lock of all files: the content of a held file may take its time.
        const FileLock guard(handle->file);
        finished = handle->file->content.finish();
    }
    const uint32_t error = platform().nativeError();
    {
        const LockGuard guard(tempFileLock());
        dropHandle(handle);
    }
    return finished ? 0 : failed(error);
}

R_INT copyFile(const R_WCHAR* source, const R_WCHAR* target, R_UINT flags, void*) noexcept
{
    return kOsRedirectSet.pfnCopy(source, target, flags, kOsRedirectSet.pCopyData);
}

R_INT deleteFile(const R_WCHAR* name, void*) noexcept
{
    return kOsRedirectSet.pfnDelete(name, kOsRedirectSet.pDeleteData);
}

} // namespace

constinit const REDIRECTSET rv::kMemoryRedirectSet = {
    .uStructSize = REDIRECTSET_SIZE,
    .pfnOpen = openFile,
    .pOpenData = nullptr,
    .pfnRead = readFile,
    .pReadData = nullptr,
    .pfnWrite = writeFile,
    .pWriteData = nullptr,
    .pfnSeek = seekFile,
    .pSeekData = nullptr,
    .pfnClose = closeFile,
    .pCloseData = nullptr,
    .pfnCopy = copyFile,
    .pCopyData = nullptr,
    .pfnDelete = deleteFile,
    .pDeleteData = nullptr,
};

R_INT64 rv::holdSmallFile(R_INT64 native, void* content, R_UINT64 bytes, bool writable) noexcept
{
    if (native == kNoFile || content == nullptr || bytes > kMaxHeldFile) return kNoFile;
    const LockGuard guard(tempFileLock());
    FileInMemory* const file = makeUnlisted(kMaxHeldFile);
    if (file == nullptr) return kNoFile;
    const R_UINT access = FileRequest::kRead | (writable ? FileRequest::kWrite : 0);
    MemoryHandle* const handle = addHandle(file, {.access = access});
    if (handle == nullptr) return endFile(file), kNoFile;
    if (!file->content.hold(native, content, bytes)) return dropHandle(handle), kNoFile;
    return handleOf(handle);
}
