#include "Kernel/Services/Osys.h"

#include "Common/WideUTF8.h"
#include "Kernel/Base/System.h"
#include "Kernel/Services/TempFile.h"
#include "Platform/NativeErrors.h"
#include "Platform/Platform.h"

#include <climits>

namespace rv {
namespace {

constexpr uint32_t kRead = FileRequest::kRead;
constexpr uint32_t kWrite = FileRequest::kWrite;

uint32_t accessOf(R_INT mode) noexcept
{
    switch (mode & 3) {
    case FILE_MODE_READ: return kRead;
    case FILE_MODE_WRITE: return kWrite;
    default: return kRead | kWrite;
    }
}

/// The bits are not what they seem: writing is never shared without reading, and the write bit alone shares nothing.
uint32_t sharingOf(R_INT permission) noexcept
{
    if ((permission & FILE_SHARE_BIT_READ) == 0) return 0;
    return (permission & FILE_SHARE_BIT_WRITE) != 0 ? kRead | kWrite : kRead;
}

FileRequest::Creation creationOf(R_INT mode) noexcept
{
    using Creation = FileRequest::Creation;
    if ((mode & FILE_MODE_CREATE) != 0) return Creation::createAlways;
    return (mode & FILE_MODE_TRUNCATE) != 0 ? Creation::truncateExisting : Creation::openExisting;
}

/// The answer to an argument that no file operation can start with.
constexpr R_INT kRefused = -1;
R_INT refused() noexcept
{
    platform().setNativeError(native::kInvalidParameter);
    return kRefused;
}

/// The most that one call can tell to have moved.
uint32_t oneCall(R_UINT bytes) noexcept { return bytes < INT_MAX ? bytes : INT_MAX; }

/// Calls move(offset, piece) until all bytes are moved; a piece of none asks again, or ends it as failed.
enum class OnNothing { askAgain, fail };
template <class Buffer, class Move>
R_INT64 moveBig(Buffer* buffer, R_INT64 bytes, OnNothing onNothing, Move move) noexcept
{
    if (bytes < 0) return refused();
    for (R_INT64 done = 0; done < bytes;) {
        if (buffer == nullptr) return refused();
        const R_INT64 left = bytes - done;
        const int64_t moved = move(buffer + done, static_cast<uint32_t>(left < kMaxTransfer ? left : kMaxTransfer));
        if (moved < 0) return R_INVALID_FILE;
        if (moved == 0 && onNothing == OnNothing::fail) {
            platform().setNativeError(native::kWriteFault);
            return R_INVALID_FILE;
        }
        done += moved;
    }
    return bytes;
}

/// Writing nothing is an order: the file ends here.
R_INT cutHere(R_INT64 file) noexcept { return platform().endFileHere(file) ? 0 : -1; }

/// What R_OsGetLastError makes of a native error.
R_INT statusOf(uint32_t error, R_INT otherwise) noexcept
{
    switch (error) {
    case native::kFileNotFound: return ERROR_NO_SUCH_FILE;
    case native::kAccessDenied: return ERROR_FILE_ACCESS;
    case native::kNotEnoughMemory:
    case native::kOutOfMemory: return ERROR_FAILURE;
    case native::kDiskFull: return ERROR_NO_DISK_SPACE;
    case native::kBufferTooSmall: return ERROR_BUFFER_TOO_SMALL;
    default: return otherwise;
    }
}

// The least status there is.
constexpr R_INT kLastStatus = -1962;

} // namespace

bool mayOpenFiles() noexcept { return true; }

bool existsOnDisk(const R_WCHAR* name) noexcept
{
    const FileRequest question = {.sharing = kRead | kWrite, .folders = true};
    const int64_t file = platform().openFile(name, question);
    return file != kNoFile && platform().closeFile(file);
}

} // namespace rv

using namespace rv;

R_INT64 R_OsOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    if (pszName == nullptr) return refused();
    if (!mayOpenFiles()) return R_INVALID_FILE;
    const bool temporary = (nMode & FILE_MODE_TEMPORARY) != 0;
    return platform().openFile(pszName, {.access = accessOf(nMode),
                                         .sharing = sharingOf(nPermission),
                                         .creation = creationOf(nMode),
                                         .deleteOnClose = temporary,
                                         .readOnly = accessOf(nMode) == kRead,
                                         .temporary = temporary});
}

