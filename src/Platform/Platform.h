/// The one door to the operating system. It says what the kernel needs, not what an API offers; a POSIX and a Windows
/// source answer. Outside this folder no source includes a system header.
///
/// Every call goes through platform(), so that a test can put a platform that fails on cue behind the same door.
/// Nothing here throws; what can fail says so in its result.
#pragma once

#include "R_Types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace rv {

/// Memory of the system, in bytes. Limits of the process itself are taken into account.
struct MemoryStatus {
    uint64_t totalPhysical = 0;
    uint64_t availablePhysical = 0;
    uint64_t totalPageFile = 0;
    uint64_t availablePageFile = 0;
};

/// Room for one system lock; large and aligned enough for either platform's.
struct LockStorage {
    alignas(16) unsigned char bytes[64];
};

/// What the start of mapped pages is at least a multiple of.
inline constexpr size_t kPagesAlignment = 64;

/// Names one thread-local slot.
using ThreadSlot = uint32_t;

class Platform {
public:
    constexpr Platform() noexcept = default;
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    // --- Heap: what the kernel works in, and what it hands to callers.
    virtual void* allocate(size_t bytes) noexcept; ///< null without memory; bytes 0 counts as 1
    virtual void* reallocate(void* block, size_t bytes) noexcept;
    virtual void release(void* block) noexcept; ///< null is ignored

    // --- Pages: zero-filled blocks for pixels, backed by the page file, never by a named file.
    virtual void* createPages(uint64_t bytes) noexcept; ///< a handle, or null
    /// The whole block, writable, aligned to kPagesAlignment; null when it cannot be mapped.
    virtual void* mapPages(void* pages) noexcept;
    virtual void unmapPages(void* pages, void* view) noexcept;
    virtual void closePages(void* pages) noexcept;

    // --- Movable blocks: zero-filled, held by a handle, addressable while locked. A block's lock count may exceed 1.
    virtual void* allocateMovable(size_t bytes) noexcept; ///< a handle, or null
    /// For an unlocked block: new bytes are zero. Null: the block is as it was.
    virtual void* reallocateMovable(void* handle, size_t bytes) noexcept;
    virtual void* lockMovable(void* handle) noexcept; ///< the block's bytes, fixed until the last unlock
    virtual void unlockMovable(void* handle) noexcept;
    /// The handle of a block from lockMovable's address; null for memory that is no movable block.
    virtual void* movableHandle(void* locked) noexcept;
    virtual size_t movableSize(void* handle) noexcept; ///< 0 for null
    virtual void freeMovable(void* handle) noexcept;   ///< null is ignored; locked or not

    virtual MemoryStatus memoryStatus() noexcept;

    // --- Threads
    /// A slot whose values are null on every thread. atThreadEnd, where the system can tell, is given the value of a
    /// thread that ends; elsewhere the library's entry point is told.
    virtual bool createSlot(ThreadSlot* slot, void (*atThreadEnd)(void*)) noexcept;
    virtual void* slotValue(ThreadSlot slot) noexcept;
    virtual bool setSlotValue(ThreadSlot slot, void* value) noexcept;
    virtual void destroySlot(ThreadSlot slot) noexcept;

    /// A critical section: one thread at a time, and the same thread again.
    virtual void createLock(LockStorage* lock) noexcept;
    virtual void enterLock(LockStorage* lock) noexcept;
    virtual void leaveLock(LockStorage* lock) noexcept;
    virtual void destroyLock(LockStorage* lock) noexcept;

    virtual void* createEvent(bool manualReset, bool signalled) noexcept; ///< null without memory
    virtual void setEvent(void* event) noexcept;
    virtual void resetEvent(void* event) noexcept;
    virtual bool waitEvent(void* event, uint32_t milliseconds) noexcept; ///< false: the time ran out
    virtual void closeEvent(void* event) noexcept;

    virtual void sleep(uint32_t milliseconds) noexcept;
    virtual uint64_t ticks() noexcept; ///< milliseconds of a clock that never goes back
    virtual uint32_t processId() noexcept;
    virtual uint32_t threadId() noexcept; ///< the system's own id of the calling thread

    // --- Diagnostics
    virtual void debugOutput(const char* text) noexcept; ///< UTF-8 (Windows: the code page)
    virtual void debugOutputWide(const R_WCHAR* text) noexcept;
    /// Whether the user has switched the lock-count diagnostics on; asked once, when the library is attached.
    virtual bool lockCountDiagnosticsWanted() noexcept;

    // --- Palette objects of the window system
    virtual HPALETTE createPalette(const PALETTEENTRY* entries, uint32_t count) noexcept; ///< 0 to 256 entries
    virtual uint32_t paletteSize(HPALETTE palette) noexcept;
    virtual uint32_t paletteEntries(HPALETTE palette, uint32_t first, uint32_t count, PALETTEENTRY* entries) noexcept;
    virtual uint32_t setPaletteEntries(HPALETTE palette, uint32_t first, uint32_t count,
                                       const PALETTEENTRY* entries) noexcept;
    virtual void deletePalette(HPALETTE palette) noexcept;
    /// The window system's own nearest index; false where it has no rule of its own.
    virtual bool nearestPaletteIndex(HPALETTE palette, COLORREF colour, uint32_t* index) noexcept;
    /// The screen's palette, up to capacity entries; 0 where the screen has none.
    virtual uint32_t systemPalette(PALETTEENTRY* entries, uint32_t capacity) noexcept;

protected:
    ~Platform() = default; // never destroyed through the door
};

inline constexpr uint32_t kWaitForever = 0xFFFFFFFFu;

/// The system's own platform.
extern Platform& gSystemPlatform;
/// The platform in use: the system's, unless a test stands another before it.
extern std::atomic<Platform*> gPlatform;

inline Platform& platform() noexcept { return *gPlatform.load(std::memory_order_relaxed); }

} // namespace rv
