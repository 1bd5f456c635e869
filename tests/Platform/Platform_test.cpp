// What the kernel may rely on, asked of the system's own door on either platform.
#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <utility>
#include <vector>

using rv::gSystemPlatform;
using rv::LockStorage;
using rv::ThreadSlot;

namespace {

constexpr uint64_t kMiB = 1 << 20;

bool allZero(const void* bytes, size_t count)
{
    const auto* const first = static_cast<const uint8_t*>(bytes);
    return std::all_of(first, first + count, [](uint8_t byte) { return byte == 0; });
}

// Small, below and above the bound where POSIX changes over, with and without a huge page's worth at the end.
TEST(PlatformPages, AreZeroFreshEachTimeAndKeepTheirBytes)
{
    for (const uint64_t bytes :
         {uint64_t{1}, uint64_t{4097}, kMiB - 1, kMiB, kMiB + 31, 3 * kMiB, 3 * kMiB + 5, 9 * kMiB}) {
        for (int round = 0; round < 2; ++round) { // the second may be given the memory of the first
            void* const pages = gSystemPlatform.createPages(bytes);
            for (const int kept : {0, 0xA5}) {
                auto* const view = static_cast<uint8_t*>(gSystemPlatform.mapPages(pages));
                ASSERT_NE(view, nullptr) << bytes;
                EXPECT_EQ(reinterpret_cast<uintptr_t>(view) % rv::kPagesAlignment, 0u) << bytes;
                EXPECT_EQ(std::count(view, view + bytes, kept), static_cast<int64_t>(bytes));
                std::memset(view, 0xA5, bytes);
                gSystemPlatform.unmapPages(pages, view);
            }
            gSystemPlatform.closePages(pages);
        }
    }
    for (const uint64_t bytes : {UINT64_MAX, UINT64_MAX / 2, uint64_t{1} << 62})
        EXPECT_EQ(gSystemPlatform.createPages(bytes), nullptr) << bytes;
}

TEST(PlatformMovable, MovesOnlyWhileNobodyHasLockedIt)
{
    void* const handle = gSystemPlatform.allocateMovable(8);
    void* address = gSystemPlatform.lockMovable(handle);
    ASSERT_NE(address, nullptr);
    EXPECT_TRUE(allZero(address, 8));
    std::memset(address, 0x77, 8);
    EXPECT_EQ(gSystemPlatform.lockMovable(handle), address); // nested
    for (int unlocks = 0; unlocks < 2; ++unlocks) {
        EXPECT_EQ(gSystemPlatform.reallocateMovable(handle, 16), nullptr);
        gSystemPlatform.unlockMovable(handle);
    }
    gSystemPlatform.unlockMovable(handle); // one too many does no harm
    for (const size_t bytes : {size_t{100000}, size_t{4}, size_t{64}}) {
        ASSERT_EQ(gSystemPlatform.reallocateMovable(handle, bytes), handle);
        EXPECT_EQ(gSystemPlatform.movableSize(handle), bytes);
    }
    EXPECT_EQ(gSystemPlatform.reallocateMovable(handle, SIZE_MAX / 2), nullptr);
    address = gSystemPlatform.lockMovable(handle);
    EXPECT_EQ(gSystemPlatform.movableHandle(address), handle);
    EXPECT_EQ(std::memcmp(address, "\x77\x77\x77\x77", 4), 0);
    EXPECT_TRUE(allZero(static_cast<uint8_t*>(address) + 4, 60)); // what had been cut off does not come back
    gSystemPlatform.freeMovable(handle);                          // locked as it is
    EXPECT_EQ(gSystemPlatform.movableHandle(address), nullptr);
    // Records carry addresses that their callers can have put there.
    alignas(16) std::array<uint8_t, 64> foreign{};
    EXPECT_EQ(gSystemPlatform.movableHandle(foreign.data()), nullptr);
    EXPECT_EQ(gSystemPlatform.allocateMovable(SIZE_MAX), nullptr);
}

TEST(PlatformMovable, FindsEachOfManyOnSeveralThreads)
{
    const auto churn = [](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<std::pair<void*, void*>> blocks(6000); // handle, address
        for (auto& [handle, address] : blocks) {
            handle = gSystemPlatform.allocateMovable(1 + random() % 64);
            address = gSystemPlatform.lockMovable(handle);
        }
        std::shuffle(blocks.begin(), blocks.end(), random);
        for (const auto& [handle, address] : blocks) {
            ASSERT_EQ(gSystemPlatform.movableHandle(address), handle) << "seed " << seed;
            gSystemPlatform.freeMovable(handle);
        }
    };
    std::thread one(churn, 1), two(churn, 2);
    churn(3);
    one.join();
    two.join();
}

std::atomic<void*> endedWith{nullptr};

TEST(PlatformSlots, AreNullOnEveryThreadAndTellTheirThreadsEnd)
{
    ThreadSlot slot, other;
    ASSERT_TRUE(gSystemPlatform.createSlot(&slot, [](void* value) { endedWith = value; }));
    ASSERT_TRUE(gSystemPlatform.createSlot(&other, nullptr));
    int here = 0, there = 0;
    ASSERT_TRUE(gSystemPlatform.setSlotValue(slot, &here));
    std::atomic<int> stage{0};
    const auto live = [&] {
        EXPECT_EQ(gSystemPlatform.slotValue(slot), nullptr);
        ASSERT_TRUE(gSystemPlatform.setSlotValue(slot, &there));
        EXPECT_EQ(gSystemPlatform.slotValue(slot), &there);
        EXPECT_EQ(gSystemPlatform.slotValue(other), nullptr);
        for (++stage; stage == 2;) gSystemPlatform.sleep(1);
    };
    std::thread(live).join();
    EXPECT_EQ(gSystemPlatform.slotValue(slot), &here);
#if !defined(_WIN32) // there the entry point of a library is told, and not the slot
    EXPECT_EQ(endedWith, &there);
#endif

    // After its slot is gone, a thread's end is nobody's business any more.
    endedWith = nullptr;
    std::thread living(live);
    while (stage != 2) gSystemPlatform.sleep(1);
    gSystemPlatform.destroySlot(slot);
    gSystemPlatform.destroySlot(other);
    stage = 3;
    living.join();
    EXPECT_EQ(endedWith, nullptr);
}

TEST(PlatformLocks, LetOneThreadInAndThatOneAgain)
{
    LockStorage lock;
    gSystemPlatform.createLock(&lock);
    int count = 0;
    const auto add = [&](int times) {
        for (int i = 0; i < times; ++i) {
            gSystemPlatform.enterLock(&lock);
            ++count;
            gSystemPlatform.leaveLock(&lock);
        }
    };
    std::thread one(add, 20000), two(add, 20000);
    one.join();
    two.join();
    EXPECT_EQ(count, 40000);

    gSystemPlatform.enterLock(&lock);
    gSystemPlatform.enterLock(&lock);
    std::thread third(add, 1);
    gSystemPlatform.leaveLock(&lock);
    gSystemPlatform.sleep(30);
    EXPECT_EQ(count, 40000); // left once, entered twice
    gSystemPlatform.leaveLock(&lock);
    third.join();
    EXPECT_EQ(count, 40001);
    gSystemPlatform.destroyLock(&lock);
}

// Automatic or manual, with one or all of its waiters woken.
TEST(PlatformEvents, RememberTheirSignalAsTheyWereMade)
{
    for (const bool manual : {false, true}) {
        void* const event = gSystemPlatform.createEvent(manual, true);
        ASSERT_NE(event, nullptr);
        for (int signal = 0; signal < 2; ++signal) {
            EXPECT_EQ(gSystemPlatform.waitEvent(event, signal != 0 ? rv::kWaitForever : 0), rv::Waited::signalled);
            EXPECT_EQ(gSystemPlatform.waitEvent(event, 0), // the first wait took the signal
                      manual ? rv::Waited::signalled : rv::Waited::timedOut);
            gSystemPlatform.setEvent(event);
            gSystemPlatform.setEvent(event); // two signals are one
        }
        gSystemPlatform.resetEvent(event);
        const uint64_t before = gSystemPlatform.ticks();
        EXPECT_EQ(gSystemPlatform.waitEvent(event, 40), rv::Waited::timedOut);
        EXPECT_GE(gSystemPlatform.ticks() - before, 30u); // the clock may tick in steps of 10 and more

        std::atomic<int> awake{0};
        const auto wait = [&] {
            awake += gSystemPlatform.waitEvent(event, rv::kWaitForever) == rv::Waited::signalled ? 1 : 100;
        };
        std::thread one(wait), two(wait);
        for (int waking = 0; waking < (manual ? 1 : 2); ++waking) {
            gSystemPlatform.sleep(20);
            EXPECT_EQ(awake, waking);
            gSystemPlatform.setEvent(event);
            while (awake <= waking) gSystemPlatform.sleep(1);
        }
        one.join();
        two.join();
        EXPECT_EQ(awake, 2);
        gSystemPlatform.closeEvent(event);
    }
}

TEST(Platform, HasThreadsAClockAndMemory)
{
    const uint32_t here = gSystemPlatform.threadId();
    std::thread([here] { EXPECT_NE(gSystemPlatform.threadId(), here); }).join();
    EXPECT_EQ(gSystemPlatform.threadId(), here);
    EXPECT_NE(gSystemPlatform.processId(), 0u);

    const uint64_t before = gSystemPlatform.ticks();
    gSystemPlatform.sleep(50);
    const uint64_t elapsed = gSystemPlatform.ticks() - before;
    EXPECT_GE(elapsed, 35u);
    EXPECT_LT(elapsed, 30000u); // milliseconds, and nothing else

    const rv::MemoryStatus status = gSystemPlatform.memoryStatus();
    EXPECT_GE(status.totalPhysical, 16 * kMiB);
    EXPECT_GT(status.availablePhysical, 0u);
    EXPECT_LE(status.availablePhysical, status.totalPhysical);
    EXPECT_LE(status.availablePageFile, status.totalPageFile);
}

TEST(PlatformPalettes, MoveTheEntriesTheyHave)
{
    std::vector<PALETTEENTRY> made(257), read(300);
    for (size_t i = 0; i < made.size(); ++i) made[i].peRed = static_cast<uint8_t>(i);
    const HPALETTE palette = gSystemPlatform.createPalette(made.data(), 16);
    ASSERT_NE(palette, nullptr);
    EXPECT_EQ(gSystemPlatform.paletteSize(palette), 16u);
    const auto readFrom = [&](uint32_t first, uint32_t count) {
        read.assign(300, {200, 0, 0, 0});
        const uint32_t moved = gSystemPlatform.paletteEntries(palette, first, count, read.data());
        EXPECT_EQ(read[moved].peRed, 200);
        return std::pair(moved, moved != 0 ? read[moved - 1].peRed : 0); // how many, and the last one
    };
    EXPECT_EQ(readFrom(0, 16), std::pair(16u, 15));
    EXPECT_EQ(readFrom(10, 290), std::pair(6u, 15)); // cut to what there is
    EXPECT_EQ(readFrom(16, 1).first + readFrom(UINT32_MAX, UINT32_MAX).first, 0u);
    EXPECT_EQ(gSystemPlatform.setPaletteEntries(palette, 15, 2, made.data() + 100), 1u);
    EXPECT_EQ(readFrom(0, 15), std::pair(15u, 14));
    EXPECT_EQ(readFrom(14, 2), std::pair(2u, 100));

    uint32_t index = 99; // of what is near red 3
    EXPECT_EQ(gSystemPlatform.nearestPaletteIndex(palette, 0x000003, &index) ? index : index - 96, 3u);
    EXPECT_EQ(gSystemPlatform.createPalette(made.data(), 257), nullptr);
    EXPECT_EQ(gSystemPlatform.createPalette(nullptr, 2), nullptr);
    gSystemPlatform.deletePalette(palette);
}

// What has failed to be made is given to the other calls all the same.
TEST(Platform, TakesNullForNothing)
{
    rv::Platform& door = gSystemPlatform;
    PALETTEENTRY entry{};
    EXPECT_EQ(door.mapPages(nullptr), nullptr);
    EXPECT_EQ(door.movableHandle(nullptr), nullptr);
    EXPECT_EQ(door.reallocateMovable(nullptr, 8), nullptr);
    EXPECT_EQ(door.lockMovable(nullptr), nullptr);
    EXPECT_EQ(door.waitEvent(nullptr, 0), rv::Waited::failed);
    EXPECT_FALSE(door.setEvent(nullptr) || door.resetEvent(nullptr));
    EXPECT_EQ(door.movableSize(nullptr) + door.paletteSize(nullptr) + door.paletteEntries(nullptr, 0, 1, &entry) +
                  door.setPaletteEntries(nullptr, 0, 1, &entry),
              0u);
    door.unmapPages(nullptr, nullptr);
    for (const auto call : {&rv::Platform::closePages, &rv::Platform::unlockMovable, &rv::Platform::freeMovable,
                            &rv::Platform::closeEvent})
        (door.*call)(nullptr);
    door.deletePalette(nullptr);
    door.debugOutput(nullptr);
    door.debugOutputWide(nullptr);
}

} // namespace
