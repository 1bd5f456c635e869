#include "Support/FailingPlatform.h"

#include <cstdlib>
#include <mutex>
#include <sstream>
#include <unordered_map>

namespace rv::test {
namespace {

/// Appends one code point as UTF-8.
void appendUtf8(std::string& text, uint32_t point)
{
    const auto put = [&](uint32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | point >> 6);
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | point >> 12);
        put(0x80 | (point >> 6 & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | point >> 18);
        put(0x80 | (point >> 12 & 0x3F));
        put(0x80 | (point >> 6 & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

std::string toUtf8(const R_WCHAR* wide)
{
    std::string text;
    for (; *wide != 0; ++wide) {
        const uint32_t unit = *wide;
        const uint32_t next = wide[1];
        if (unit >= 0xD800 && unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            appendUtf8(text, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
            ++wide;
        } else {
            appendUtf8(text, unit);
        }
    }
    return text;
}

/// Which call is to fail next. Counts down to 0; kinds 0 is idle.
class Fuse {
public:
    void arm(unsigned kinds, int nth)
    {
        const std::lock_guard hold(mutex_);
        if (kinds_ != 0) std::abort(); // two at a time would not know whose turn it is
        kinds_ = kinds;
        left_ = nth;
        happened_ = false;
    }
    void disarm()
    {
        const std::lock_guard hold(mutex_);
        kinds_ = 0;
    }
    bool happened() const
    {
        const std::lock_guard hold(mutex_);
        return happened_;
    }
    /// Whether this call is the one.
    bool blows(unsigned kind)
    {
        const std::lock_guard hold(mutex_);
        if ((kinds_ & kind) == 0) return false;
        if (left_ != kEvery && --left_ != 0) return false;
        happened_ = true;
        return true;
    }
    static constexpr int kEvery = -1;

private:
    mutable std::mutex mutex_;
    unsigned kinds_ = 0;
    int left_ = 0;
    bool happened_ = false;
};

class FailingPlatform final : public Platform {
public:
    Fuse fuse;
    Fuse drought;

    LiveCounts counts() const
    {
        const std::lock_guard hold(mutex_);
        return live_;
    }

    template <class Value> struct Pretended {
        bool on = false;
        Value value{};
    };
    template <class Value> void pretend(Pretended<Value>& what, bool on, const Value& value)
    {
        const std::lock_guard hold(mutex_);
        what.on = on;
        what.value = value;
    }
    Pretended<MemoryStatus> memory;
    Pretended<uint64_t> clock;
    Pretended<bool> diagnostics;
    Pretended<std::vector<DebugLine>> debug;
    std::vector<DebugLine> debugLines() const
    {
        const std::lock_guard hold(mutex_);
        return debug.value;
    }

    void* allocate(size_t bytes) noexcept override
    {
        return fails(kFailHeap) ? nullptr : born(&LiveCounts::heap, Platform::allocate(bytes));
    }
    void* reallocate(void* block, size_t bytes) noexcept override
    {
        if (fails(kFailHeap)) return nullptr;
        void* const moved = Platform::reallocate(block, bytes);
        return block == nullptr ? born(&LiveCounts::heap, moved) : moved;
    }
    void release(void* block) noexcept override
    {
        Platform::release(block);
        if (block != nullptr) died(&LiveCounts::heap);
    }

    void* createPages(uint64_t bytes) noexcept override
    {
        return fails(kFailPages) ? nullptr : born(&LiveCounts::pages, Platform::createPages(bytes));
    }
    void* mapPages(void* pages) noexcept override
    {
        return fails(kFailPages) ? nullptr : born(&LiveCounts::views, Platform::mapPages(pages));
    }
    void unmapPages(void* pages, void* view) noexcept override
    {
        Platform::unmapPages(pages, view);
        if (view != nullptr) died(&LiveCounts::views);
    }
    void closePages(void* pages) noexcept override
    {
        Platform::closePages(pages);
        if (pages != nullptr) died(&LiveCounts::pages);
    }

    void* allocateMovable(size_t bytes) noexcept override
    {
        return fails(kFailMovable) ? nullptr : born(&LiveCounts::movable, Platform::allocateMovable(bytes));
    }
    void* reallocateMovable(void* handle, size_t bytes) noexcept override
    {
        return fails(kFailMovable) ? nullptr : Platform::reallocateMovable(handle, bytes);
    }
    void* lockMovable(void* handle) noexcept override
    {
        if (fails(kFailLocking)) return nullptr;
        void* const address = Platform::lockMovable(handle);
        if (address != nullptr) {
            const std::lock_guard hold(mutex_);
            ++locks_[handle];
            ++live_.locks;
        }
        return address;
    }
    void unlockMovable(void* handle) noexcept override
    {
        Platform::unlockMovable(handle);
        const std::lock_guard hold(mutex_);
        --locks_[handle]; // below zero, for an unlock too many, stays in the count
        --live_.locks;
    }
    void freeMovable(void* handle) noexcept override
    {
        {
            const std::lock_guard hold(mutex_);
            if (const auto found = locks_.find(handle); found != locks_.end()) {
                if (found->second > 0) live_.locks -= found->second; // a lock ends with its block
                locks_.erase(found);
            }
        }
        Platform::freeMovable(handle);
        if (handle != nullptr) died(&LiveCounts::movable);
    }

    MemoryStatus memoryStatus() noexcept override
    {
        {
            const std::lock_guard hold(mutex_);
            if (memory.on) return memory.value;
        }
        return Platform::memoryStatus();
    }

    bool createSlot(ThreadSlot* slot, void (*atThreadEnd)(void*)) noexcept override
    {
        if (fails(kFailSlots) || !Platform::createSlot(slot, atThreadEnd)) return false;
        const std::lock_guard hold(mutex_);
        ++live_.slots;
        return true;
    }
    bool setSlotValue(ThreadSlot slot, void* value) noexcept override
    {
        return !fails(kFailSlots) && Platform::setSlotValue(slot, value);
    }
    void destroySlot(ThreadSlot slot) noexcept override
    {
        Platform::destroySlot(slot);
        died(&LiveCounts::slots);
    }

    void createLock(LockStorage* lock) noexcept override
    {
        Platform::createLock(lock);
        born(&LiveCounts::systemLocks, lock);
    }
    void destroyLock(LockStorage* lock) noexcept override
    {
        Platform::destroyLock(lock);
        died(&LiveCounts::systemLocks);
    }

    void* createEvent(bool manualReset, bool signalled) noexcept override
    {
        return fails(kFailObjects) ? nullptr
                                   : born(&LiveCounts::objects, Platform::createEvent(manualReset, signalled));
    }
    void closeEvent(void* event) noexcept override
    {
        Platform::closeEvent(event);
        if (event != nullptr) died(&LiveCounts::objects);
    }

    HPALETTE createPalette(const PALETTEENTRY* entries, uint32_t count) noexcept override
    {
        if (fails(kFailObjects)) return nullptr;
        const HPALETTE palette = Platform::createPalette(entries, count);
        born(&LiveCounts::objects, palette);
        return palette;
    }
    void deletePalette(HPALETTE palette) noexcept override
    {
        Platform::deletePalette(palette);
        if (palette != nullptr) died(&LiveCounts::objects);
    }

    uint64_t ticks() noexcept override
    {
        {
            const std::lock_guard hold(mutex_);
            if (clock.on) return clock.value;
        }
        return Platform::ticks();
    }

    void debugOutput(const char* text) noexcept override
    {
        if (!captured({text, false})) Platform::debugOutput(text);
    }
    void debugOutputWide(const R_WCHAR* text) noexcept override
    {
        if (!captured({toUtf8(text), true})) Platform::debugOutputWide(text);
    }
    bool lockCountDiagnosticsWanted() noexcept override
    {
        {
            const std::lock_guard hold(mutex_);
            if (diagnostics.on) return diagnostics.value;
        }
        return Platform::lockCountDiagnosticsWanted();
    }

private:
    bool fails(unsigned kind) { return fuse.blows(kind) || drought.blows(kind); }

    void* born(int LiveCounts::*kind, void* block)
    {
        if (block != nullptr) {
            const std::lock_guard hold(mutex_);
            ++(live_.*kind);
        }
        return block;
    }
    void died(int LiveCounts::*kind)
    {
        const std::lock_guard hold(mutex_);
        --(live_.*kind);
    }
    bool captured(DebugLine line)
    {
        const std::lock_guard hold(mutex_);
        if (debug.on) debug.value.push_back(std::move(line));
        return debug.on;
    }

    mutable std::mutex mutex_;
    LiveCounts live_;
    std::unordered_map<void*, int> locks_;
};

FailingPlatform& tested()
{
    // Never destroyed: objects of static life may still free through it.
    static FailingPlatform& instance = *[] {
        auto* const made = new FailingPlatform;
        gPlatform.store(made);
        return made;
    }();
    return instance;
}

} // namespace

void installTestPlatform() { tested(); }

FailingAllocation::FailingAllocation(int nth, unsigned kinds) { tested().fuse.arm(kinds, nth); }
FailingAllocation::~FailingAllocation() { tested().fuse.disarm(); }
bool FailingAllocation::happened() const { return tested().fuse.happened(); }

NoMemory::NoMemory(unsigned kinds) { tested().drought.arm(kinds, Fuse::kEvery); }
NoMemory::~NoMemory() { tested().drought.disarm(); }

LiveBlocks::LiveBlocks() : start_(tested().counts()) {}

LiveCounts LiveBlocks::counts() const
{
    const LiveCounts now = tested().counts();
    return {now.heap - start_.heap,   now.movable - start_.movable,
            now.locks - start_.locks, now.pages - start_.pages,
            now.views - start_.views, now.objects - start_.objects,
            now.slots - start_.slots, now.systemLocks - start_.systemLocks};
}

int LiveBlocks::count() const
{
    const LiveCounts c = counts();
    int sum = 0;
    for (const int kind : {c.heap, c.movable, c.locks, c.pages, c.views, c.objects, c.slots}) sum += std::abs(kind);
    return sum;
}

std::string LiveBlocks::text() const
{
    const LiveCounts c = counts();
    std::ostringstream text;
    text << "alive since: heap " << c.heap << ", movable " << c.movable << ", locks " << c.locks << ", pages "
         << c.pages << ", views " << c.views << ", objects " << c.objects << ", slots " << c.slots;
    return text.str();
}

PretendMemory::PretendMemory(const MemoryStatus& status) { tested().pretend(tested().memory, true, status); }
PretendMemory::~PretendMemory() { tested().pretend(tested().memory, false, {}); }

PretendTicks::PretendTicks(uint64_t milliseconds) { set(milliseconds); }
PretendTicks::~PretendTicks() { tested().pretend(tested().clock, false, uint64_t{0}); }
void PretendTicks::set(uint64_t milliseconds) { tested().pretend(tested().clock, true, milliseconds); }

PretendDiagnostics::PretendDiagnostics(bool wanted) { tested().pretend(tested().diagnostics, true, wanted); }
PretendDiagnostics::~PretendDiagnostics() { tested().pretend(tested().diagnostics, false, false); }

DebugCapture::DebugCapture() { tested().pretend(tested().debug, true, {}); }
DebugCapture::~DebugCapture() { tested().pretend(tested().debug, false, {}); }
std::vector<DebugLine> DebugCapture::lines() const { return tested().debugLines(); }

std::string DebugCapture::text() const
{
    std::string all;
    for (const DebugLine& line : lines()) all += line.text;
    return all;
}

} // namespace rv::test
