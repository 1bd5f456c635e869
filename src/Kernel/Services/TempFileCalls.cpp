// Temporary files, opened, used and removed by their names.
#include "Common/NarrowText.h"
#include "Common/WideUTF8.h"
#include "Kernel/Services/Redirect.h"
#include "Kernel/Services/TempFileList.h"

using namespace rv;

namespace {

template <class Wide> R_INT64 openConverted(const char* name, R_INT mode, R_INT permission) noexcept
{
    if (name == nullptr) return R_INVALID_FILE;
    const Wide wide(name);
    return wide ? R_RedirectedTempFileOpen(wide.get(), mode, permission) : R_INVALID_FILE;
}

template <class Wide> Status deleteConverted(const char* name) noexcept
{
    if (name == nullptr) return ERROR_NULL_PTR;
    const Wide wide(name);
    return wide ? R_DeleteTempFile(wide.get()) : ERROR_FAILURE;
}

} // namespace

R_INT64 R_RedirectedTempFileOpen(const R_WCHAR* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    if (pszName == nullptr) return R_INVALID_FILE;
    const REDIRECTSET set = tempFileRedirectSet();
    if (set.pfnOpen == nullptr) return R_INVALID_FILE;
    const R_INT64 file = set.pfnOpen(pszName, nMode, nPermission, set.pOpenData);
    return file == R_INVALID_FILE ? R_INVALID_FILE : wrapFile(file, set, HandleKind::current);
}

R_INT64 R_RedirectedTempFileOpenA(const char* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    return openConverted<NarrowArgument>(pszName, nMode, nPermission);
}

R_INT64 R_RedirectedTempFileOpenUTF8(const char* pszName, R_INT nMode, R_INT nPermission) noexcept
{
    return openConverted<WideText>(pszName, nMode, nPermission);
}

// From here on the handle knows its operations.

R_INT R_RedirectedTempFileRead(R_INT64 hFile, void* pBuffer, R_UINT uBytes) noexcept
{
    return R_RedirectedRead(hFile, pBuffer, uBytes);
}

R_INT64 R_RedirectedTempFileReadBig(R_INT64 hFile, void* pBuffer, R_INT64 nBytes) noexcept
{
    return R_RedirectedReadBig(hFile, pBuffer, nBytes);
}

R_INT R_RedirectedTempFileWrite(R_INT64 hFile, const void* pBuffer, R_UINT uBytes) noexcept
{
    return R_RedirectedWrite(hFile, pBuffer, uBytes);
}

R_INT64 R_RedirectedTempFileWriteBig(R_INT64 hFile, const void* pBuffer, R_INT64 nBytes) noexcept
{
    return R_RedirectedWriteBig(hFile, pBuffer, nBytes);
}

R_INT64 R_RedirectedTempFileSeek(R_INT64 hFile, R_INT64 nDistance, R_INT nOrigin) noexcept
{
    return R_RedirectedSeek(hFile, nDistance, nOrigin);
}

R_INT R_RedirectedTempFileClose(R_INT64 hFile) noexcept { return R_RedirectedClose(hFile); }

R_INT R_DeleteTempFile(const R_WCHAR* pszName) noexcept
{
    if (pszName == nullptr) return ERROR_NULL_PTR;
    if (isMemoryTempFile(pszName)) {
        const LockGuard guard(tempFileLock());
        if (FileInMemory* const file = findInMemory(pszName)) return unlist(file), SUCCESS;
    }
    const REDIRECTSET set = tempFileRedirectSet();
    return set.pfnDelete != nullptr ? set.pfnDelete(pszName, set.pDeleteData) : ERROR_FAILURE;
}

R_INT R_DeleteTempFileA(const char* pszName) noexcept { return deleteConverted<NarrowArgument>(pszName); }

R_INT R_DeleteTempFileUTF8(const char* pszName) noexcept { return deleteConverted<WideText>(pszName); }
