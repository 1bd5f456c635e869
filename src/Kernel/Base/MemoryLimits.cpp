// Conventional memory of the whole process, and the size above which one bitmap goes to disk.
#include "Kernel/Base/System.h"

#include <utility>

using namespace rv;

namespace {

constexpr R_INT64 kNoThreshold = 0;
constexpr R_INT64 kThresholdAtStart = kNoThreshold;
constexpr R_UINT64 kUnlimited = 0x7FFFFFFFFFFFFFFF;
constexpr R_UINT64 kFreeGrowth = 16000000; // what a block may grow by, limit or no limit

struct MemoryLimits {
    LazyLock lock;
    R_UINT64 limit = 0; // 0 is none
    R_UINT64 total = 0; // held in conventional blocks and tiles
    R_INT64 threshold = kThresholdAtStart;

    bool fits(R_UINT64 bytes) const noexcept
    {
        const R_UINT64 sum = total + bytes;
        return sum >= total && (limit == 0 || sum <= limit);
    }
    Status reserve(R_UINT64 bytes) noexcept
    {
        if (!fits(bytes)) return ERROR_MEMORY_LIMIT;
        total += bytes;
        return SUCCESS;
    }
    R_UINT64 available() const noexcept
    {
        if (limit == 0) return kUnlimited;
        return limit > total ? limit - total : 1; // 0 would read as "no limit"
    }
};
constinit MemoryLimits memory;

void store(R_UINT64* pResult, R_UINT64 value) noexcept
{
    if (pResult != nullptr) *pResult = value;
}

} // namespace

Status rv::reserveConventional(R_UINT64 bytes) noexcept
{
    const LockGuard guard(memory.lock);
    return memory.reserve(bytes);
}

Status rv::growConventional(R_UINT64 bytes) noexcept
{
    const LockGuard guard(memory.lock);
    if (bytes > kFreeGrowth) return memory.reserve(bytes);
    memory.total += bytes;
    return SUCCESS;
}

void rv::returnConventional(R_UINT64 bytes) noexcept
{
    const LockGuard guard(memory.lock);
    memory.total -= bytes;
}

R_INT64 rv::globalBitmapThreshold() noexcept
{
    const LockGuard guard(memory.lock);
    return memory.threshold;
}

R_INT R_ManageMemory(R_UINT uCommand, R_UINT64 uValue, R_UINT64* pResult) noexcept
{
    const LockGuard guard(memory.lock);
    switch (uCommand) {
    case MANAGE_SET_LIMIT: store(pResult, std::exchange(memory.limit, uValue)); return SUCCESS;
    case MANAGE_GET_LIMIT: store(pResult, memory.limit); return SUCCESS;
    case MANAGE_RESERVE: return memory.reserve(uValue);
    case MANAGE_RELEASE: memory.total -= uValue; return SUCCESS; // as told: the caller's count, not ours
    case MANAGE_GET_TOTAL:
        if (pResult == nullptr) return ERROR_NULL_PTR;
        *pResult = memory.total;
        return SUCCESS;
    case MANAGE_GET_AVAILABLE:
        store(pResult, memory.available());
        return memory.fits(uValue) ? SUCCESS : ERROR_MEMORY_LIMIT;
    default: return ERROR_FEATURE_NOT_SUPPORTED;
    }
}

R_INT R_GetGlobalMemoryThresholds(GLOBALMEMORYTHRESHOLDS* pThresholds, R_UINT uStructSize) noexcept
{
    if (uStructSize != GLOBALMEMORYTHRESHOLDS_SIZE) return ERROR_INV_STRUCT_SIZE;
    if (pThresholds == nullptr) return ERROR_INV_PARAMETER;
    pThresholds->uStructSize = GLOBALMEMORYTHRESHOLDS_SIZE;
    pThresholds->nThreshold = globalBitmapThreshold();
    return SUCCESS;
}

R_INT R_SetGlobalMemoryThresholds(const GLOBALMEMORYTHRESHOLDS* pThresholds) noexcept
{
    R_INT64 threshold = kNoThreshold;
    if (pThresholds != nullptr) {
        if (pThresholds->uStructSize != GLOBALMEMORYTHRESHOLDS_SIZE) return ERROR_INV_STRUCT_SIZE;
        threshold = pThresholds->nThreshold;
        if (threshold < -1) return ERROR_INV_PARAMETER;
        if (threshold == -1) threshold = kThresholdAtStart;
    }
    const LockGuard guard(memory.lock);
    memory.threshold = threshold;
    return SUCCESS;
}
