// The calls that set and get what each thread has for itself.
#include "Kernel/Base/System.h"

#include <utility>

using namespace rv;

namespace {

constexpr R_INT64 kAllOfIt = -100; // percent: the least value that says an amount

template <class Value> void store(Value* pResult, Value value) noexcept
{
    if (pResult != nullptr) *pResult = value;
}

/// Replaces a callback and its user data and tells what they were.
void exchange(STATUSCALLBACK& callback, void*& userData, STATUSCALLBACK newCallback, void* newUserData,
              STATUSCALLBACK* ppfnOld, void** ppOldUserData) noexcept
{
    store(ppfnOld, std::exchange(callback, newCallback));
    store(ppOldUserData, std::exchange(userData, newUserData));
}

} // namespace

R_INT R_SetMemoryThresholds(R_INT nReserve, R_INT64 nMaxConvSize, R_INT64 nTileSize, R_INT nConvTiles,
                            R_INT nConvBuffers, R_UINT uFlags) noexcept
{
    ThreadSettings& settings = threadSettings();
    // In the order of the flags; what has been stored before a refusal stays.
    const auto set = [uFlags](R_UINT flag, auto& setting, auto value, R_INT64 least) {
        if ((uFlags & flag) == 0) return true;
        if (value < least) return false;
        setting = value;
        return true;
    };
    const bool accepted = set(THRESHOLD_RESERVE, settings.reserve, nReserve, kAllOfIt) &&
                          set(THRESHOLD_MAX_CONV_SIZE, settings.maxConvSize, nMaxConvSize, kAllOfIt) &&
                          set(THRESHOLD_TILE_SIZE, settings.tileSize, nTileSize, 0) &&
                          set(THRESHOLD_CONV_TILES, settings.convTiles, nConvTiles, kAllOfIt) &&
                          set(THRESHOLD_CONV_BUFFERS, settings.convBuffers, nConvBuffers, kAllOfIt);
    return accepted ? SUCCESS : ERROR_INV_PARAMETER;
}

R_INT R_GetMemoryThresholds(R_INT* pnReserve, R_INT64* pnMaxConvSize, R_INT64* pnTileSize, R_INT* pnConvTiles,
                            R_INT* pnConvBuffers) noexcept
{
    const ThreadSettings& settings = threadSettings();
    store(pnReserve, settings.reserve);
    store(pnMaxConvSize, settings.maxConvSize);
    store(pnTileSize, settings.tileSize);
    store(pnConvTiles, settings.convTiles);
    store(pnConvBuffers, settings.convBuffers);
    return SUCCESS;
}

R_INT R_SetDefaultMemoryType(R_UINT uType) noexcept
{
    if (uType != MEM_CONVENTIONAL && uType != MEM_DISK) return ERROR_INV_PARAMETER;
    threadSettings().memoryType = uType;
    return SUCCESS;
}

R_UINT R_GetDefaultMemoryType() noexcept { return threadSettings().memoryType; }

// Resolutions are stored as they come: a new bitmap looks at what it gets.
R_INT R_SetDefaultXResolution(R_INT nResolution) noexcept
{
    return std::exchange(threadSettings().xResolution, nResolution);
}
R_INT R_SetDefaultYResolution(R_INT nResolution) noexcept
{
    return std::exchange(threadSettings().yResolution, nResolution);
}
R_INT R_GetDefaultXResolution() noexcept { return threadSettings().xResolution; }
R_INT R_GetDefaultYResolution() noexcept { return threadSettings().yResolution; }

R_INT R_SetStatusCallBack(STATUSCALLBACK pfnCallback, void* pUserData, STATUSCALLBACK* ppfnOld,
                          void** ppOldUserData) noexcept
{
    ThreadSettings& settings = threadSettings();
    exchange(settings.statusCallback, settings.statusUserData, pfnCallback, pUserData, ppfnOld, ppOldUserData);
    return SUCCESS;
}

STATUSCALLBACK R_GetStatusCallBack(void** ppUserData) noexcept
{
    const ThreadSettings& settings = threadSettings();
    store(ppUserData, settings.statusUserData);
    return settings.statusCallback;
}

R_INT R_SetCopyStatusCallBack(STATUSCALLBACK pfnCallback, void* pUserData, STATUSCALLBACK* ppfnOld,
                              void** ppOldUserData) noexcept
{
    ThreadSettings& settings = threadSettings();
    exchange(settings.copyStatusCallback, settings.copyStatusUserData, pfnCallback, pUserData, ppfnOld, ppOldUserData);
    return SUCCESS;
}

STATUSCALLBACK R_GetCopyStatusCallBack(void** ppUserData) noexcept
{
    const ThreadSettings& settings = threadSettings();
    store(ppUserData, settings.copyStatusUserData);
    return settings.copyStatusCallback;
}
