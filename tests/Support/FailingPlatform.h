/// A platform that stands before the system's for the whole test process: it counts what is alive, fails the n-th
/// call on cue, and can pretend another memory, clock or switch. Tests use the scoped objects below, not the class.
/// Everything may be used from several threads; of each scoped object at most one is alive at a time.
#pragma once

#include "Platform/Platform.h"

#include <atomic>
#include <string>
#include <vector>

namespace rv::test {

/// Kinds of calls that can be made to fail; a set of bits.
enum FailKind : unsigned {
    kFailHeap = 1,     ///< allocate, reallocate
    kFailMovable = 2,  ///< allocateMovable, reallocateMovable
    kFailPages = 4,    ///< createPages, mapPages
    kFailObjects = 8,  ///< createEvent, createPalette
    kFailSlots = 16,   ///< createSlot, setSlotValue
    kFailLocking = 32, ///< lockMovable
    kFailAllocations = kFailHeap | kFailMovable | kFailPages | kFailObjects,
};

/// From construction to destruction the nth call (from 1) of the given kinds fails, once, on whichever thread.
class FailingAllocation {
public:
    explicit FailingAllocation(int nth, unsigned kinds = kFailAllocations);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    /// Whether the call has been reached. A loop over nth ends when it has not.
    bool happened() const;
};

/// From construction to destruction every call of the given kinds fails.
class NoMemory {
public:
    explicit NoMemory(unsigned kinds = kFailAllocations);
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

/// What is alive, by kind.
struct LiveCounts {
    int heap = 0;
    int movable = 0;
    int locks = 0; ///< locks of movable blocks that have not been undone
    int pages = 0;
    int views = 0;
    int objects = 0; ///< events and palettes
    int slots = 0;
    int systemLocks = 0; ///< made on first use and given back at detach, so no leak of an operation: not in count()
};

/// What has come to life since construction and still is. Any number of these may be alive.
///     EXPECT_EQ(live.count(), 0) << live.text();
class LiveBlocks {
public:
    LiveBlocks();
    LiveCounts counts() const;
    int count() const; ///< how far the kinds are from the start, added up; 0 when nothing leaked or was freed twice
    std::string text() const;

private:
    LiveCounts start_;
};

/// The system's memory, as placement decisions see it.
class PretendMemory {
public:
    explicit PretendMemory(const MemoryStatus& status);
    ~PretendMemory();
    PretendMemory(const PretendMemory&) = delete;
    PretendMemory& operator=(const PretendMemory&) = delete;
};

/// A clock that stands still until it is set.
class PretendTicks {
public:
    explicit PretendTicks(uint64_t milliseconds);
    ~PretendTicks();
    PretendTicks(const PretendTicks&) = delete;
    PretendTicks& operator=(const PretendTicks&) = delete;
    void set(uint64_t milliseconds);
};

/// The user's switch of the lock-count diagnostics, as attach() sees it.
class PretendDiagnostics {
public:
    explicit PretendDiagnostics(bool wanted);
    ~PretendDiagnostics();
    PretendDiagnostics(const PretendDiagnostics&) = delete;
    PretendDiagnostics& operator=(const PretendDiagnostics&) = delete;
};

/// One call of the debugger output.
struct DebugLine {
    std::string text; ///< UTF-8
    bool wide = false;
};

/// Keeps the debugger output instead of letting it out.
class DebugCapture {
public:
    DebugCapture();
    ~DebugCapture();
    DebugCapture(const DebugCapture&) = delete;
    DebugCapture& operator=(const DebugCapture&) = delete;
    std::vector<DebugLine> lines() const;
    std::string text() const; ///< all lines together
};

/// Stands the counting platform before the system's; the objects above do it too. Harmless when done twice.
void installTestPlatform();

} // namespace rv::test
