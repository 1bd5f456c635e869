/// Threading tools: locks, events, groups of work items, the thread pool, thread-local storage.
#ifndef R_THREADS_H
#define R_THREADS_H

#include "R_Types.h"

// Windows counts interlocked values in long; elsewhere long is wider.
#if defined(_WIN32)
typedef long R_LONG;
#else
typedef R_INT R_LONG;
#endif

/// A thread's work; its result is the thread's.
typedef R_UINT (*RAVOTHREADPROC)(void* pContext);

// uFlags of the calls that start work.
#define THREAD_DEDICATED 0x1u    ///< a thread of its own
#define THREAD_LONG_RUNNING 0x2u ///< the pool does not count on this worker to come back soon

/// Runs pfnProc on a thread of its own, whatever uFlags say, and returns at once. 1, ERROR_FAILURE, or
/// ERROR_INV_PARAMETER for a null pfnProc.
R_API R_INT R_RavoThreadCreateAndRun(RAVOTHREADPROC pfnProc, void* pContext, R_UINT uFlags) R_NOEXCEPT;
/// The same where threads are switched off: runs pfnProc here and now. 1.
R_API R_INT R_RavoThreadCreateAndRunST(RAVOTHREADPROC pfnProc, void* pContext, R_UINT uFlags) R_NOEXCEPT;

/// A thread-local slot; its value is null on every thread until set. 0xFFFFFFFF where there is none left.
R_API R_UINT R_TlsAlloc(void) R_NOEXCEPT;
R_API R_INT R_TlsFree(R_UINT uSlot) R_NOEXCEPT;                   ///< 1, or ERROR_INV_PARAMETER for a slot not in use
R_API void* R_TlsGetValue(R_UINT uSlot) R_NOEXCEPT;               ///< null for a slot not in use
R_API R_INT R_TlsSetValue(R_UINT uSlot, void* pValue) R_NOEXCEPT; ///< 1, ERROR_INV_PARAMETER, ERROR_FAILURE no memory

#if defined(__cplusplus)

class RVReaderWriterLock;

/// Holds a lock for as long as it lives.
class R_EXPORT RVReaderWriterLockItem {
public:
    RVReaderWriterLockItem() noexcept;
    /// Holds a lock that has been acquired already: shared (reader) or exclusive.
    RVReaderWriterLockItem(RVReaderWriterLock* pLock, R_INT bReader) noexcept;
    /// The copy takes the hold over; the source holds nothing any more.
    RVReaderWriterLockItem(const RVReaderWriterLockItem& other) noexcept;
    RVReaderWriterLockItem& operator=(const RVReaderWriterLockItem& other) noexcept;
    virtual ~RVReaderWriterLockItem();

private:
    void Release() noexcept;
    mutable RVReaderWriterLock* m_pLock;
    R_INT m_bReader;
};

/// Many readers or one writer. Not to be taken twice by one thread.
class R_EXPORT RVReaderWriterLock {
public:
    RVReaderWriterLock() noexcept;
    /// A copy of a lock is a lock that has not been created.
    RVReaderWriterLock(const RVReaderWriterLock& other) noexcept;
    RVReaderWriterLock& operator=(const RVReaderWriterLock& other) noexcept;
    virtual ~RVReaderWriterLock();

    R_INT Create() noexcept; ///< 1; an earlier lock of this object is destroyed first
    void Destroy() noexcept;
    R_INT IsCreated() const noexcept;
    /// An empty holder on a lock that has not been created, or when doLock is 0.
    RVReaderWriterLockItem AcquireReaderLock() noexcept;
    RVReaderWriterLockItem AcquireReaderLock(int doLock) noexcept;
    RVReaderWriterLockItem AcquireWriterLock() noexcept;
    RVReaderWriterLockItem AcquireWriterLock(int doLock) noexcept;
    static RVReaderWriterLockItem Acquire(RVReaderWriterLock* pLock, int reader) noexcept;
    void Lock() noexcept; ///< exclusive, without a holder
    void Unlock() noexcept;

private:
    friend class RVReaderWriterLockItem;
    void Enter(R_INT bReader) noexcept;
    void Leave(R_INT bReader) noexcept;
    alignas(16) unsigned char m_Storage[64]; ///< room for a slim lock or a critical section
    R_INT m_bCreated;
};

