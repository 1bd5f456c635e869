// The folder of temporary files.
#include "Common/NarrowText.h"
#include "Common/Text.h"
#include "Kernel/Base/System.h"
#include "Kernel/Services/TempFile.h"

using namespace rv;

namespace {

struct FolderState {
    LazyLock lock;
    TempFolderText folder = {0}; // empty until it is set or needed
};
constinit FolderState state;

} // namespace

Status rv::tempFolder(TempFolderText& folder) noexcept
{
    const LockGuard guard(state.lock);
    if (state.folder[0] == 0) {
        const uint32_t units = platform().temporaryFolder(state.folder, kMaxTempFolder + 1);
        // What does not fit leaves nothing: another folder's name would be worse than none. So would no name at all.
        if (units <= 1 || units > kMaxTempFolder + 1) return state.folder[0] = 0, ERROR_TEMP_FOLDER;
    }
    TextWriter<R_WCHAR>(folder, kMaxTempFolder + 1).append(state.folder);
    return SUCCESS;
}

R_INT R_SetTempDirectory(const R_WCHAR* pszFolder) noexcept
{
    if (pszFolder == nullptr) return ERROR_NULL_PTR;
    FileFacts facts;
    if (!platform().fileFacts(pszFolder, &facts)) return ERROR_INV_PARAMETER;
    if (!facts.folder) return FAILURE;
    const LockGuard guard(state.lock);
    TextWriter<R_WCHAR>(state.folder, kMaxTempFolder + 1).append(pszFolder);
    return SUCCESS;
}

R_INT R_GetTempDirectory(R_WCHAR* pszBuffer, R_UINT uBufferChars) noexcept
{
    if (pszBuffer == nullptr) return ERROR_NULL_PTR;
    if (uBufferChars == 0) return ERROR_INV_PARAMETER;
    TempFolderText folder;
    R_TRY(tempFolder(folder));
    TextWriter<R_WCHAR>(pszBuffer, uBufferChars).append(folder);
    return SUCCESS;
}

R_INT R_SetTempDirectoryA(const char* pszFolder) noexcept
{
    if (pszFolder == nullptr) return ERROR_NULL_PTR;
    const NarrowArgument wide(pszFolder);
    return wide ? R_SetTempDirectory(wide.get()) : ERROR_FAILURE;
}

R_INT R_GetTempDirectoryA(char* pszBuffer, R_UINT uBufferChars) noexcept
{
    if (pszBuffer == nullptr) return ERROR_NULL_PTR;
    if (uBufferChars == 0) return ERROR_INV_PARAMETER;
    TempFolderText folder;
    R_TRY(tempFolder(folder));
    narrowAnswer(pszBuffer, uBufferChars, folder);
    return SUCCESS;
}
