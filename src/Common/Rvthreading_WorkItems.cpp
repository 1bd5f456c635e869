// Groups of work items. Workers and waiters are on different threads, so that the fields which both look at are read
// and written atomically, lock or no lock.
#include "Common/Rvthreading.h"
#include "Platform/Platform.h"
#include "R_Status.h"
#include "R_Threads.h"

namespace {

constexpr R_UINT kAnyLock = WORKITEMS_LOCK | WORKITEMS_LOCK_CANCEL | WORKITEMS_KEEP_STATUS;

template <class Value> Value get(Value& field) noexcept
{
    return std::atomic_ref<Value>(field).load(std::memory_order_relaxed);
}

template <class Value> void put(Value& field, Value value) noexcept
{
    std::atomic_ref<Value>(field).store(value, std::memory_order_relaxed);
}

} // namespace

RVWorkItems::RVWorkItems() noexcept
    : m_uFlags(0), m_bCreated(0), m_uCount(0), m_nRunning(0), m_bCancelled(0), m_nStatus(SUCCESS), m_uThreadFlags(0)
{
}

RVWorkItems::~RVWorkItems() { Destroy(); }

R_INT RVWorkItems::Create(R_UINT uCount, R_UINT uFlags, R_UINT uThreadFlags) noexcept
{
    Destroy();
    if ((uFlags & WORKITEMS_INLINE) == 0 && RVThreadToolsManaged::GetCoreCount() > 1) {
        R_INT status = m_Done.Create(0, 0);
        if (status == SUCCESS && (uFlags & kAnyLock) != 0) status = m_Lock.Create();
        if (status != SUCCESS) {
            m_Done.Destroy();
            return status;
        }
    }
    m_uFlags = uFlags;
    put(m_uCount, uCount);
    m_nRunning = static_cast<R_LONG>(uCount);
    put(m_bCancelled, 0);
    put(m_nStatus, SUCCESS);
    m_bCreated = 1;
    m_uThreadFlags = uThreadFlags;
    return SUCCESS;
}

void RVWorkItems::Destroy() noexcept
{
    put(m_uCount, 0u); // items that still run, of a group that nobody waited for, count nothing any more
    m_Done.Destroy();
    m_Lock.Destroy();
    m_bCreated = 0;
    put(m_bCancelled, 0);
    put(m_nStatus, SUCCESS);
}

R_INT RVWorkItems::QueueItem(RVWORKITEMCALLBACK pfnCallback, void* pData) noexcept
{
    if (pfnCallback == nullptr) return ERROR_FAILURE;
    if (IsCanceled() != 0) {
        if (IsThreaded() != 0) EndItem(); // it is waited for like the others
        return SUCCESS;
    }
    if (IsThreaded() == 0) {
        SetStatus(pfnCallback(this, pData));
        return SUCCESS;
    }
    const auto run = [](const rv::Work& item) -> R_UINT {
        auto* const group = static_cast<RVWorkItems*>(item.object);
        group->RunQueued(reinterpret_cast<RVWORKITEMCALLBACK>(item.function), item.data);
        return 0;
    };
    return rv::startWork({run, reinterpret_cast<void (*)()>(pfnCallback), this, pData}, m_uThreadFlags);
}

/// The callback of a group without a count may end the group itself, by Finish(): only its result can make this touch
/// the group again.
void RVWorkItems::RunQueued(RVWORKITEMCALLBACK pfnCallback, void* pData) noexcept
{
    const bool counted = get(m_uCount) != 0;
    const bool keepsStatus = (m_uFlags & WORKITEMS_KEEP_STATUS) != 0;
    if (IsCanceled() == 0) {
        const R_INT status = pfnCallback(this, pData);
        if (keepsStatus) SetStatus(status);
        if (status == ERROR_USER_ABORT) Cancel();
    }
    if (counted) EndItem();
}

/// One item less to wait for. The group may be gone when this returns: the waiter is free as soon as the event is set,
/// and so it is once another item has counted the rest.
void RVWorkItems::EndItem() noexcept
{
    if (get(m_uCount) != 0 && RVThreadToolsUnmanaged::RVInterlockedDecrement(&m_nRunning) == 0) m_Done.Set();
}

void RVWorkItems::Wait() noexcept
{
    if (m_bCreated != 0 && IsThreaded() != 0) m_Done.WaitOne(rv::kWaitForever);
}

void RVWorkItems::Finish() noexcept { m_Done.Set(); }

R_INT RVWorkItems::GetStatus() noexcept
{
    const RVReaderWriterLockItem hold = m_Lock.AcquireReaderLock();
    return get(m_nStatus);
}

void RVWorkItems::SetStatus(R_INT nStatus) noexcept
{
    const RVReaderWriterLockItem hold = m_Lock.AcquireWriterLock();
    put(m_nStatus, nStatus);
}

void RVWorkItems::Cancel() noexcept
{
    const RVReaderWriterLockItem hold = m_Lock.AcquireWriterLock((m_uFlags & WORKITEMS_LOCK_CANCEL) != 0);
    put(m_bCancelled, 1);
}

R_INT RVWorkItems::IsCanceled() noexcept
{
    const RVReaderWriterLockItem hold = m_Lock.AcquireReaderLock((m_uFlags & WORKITEMS_LOCK_CANCEL) != 0);
    return get(m_bCancelled);
}

R_INT RVWorkItems::IsCreated() const noexcept { return m_bCreated; }
R_INT RVWorkItems::IsThreaded() const noexcept { return m_Done.IsCreated(); }
RVReaderWriterLock* RVWorkItems::GetLock() noexcept { return &m_Lock; }