/// A native event.
class R_EXPORT RVWaitEvent {
public:
    RVWaitEvent() noexcept;
    RVWaitEvent(const RVWaitEvent&) = delete;
    RVWaitEvent& operator=(const RVWaitEvent&) = delete;
    virtual ~RVWaitEvent();

    R_INT Create(int manualReset, int initialState) noexcept; ///< 1 or -1; an earlier event is closed first
    void Destroy() noexcept;
    R_INT IsCreated() const noexcept;
    R_INT WaitOne(unsigned milliseconds) noexcept; ///< 1 signalled or no event, -100 time-out, 0 anything else
    R_INT Set() noexcept;                          ///< 1 when there is no event
    R_INT Reset() noexcept;

private:
    void* m_hEvent;
};

class RVWorkItems;
typedef R_INT (*RVWORKITEMCALLBACK)(RVWorkItems* pGroup, void* pData);

// uFlags of RVWorkItems::Create.
#define WORKITEMS_LOCK 0x1u
#define WORKITEMS_LOCK_CANCEL 0x2u ///< cancellation is read and written under the lock
#define WORKITEMS_KEEP_STATUS 0x4u ///< the result of an item run on a worker becomes the group's status
#define WORKITEMS_INLINE 0x8u      ///< every item runs on the caller's thread

/// A group of work items with one status, cancellation, and an event for the last one's end.
class R_EXPORT RVWorkItems {
public:
    RVWorkItems() noexcept;
    RVWorkItems(const RVWorkItems&) = delete;
    RVWorkItems& operator=(const RVWorkItems&) = delete;
    virtual ~RVWorkItems();

    /// For uCount items, whose last one ends the wait; with 0 nobody counts, and Finish() ends it. 1 or -1.
    R_INT Create(R_UINT uCount, R_UINT uFlags, R_UINT uThreadFlags) noexcept;
    void Destroy() noexcept; ///< no item may be queued or running, but for what is left of one after Finish()
    /// 1 or -1. Of uCount items, one that was refused is still waited for: queue it again, or else Cancel() and queue
    /// it and the others that are missing, which are counted then and not run.
    R_INT QueueItem(RVWORKITEMCALLBACK pfnCallback, void* pData) noexcept;
    void Wait() noexcept; ///< by one thread, once; does not wait where the items run on the caller's thread
    void Finish() noexcept;
    R_INT GetStatus() noexcept;
    void SetStatus(R_INT nStatus) noexcept;
    void Cancel() noexcept; ///< items not begun are not run; -100 from an item on a worker does the same
    R_INT IsCanceled() noexcept;
    R_INT IsCreated() const noexcept;
    R_INT IsThreaded() const noexcept;
    RVReaderWriterLock* GetLock() noexcept;

private:
    void RunQueued(RVWORKITEMCALLBACK pfnCallback, void* pData) noexcept;
    void EndItem() noexcept;

    R_UINT m_uFlags;
    R_INT m_bCreated;
    R_UINT m_uCount;
    volatile R_LONG m_nRunning;
    RVWaitEvent m_Done;
    R_INT m_bCancelled;
    RVReaderWriterLock m_Lock;
    R_INT m_nStatus;
    R_UINT m_uThreadFlags;
};

class R_EXPORT RVThreadPool {
public:
    virtual ~RVThreadPool();
    static R_INT QueueUserWorkItem(RAVOTHREADPROC pfnProc, void* pContext, R_UINT uFlags) noexcept; ///< 1 or -1
};

class R_EXPORT RVThreadToolsManaged {
public:
    virtual ~RVThreadToolsManaged();
    static R_UINT GetCoreCount() noexcept; ///< at least 1; counted once
};

class R_EXPORT RVThreadToolsUnmanaged {
public:
    virtual ~RVThreadToolsUnmanaged();
    static R_LONG RVInterlockedIncrement(volatile R_LONG* pnValue) noexcept; ///< the new value
    static R_LONG RVInterlockedDecrement(volatile R_LONG* pnValue) noexcept;
};

#endif
#endif
