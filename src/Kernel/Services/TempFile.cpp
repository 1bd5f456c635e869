#include "Kernel/Base/System.h"

using namespace rv;

namespace {

constexpr R_UINT kKeepMode = 0xFFFFFFFFu;

struct TempFileState {
    LazyLock lock;
    TEMPFILEOPTIONS options = {
        .uStructSize = TEMPFILEOPTIONS_SIZE,
        .uMode = TEMPFILE_DISK_AND_MEMORY,
        .uFlags = 0,
        .uMaxTotalMemSize = 128,
        .uMaxMemSizePerFile = 8,
        .uChunkMemSize = 16,
    };
};
constinit TempFileState state;

} // namespace

R_INT R_SetTempFileOptions(const TEMPFILEOPTIONS* pOptions) noexcept
{
    if (pOptions == nullptr) return ERROR_NULL_PTR;
    if (pOptions->uStructSize != TEMPFILEOPTIONS_SIZE) return ERROR_INV_STRUCT_SIZE;
    TEMPFILEOPTIONS options = *pOptions;
    if (options.uMode == 0) options.uMode = TEMPFILE_DISK_AND_MEMORY;
    const LockGuard guard(state.lock);
    if (options.uMode == kKeepMode) options.uMode = state.options.uMode;
    state.options = options;
    return SUCCESS;
}

R_INT R_GetTempFileOptions(TEMPFILEOPTIONS* pOptions, R_UINT uStructSize) noexcept
{
    if (pOptions == nullptr) return ERROR_NULL_PTR;
    if (uStructSize != TEMPFILEOPTIONS_SIZE) return ERROR_INV_STRUCT_SIZE;
    const LockGuard guard(state.lock);
    *pOptions = state.options;
    return SUCCESS;
}

R_UINT R_GetTempFileMode() noexcept
{
    const LockGuard guard(state.lock);
    return state.options.uMode;
}
