// Starting work, counting cores, interlocked counters.
#include "Common/Rvthreading.h"
#include "Platform/Platform.h"
#include "R_Status.h"
#include "R_Threads.h"

namespace {

constinit std::atomic<R_UINT> coresCounted{0}; // 0: not yet

/// Slots that programs have been given: one bit each, by the system's number.
constexpr R_UINT kMostSlots = 4096;
constinit std::atomic<uint64_t> slotsInUse[kMostSlots / 64] = {};

constexpr R_UINT kNoSlot = 0xFFFFFFFFu;
constexpr uint64_t bitOf(R_UINT slot) noexcept { return uint64_t{1} << slot % 64; }

bool inUse(R_UINT slot) noexcept
{
    return slot < kMostSlots && (slotsInUse[slot / 64].load(std::memory_order_acquire) & bitOf(slot)) != 0;
}

void destroySlots(R_UINT first, uint64_t bits) noexcept
{
    for (R_UINT slot = first; bits != 0; ++slot, bits >>= 1)
        if ((bits & 1) != 0) rv::platform().destroySlot(slot);
}

} // namespace

void rv::releaseThreading() noexcept
{
    for (R_UINT word = 0; word < kMostSlots / 64; ++word) destroySlots(word * 64, slotsInUse[word].exchange(0));
    coresCounted.store(0, std::memory_order_relaxed);
    forgetLockKind();
}

// --- Work

rv::Work rv::workOf(RAVOTHREADPROC proc, void* context) noexcept
{
    const auto run = [](const Work& work) { return reinterpret_cast<RAVOTHREADPROC>(work.function)(work.data); };
    return {run, reinterpret_cast<void (*)()>(proc), nullptr, context};
}

R_INT rv::startWork(const Work& work, R_UINT threadFlags) noexcept
{
    const bool started = (threadFlags & THREAD_DEDICATED) != 0
                             ? platform().startThread(work)
                             : platform().queueWork(work, (threadFlags & THREAD_LONG_RUNNING) != 0);
    return started ? SUCCESS : ERROR_FAILURE;
}

R_INT R_RavoThreadCreateAndRun(RAVOTHREADPROC pfnProc, void* pContext, R_UINT) noexcept
{
    if (pfnProc == nullptr) return ERROR_INV_PARAMETER;
    return rv::startWork(rv::workOf(pfnProc, pContext), THREAD_DEDICATED);
}

R_INT R_RavoThreadCreateAndRunST(RAVOTHREADPROC pfnProc, void* pContext, R_UINT) noexcept
{
    if (pfnProc == nullptr) return ERROR_INV_PARAMETER;
    pfnProc(pContext);
    return SUCCESS;
}

RVThreadPool::~RVThreadPool() = default;

R_INT RVThreadPool::QueueUserWorkItem(RAVOTHREADPROC pfnProc, void* pContext, R_UINT uFlags) noexcept
{
    return pfnProc != nullptr ? rv::startWork(rv::workOf(pfnProc, pContext), uFlags) : ERROR_FAILURE;
}

// --- Thread-local slots

R_UINT R_TlsAlloc() noexcept
{
    rv::ThreadSlot slot;
    if (!rv::platform().createSlot(&slot, nullptr)) return kNoSlot;
    if (slot >= kMostSlots) {
        rv::platform().destroySlot(slot);
        return kNoSlot;
    }
    slotsInUse[slot / 64].fetch_or(bitOf(slot), std::memory_order_acq_rel);
    return slot;
}

R_INT R_TlsFree(R_UINT uSlot) noexcept
{
    if (uSlot >= kMostSlots) return ERROR_INV_PARAMETER;
    const uint64_t before = slotsInUse[uSlot / 64].fetch_and(~bitOf(uSlot), std::memory_order_acq_rel);
    if ((before & bitOf(uSlot)) == 0) return ERROR_INV_PARAMETER;
    rv::platform().destroySlot(uSlot);
    return SUCCESS;
}

void* R_TlsGetValue(R_UINT uSlot) noexcept { return inUse(uSlot) ? rv::platform().slotValue(uSlot) : nullptr; }

R_INT R_TlsSetValue(R_UINT uSlot, void* pValue) noexcept
{
    if (!inUse(uSlot)) return ERROR_INV_PARAMETER;
    return rv::platform().setSlotValue(uSlot, pValue) ? SUCCESS : ERROR_FAILURE;
}

// --- Tools

RVThreadToolsManaged::~RVThreadToolsManaged() = default;

R_UINT RVThreadToolsManaged::GetCoreCount() noexcept
{
    R_UINT counted = coresCounted.load(std::memory_order_relaxed);
    if (counted != 0) return counted;
    const R_UINT cores = rv::platform().coreCount();
    const R_UINT answer = cores != 0 ? cores : 1;
    return coresCounted.compare_exchange_strong(counted, answer) ? answer : counted; // one answer for all
}

RVThreadToolsUnmanaged::~RVThreadToolsUnmanaged() = default;

R_LONG RVThreadToolsUnmanaged::RVInterlockedIncrement(volatile R_LONG* pnValue) noexcept
{
    return std::atomic_ref<R_LONG>(const_cast<R_LONG&>(*pnValue)).fetch_add(1) + 1;
}

R_LONG RVThreadToolsUnmanaged::RVInterlockedDecrement(volatile R_LONG* pnValue) noexcept
{
    return std::atomic_ref<R_LONG>(const_cast<R_LONG&>(*pnValue)).fetch_sub(1) - 1;
}
