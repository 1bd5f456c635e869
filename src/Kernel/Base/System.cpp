#include "Kernel/Base/System.h"

#include "Common/Rvthreading.h"
#include "Internal/R_Int.h"
#include "Kernel/Pixels/Simd/Select.h"

#include <new>

namespace rv {
namespace {

// --- Objects made on first use

// How far such an object is. There is nothing yet that could make a thread wait properly: the others look again every
// millisecond.
constexpr int kNotMade = 0;
constexpr int kBeingMade = 1;
constexpr int kReady = 2;
constexpr int kCannotBe = 3;

/// Whether the object is there, after making it where nobody has: make() says whether it could.
template <class Make> bool readyAfter(std::atomic<int>& state, Make make) noexcept
{
    int seen = state.load(std::memory_order_acquire);
    while (seen < kReady) {
        if (seen == kBeingMade) {
            platform().sleep(1);
            seen = state.load(std::memory_order_acquire);
        } else if (state.compare_exchange_strong(seen, kBeingMade, std::memory_order_acquire)) {
            seen = make() ? kReady : kCannotBe;
            state.store(seen, std::memory_order_release);
        }
    }
    return seen == kReady;
}

constinit std::atomic<LazyLock*> locksMade{nullptr};
constinit std::atomic<ReleaseAtDetach*> toRelease{nullptr};

// --- The settings of threads

struct SettingsBlock {
    ThreadSettings settings;
    SettingsBlock* previous = nullptr;
    SettingsBlock* next = nullptr;
};

struct ThreadStore {
    std::atomic<int> slotState{kNotMade};
    ThreadSlot slot = 0;
    LazyLock lock; // the list's
    SettingsBlock* first = nullptr;
    /// Serves every thread that can have no block. Not locked: such threads share it as it is.
    SettingsBlock shared;
};
constinit ThreadStore threads;

bool slotReady() noexcept
{
    return readyAfter(threads.slotState, []() noexcept { return platform().createSlot(&threads.slot, &threadEnded); });
}

/// A block in the list; null without memory.
SettingsBlock* makeBlock() noexcept
{
    void* const memory = platform().allocate(sizeof(SettingsBlock));
    if (memory == nullptr) return nullptr;
    auto* const block = new (memory) SettingsBlock;
    const LockGuard guard(threads.lock);
    block->next = threads.first;
    if (block->next != nullptr) block->next->previous = block;
    threads.first = block;
    return block;
}

void freeBlock(SettingsBlock* block) noexcept
{
    {
        const LockGuard guard(threads.lock);
        (block->previous != nullptr ? block->previous->next : threads.first) = block->next;
        if (block->next != nullptr) block->next->previous = block->previous;
    }
    platform().release(block);
}

/// The block that a thread keeps from now on. One that was refused memory once keeps the shared block: what it has
/// set must not vanish because there is memory later.
SettingsBlock& firstBlock() noexcept
{
    if (!slotReady()) return threads.shared;
    SettingsBlock* const block = makeBlock();
    if (block == nullptr) {
        platform().setSlotValue(threads.slot, &threads.shared);
        return threads.shared;
    }
    if (!platform().setSlotValue(threads.slot, block)) {
        freeBlock(block);
        return threads.shared;
    }
    return *block;
}

void freeAllBlocks() noexcept
{
    while (SettingsBlock* const block = threads.first) {
        threads.first = block->next;
        platform().release(block);
    }
    threads.shared.settings = ThreadSettings();
}

constinit std::atomic<bool> traceLockCounts{false};

} // namespace

void LazyLock::enter() noexcept
{
    (void)readyAfter(state_, [this]() noexcept {
        platform().createLock(&storage_);
        next_ = locksMade.load(std::memory_order_relaxed);
        while (!locksMade.compare_exchange_weak(next_, this, std::memory_order_acq_rel)) {}
        return true;
    });
    platform().enterLock(&storage_);
}

void LazyLock::leave() noexcept { platform().leaveLock(&storage_); }

void ReleaseAtDetach::registerOnce() noexcept
{
    if (registered_.exchange(true, std::memory_order_acq_rel)) return;
    next_ = toRelease.load(std::memory_order_relaxed);
    while (!toRelease.compare_exchange_weak(next_, this, std::memory_order_acq_rel)) {}
}

ThreadSettings& threadSettings() noexcept
{
    auto* const block = static_cast<SettingsBlock*>(currentThreadBlock());
    return block != nullptr ? block->settings : firstBlock().settings;
}

void* currentThreadBlock() noexcept
{
    return threads.slotState.load(std::memory_order_acquire) == kReady ? platform().slotValue(threads.slot) : nullptr;
}

void threadEnded(void* threadBlock) noexcept
{
    if (threadBlock == nullptr || threadBlock == &threads.shared) return;
    platform().setSlotValue(threads.slot, nullptr); // what else ends with the thread may still call the kernel
    freeBlock(static_cast<SettingsBlock*>(threadBlock));
}

void attach() noexcept
{
    traceLockCounts.store(platform().lockCountDiagnosticsWanted(), std::memory_order_relaxed);
    selectRowKernels();
}

void detach() noexcept
{
    platform().endWork(); // what still runs uses all that follows
    for (ReleaseAtDetach* object = toRelease.exchange(nullptr); object != nullptr;) {
        ReleaseAtDetach* const next = object->next_;
        object->next_ = nullptr;
        object->registered_.store(false, std::memory_order_release);
        object->release_();
        object = next;
    }
    // The slot goes first: a thread that ends later must not be sent into code that is no longer there.
    if (threads.slotState.exchange(kNotMade) == kReady) platform().destroySlot(threads.slot);
    freeAllBlocks();
    releaseThreading();
    for (LazyLock* lock = locksMade.exchange(nullptr); lock != nullptr;) {
        LazyLock* const next = lock->next_;
        platform().destroyLock(&lock->storage_);
        lock->next_ = nullptr;
        lock->state_.store(kNotMade, std::memory_order_release);
        lock = next;
    }
}

bool lockCountDiagnostics() noexcept { return traceLockCounts.load(std::memory_order_relaxed); }

Status checkStarted() noexcept { return SUCCESS; }
Status checkLicence(Feature) noexcept { return SUCCESS; }

} // namespace rv

// Nothing is pending from start-up: what the library needs is made on first use.
R_INT R_IntFlushStartupBuffers(R_UINT) noexcept { return SUCCESS; }

void R_HeapTerm(void* pArray) noexcept { rv::platform().release(pArray); }
