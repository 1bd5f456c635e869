// Options of temporary files, and the memory that they allow.
#include "Kernel/Services/TempFile.h"

#include "Kernel/Base/System.h"

#include <algorithm>

using namespace rv;

namespace {

constexpr R_UINT kKeepMode = 0xFFFFFFFFu;
constexpr R_UINT64 kKiB = 1024;
constexpr R_UINT64 kMiB = 1024 * 1024;
constexpr R_UINT kDefaultChunk = 16;

struct TempFileState {
    LazyLock lock;
    TEMPFILEOPTIONS options = {
        .uStructSize = TEMPFILEOPTIONS_SIZE,
        .uMode = TEMPFILE_DISK_AND_MEMORY,
        .uFlags = 0,
        .uMaxTotalMemSize = 128,
        .uMaxMemSizePerFile = 8,
        .uChunkMemSize = kDefaultChunk,
    };
    R_UINT64 held = 0; // by all temporary files in memory

    /// The most that a file may have.
    R_UINT64 ceiling(R_UINT64 own, bool memoryOnly) const noexcept
    {
        if (memoryOnly || options.uMode == TEMPFILE_MEMORY) return UINT64_MAX;
        if (options.uMode == TEMPFILE_DISK || held / kMiB >= options.uMaxTotalMemSize) return 0;
        return std::min(options.uMaxTotalMemSize * kMiB - held + own, options.uMaxMemSizePerFile * kMiB);
    }
};
constinit TempFileState state;

} // namespace

R_UINT64 TempFileBudget::claim(R_UINT64 own, R_UINT64 needed, bool memoryOnly) noexcept
{
    const LockGuard guard(state.lock);
    const R_UINT64 ceiling = state.ceiling(own, memoryOnly);
    if (needed > ceiling) return 0;
    const R_UINT64 allowed = std::min(needed + kHeadroom, ceiling);
    state.held += allowed - own;
    return allowed;
}

void TempFileBudget::giveBack(R_UINT64 bytes) noexcept
{
    const LockGuard guard(state.lock);
    state.held -= bytes;
}

R_UINT64 TempFileBudget::held() noexcept
{
    const LockGuard guard(state.lock);
    return state.held;
}

R_UINT64 TempFileBudget::chunkBytes() noexcept
{
    const LockGuard guard(state.lock);
    return (state.options.uChunkMemSize != 0 ? state.options.uChunkMemSize : kDefaultChunk) * kKiB;
}

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
