// Reader/writer locks: the system's, or a critical section where it has none.
#include "Common/Rvthreading.h"
#include "Platform/Platform.h"
#include "R_Threads.h"

namespace {

// How m_bCreated names the kind that a lock was made as.
constexpr R_INT kNone = 0;
constexpr R_INT kSlim = 1;
constexpr R_INT kSection = 2;

/// The kind that locks are made as; kNone until the first.
constinit std::atomic<R_INT> kindOfLocks{kNone};

R_INT kindOfNewLock() noexcept
{
    R_INT kind = kindOfLocks.load(std::memory_order_acquire);
    if (kind != kNone) return kind;
    const R_INT found = rv::platform().slimLocks() ? kSlim : kSection;
    return kindOfLocks.compare_exchange_strong(kind, found) ? found : kind; // whoever asked first has answered for all
}

rv::LockStorage* storageOf(unsigned char* bytes) noexcept { return reinterpret_cast<rv::LockStorage*>(bytes); }

} // namespace

void rv::forgetLockKind() noexcept { kindOfLocks.store(kNone, std::memory_order_release); }

// --- The lock

RVReaderWriterLock::RVReaderWriterLock() noexcept : m_Storage(), m_bCreated(kNone)
{
    static_assert(sizeof m_Storage == sizeof(rv::LockStorage) &&
                  alignof(RVReaderWriterLock) >= alignof(rv::LockStorage));
}

RVReaderWriterLock::RVReaderWriterLock(const RVReaderWriterLock&) noexcept : RVReaderWriterLock() {}

RVReaderWriterLock& RVReaderWriterLock::operator=(const RVReaderWriterLock& other) noexcept
{
    if (this != &other) Destroy();
    return *this;
}

RVReaderWriterLock::~RVReaderWriterLock() { Destroy(); }

R_INT RVReaderWriterLock::Create() noexcept
{
    Destroy();
    const R_INT kind = kindOfNewLock();
    if (kind == kSlim) {
        rv::platform().createSlimLock(storageOf(m_Storage));
    } else {
        rv::platform().createLock(storageOf(m_Storage));
    }
    m_bCreated = kind;
    return 1;
}

void RVReaderWriterLock::Destroy() noexcept
{
    if (m_bCreated == kSlim) rv::platform().destroySlimLock(storageOf(m_Storage));
    if (m_bCreated == kSection) rv::platform().destroyLock(storageOf(m_Storage));
    m_bCreated = kNone;
}

R_INT RVReaderWriterLock::IsCreated() const noexcept { return m_bCreated != kNone; }

void RVReaderWriterLock::Enter(R_INT bReader) noexcept
{
    if (m_bCreated == kSlim) rv::platform().enterSlimLock(storageOf(m_Storage), bReader != 0);
    if (m_bCreated == kSection) rv::platform().enterLock(storageOf(m_Storage));
}

void RVReaderWriterLock::Leave(R_INT bReader) noexcept
{
    if (m_bCreated == kSlim) rv::platform().leaveSlimLock(storageOf(m_Storage), bReader != 0);
    if (m_bCreated == kSection) rv::platform().leaveLock(storageOf(m_Storage));
}

RVReaderWriterLockItem RVReaderWriterLock::AcquireReaderLock() noexcept { return AcquireReaderLock(1); }
RVReaderWriterLockItem RVReaderWriterLock::AcquireWriterLock() noexcept { return AcquireWriterLock(1); }

RVReaderWriterLockItem RVReaderWriterLock::AcquireReaderLock(int doLock) noexcept
{
    if (doLock == 0 || m_bCreated == kNone) return {nullptr, 1};
    Enter(1);
    return {this, 1};
}

RVReaderWriterLockItem RVReaderWriterLock::AcquireWriterLock(int doLock) noexcept
{
    if (doLock == 0 || m_bCreated == kNone) return {nullptr, 0};
    Enter(0);
    return {this, 0};
}

RVReaderWriterLockItem RVReaderWriterLock::Acquire(RVReaderWriterLock* pLock, int reader) noexcept
{
    if (pLock == nullptr) return {nullptr, 0};
    return reader != 0 ? pLock->AcquireReaderLock() : pLock->AcquireWriterLock();
}

void RVReaderWriterLock::Lock() noexcept { Enter(0); }
void RVReaderWriterLock::Unlock() noexcept { Leave(0); }

// --- Its holder

RVReaderWriterLockItem::RVReaderWriterLockItem() noexcept : m_pLock(nullptr), m_bReader(0) {}

RVReaderWriterLockItem::RVReaderWriterLockItem(RVReaderWriterLock* pLock, R_INT bReader) noexcept
    : m_pLock(pLock), m_bReader(bReader)
{
}

RVReaderWriterLockItem::RVReaderWriterLockItem(const RVReaderWriterLockItem& other) noexcept
    : m_pLock(other.m_pLock), m_bReader(other.m_bReader)
{
    other.m_pLock = nullptr;
}

RVReaderWriterLockItem& RVReaderWriterLockItem::operator=(const RVReaderWriterLockItem& other) noexcept
{
    if (this == &other) return *this;
    Release();
    m_pLock = other.m_pLock;
    m_bReader = other.m_bReader;
    other.m_pLock = nullptr;
    return *this;
}

RVReaderWriterLockItem::~RVReaderWriterLockItem() { Release(); }

void RVReaderWriterLockItem::Release() noexcept
{
    if (m_pLock != nullptr) m_pLock->Leave(m_bReader); // a lock destroyed meanwhile has nothing to leave
    m_pLock = nullptr;
}
