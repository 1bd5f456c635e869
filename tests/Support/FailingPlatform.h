/// A platform that stands before the system's for the whole test process: it counts what is alive, fails the n-th
/// call on cue, and can pretend another memory, clock or switch. Tests use the scoped objects below, not the class.
/// Everything may be used from several threads; of each scoped object at most one is alive at a time.
#pragma once

#include "Platform/Platform.h"

#include <array>
#include <string>
#include <vector>

namespace rv::test {

/// Kinds of calls that can be made to fail; a set of bits.
enum FailKind : unsigned {
    kFailHeap = 1,          ///< allocate, reallocate
    kFailMovable = 2,       ///< allocateMovable, reallocateMovable
    kFailPages = 4,         ///< createPages, mapPages
    kFailObjects = 8,       ///< createEvent, createPalette
    kFailSlots = 16,        ///< createSlot, setSlotValue
    kFailLocking = 32,      ///< lockMovable
    kFailThreads = 64,      ///< startThread, queueWork
    kFailWaits = 128,       ///< waitEvent
    kFailOpen = 0x100,      ///< openFile: too many open files
    kFailScratch = 0x200,   ///< openScratchFile, resizeScratchFile: the disk is full
    kFailRead = 0x400,      ///< readFile, readFileAt: a device that does not work
    kFailWrite = 0x800,     ///< writeFile: the disk is full
    kFailPlaced = 0x1000,   ///< writeFileAt: the disk is full
    kShortWrite = 0x2000,   ///< writeFile moves half of what it is given
    kFailSeek = 0x4000,     ///< seekFile: a device that does not work
    kFailEnd = 0x8000,      ///< endFileHere: the disk is full
    kFailClose = 0x10000,   ///< closeFile closes, and says that the disk is full
    kFailNames = 0x20000,   ///< deleteFile, moveFile: access denied
    kFailModules = 0x40000, ///< loadModule, loadModuleFrom for want of memory, libraryFolder
    kFailMapping = 0x80000, ///< mapFile: no room among the addresses
    kFailFiles = kFailOpen | kFailScratch | kFailRead | kFailWrite | kFailPlaced | kFailSeek | kFailEnd | kFailClose |
                 kFailNames | kFailMapping,
    kFailAllocations = kFailHeap | kFailMovable | kFailPages | kFailObjects,
};

class Scoped {
public:
    Scoped() = default;
    Scoped(const Scoped&) = delete;
    Scoped& operator=(const Scoped&) = delete;
};

/// From construction to destruction the nth call (from 1) of the given kinds fails, once, on whichever thread.
struct FailingAllocation : Scoped {
    explicit FailingAllocation(int nth, unsigned kinds = kFailAllocations);
    ~FailingAllocation();
    /// Whether the call has been reached. A loop over nth ends when it has not.
    bool happened() const;
};

/// From construction to destruction every call of the given kinds fails.
struct NoMemory : Scoped {
    explicit NoMemory(unsigned kinds = kFailAllocations);
    ~NoMemory();
};

/// What can be alive. Files are those that were opened through the door; locks are those of movable blocks that have
/// not been undone, objects are events and palettes, views are of pages and of files. System locks are made on first
/// use and given back at detach: no leak of an operation.
enum LiveKind {
    kHeap,
    kMovable,
    kLocks,
    kPages,
    kViews,
    kObjects,
    kSlots,
    kFiles,
    kModules,
    kLeaks,
    kSystemLocks = kLeaks,
    kLiveKinds
};
using LiveCounts = std::array<int, kLiveKinds>;

/// What has come to life since construction and still is. Any number of these may be alive.
///     EXPECT_EQ(live.count(), 0) << live.text();
class LiveBlocks {
public:
    LiveBlocks();
    int count(LiveKind kind) const;
    int count() const; ///< how far the kinds are from the start, added up; 0 when nothing leaked or was freed twice
    std::string text() const;

private:
    LiveCounts start_;
};

/// Bytes of the heap that have been asked for since construction, given back or not.
class AskedMemory {
public:
    AskedMemory();
    size_t bytes() const;

private:
    size_t start_;
};

/// The system's memory, as placement decisions see it.
struct PretendMemory : Scoped {
    explicit PretendMemory(const MemoryStatus& status);
    ~PretendMemory();
};

/// A clock that stands still until it is set.
struct PretendTicks : Scoped {
    explicit PretendTicks(uint64_t milliseconds);
    ~PretendTicks();
    void set(uint64_t milliseconds);
};

/// The user's switch of the lock-count diagnostics, as attach() sees it.
struct PretendDiagnostics : Scoped {
    explicit PretendDiagnostics(bool wanted);
    ~PretendDiagnostics();
};

/// Whether the system has reader/writer locks, and how many cores, as the threading tools find out.
struct PretendLocks : Scoped {
    explicit PretendLocks(bool slim);
    ~PretendLocks();
};
struct PretendCores : Scoped {
    explicit PretendCores(uint32_t cores);
    ~PretendCores();
};

/// One call of the debugger output.
struct DebugLine {
    std::string text; ///< UTF-8
    bool wide = false;
};

/// Keeps the debugger output instead of letting it out.
struct DebugCapture : Scoped {
    DebugCapture();
    ~DebugCapture();
    std::vector<DebugLine> lines() const;
    std::string text() const; ///< all lines together
};

/// Stands the counting platform before the system's; the objects above do it too. Harmless when done twice.
void installTestPlatform();

} // namespace rv::test