R_INT64 R_OsCreat(const R_WCHAR* pszName, R_INT nFlags) noexcept
{
    if (pszName == nullptr) return refused();
    const bool readOnly = (nFlags & FILE_CREATE_READ_ONLY) != 0;
    return platform().openFile(pszName, {.access = readOnly ? kRead : kRead | kWrite,
                                         .sharing = kRead | kWrite,
                                         .creation = FileRequest::Creation::createAlways,
                                         .deleteOnClose = (nFlags & FILE_CREATE_DELETE_ON_CLOSE) != 0,
                                         .readOnly = readOnly,
                                         .hidden = (nFlags & FILE_CREATE_HIDDEN) != 0,
                                         .system = (nFlags & FILE_CREATE_SYSTEM) != 0});
}

R_INT R_OsRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes) noexcept
{
    if (pBuffer == nullptr) return refused();
    return static_cast<R_INT>(platform().readFile(hFile, pBuffer, oneCall(uBytes)));
}

R_INT R_OsWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes) noexcept
{
    if (uBytes == 0) return cutHere(hFile);
    if (pBuffer == nullptr) return refused();
    return static_cast<R_INT>(platform().writeFile(hFile, pBuffer, oneCall(uBytes)));
}

R_INT64 R_OsReadBig(R_INT64 hFile, void* pBuffer, R_INT64 nBytes) noexcept
{
    // Kept: a read of no bytes asks again, as those who wait on a growing file expect.
    return moveBig(static_cast<R_UCHAR*>(pBuffer), nBytes, OnNothing::askAgain,
                   [=](R_UCHAR* out, uint32_t piece) { return platform().readFile(hFile, out, piece); });
}

R_INT64 R_OsWriteBig(R_INT64 hFile, const void* pBuffer, R_INT64 nBytes) noexcept
{
    if (nBytes == 0) return cutHere(hFile);
    return moveBig(static_cast<const R_UCHAR*>(pBuffer), nBytes, OnNothing::fail,
                   [=](const R_UCHAR* in, uint32_t piece) { return platform().writeFile(hFile, in, piece); });
}

R_INT64 R_OsSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin) noexcept
{
    return platform().seekFile(hFile, nDistance, nOrigin);
}

R_INT R_OsSetFileSize(R_INT64 hFile, R_INT64 nSize) noexcept
{
    return platform().seekFile(hFile, nSize, FILE_FROM_START) != kNoFile ? cutHere(hFile) : -1;
}

R_INT R_OsClose(R_INT64 hFile) noexcept { return platform().closeFile(hFile) ? 0 : -1; }

R_INT R_OsDelete(const R_WCHAR* pszName) noexcept
{
    if (pszName == nullptr) return refused();
    return platform().deleteFile(pszName) ? 0 : -1;
}

void R_OsSetLastError(R_INT nStatus) noexcept
{
    threadSettings().savedFileError = nStatus;
    platform().setNativeError(static_cast<uint32_t>(nStatus));
}

R_INT R_OsGetLastError(R_INT nDefault) noexcept
{
    const uint32_t error = platform().nativeError(); // finding the settings may change it
    R_INT& settingsError = threadSettings().savedFileError;
    const R_INT saved = settingsError;
    if (saved == 0) return statusOf(error, nDefault);
    settingsError = 0;
    if (saved == static_cast<R_INT>(error) && saved >= kLastStatus && saved <= -1) return saved;
    return statusOf(static_cast<uint32_t>(saved), nDefault);
}

R_INT R_MoveFileEx(const R_WCHAR* pszFrom, const R_WCHAR* pszTo, R_UINT uFlags) noexcept
{
    return platform().moveFile(pszFrom, pszTo, uFlags) ? SUCCESS : FAILURE;
}

R_INT R_OsGetTempName(R_WCHAR* pszBuffer) noexcept { return R_GetTempFileName(pszBuffer, RV_WIDE("RD")); }

R_INT R_FileExists(const R_WCHAR* pszName) noexcept
{
    if (pszName == nullptr || *pszName == 0) return 0;
    return isMemoryTempFile(pszName) || existsOnDisk(pszName) ? 1 : 0;
}

R_INT R_FileExistsUTF8(const char* pszName) noexcept
{
    if (pszName == nullptr) return 0;
    const WideText name(pszName);
    return name ? R_FileExists(name.get()) : 0;
}
