// What the kernel may rely on, asked of the system's own door on either platform.
#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <numeric>
#include <random>
#include <thread>
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
            ASSERT_NE(pages, nullptr) << bytes;
            auto* view = static_cast<uint8_t*>(gSystemPlatform.mapPages(pages));
            ASSERT_NE(view, nullptr) << bytes;
            EXPECT_TRUE(allZero(view, bytes)) << bytes;
            EXPECT_EQ(reinterpret_cast<uintptr_t>(view) % rv::kPagesAlignment, 0u) << bytes;
            std::memset(view, 0xA5, bytes);
            gSystemPlatform.unmapPages(pages, view);

            view = static_cast<uint8_t*>(gSystemPlatform.mapPages(pages));
            ASSERT_NE(view, nullptr) << bytes;
            EXPECT_EQ(std::count(view, view + bytes, 0xA5), static_cast<int64_t>(bytes));
            gSystemPlatform.unmapPages(pages, view);
            gSystemPlatform.closePages(pages);
        }
    }
}

TEST(PlatformPages, RefuseWhatCannotBe)
{
    for (const uint64_t bytes : {UINT64_MAX, UINT64_MAX / 2, uint64_t{1} << 62}) {
        EXPECT_EQ(gSystemPlatform.createPages(bytes), nullptr) << bytes;
    }
}

TEST(PlatformMovable, MovesOnlyWhileNobodyHasLockedIt)
{
    void* const handle = gSystemPlatform.allocateMovable(8);
    ASSERT_NE(handle, nullptr);
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
    ASSERT_NE(address, nullptr);
    EXPECT_EQ(gSystemPlatform.movableHandle(address), handle);
    EXPECT_EQ(std::memcmp(address, "\x77\x77\x77\x77", 4), 0);
    EXPECT_TRUE(allZero(static_cast<uint8_t*>(address) + 4, 60)); // what had been cut off does not come back
    gSystemPlatform.freeMovable(handle);                          // locked as it is
    EXPECT_EQ(gSystemPlatform.movableHandle(address), nullptr);
}

// Records carry addresses that their callers can have put there.
TEST(PlatformMovable, LeavesOtherMemoryAlone)
{
    alignas(16) std::array<uint8_t, 64> foreign{};
    EXPECT_EQ(gSystemPlatform.movableHandle(foreign.data()), nullptr);
    EXPECT_EQ(gSystemPlatform.allocateMovable(SIZE_MAX), nullptr);
}

TEST(PlatformMovable, FindsEachOfManyOnSeveralThreads)
{
    std::atomic<int> wrong{0};
    const auto churn = [&wrong](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<std::pair<void*, void*>> blocks; // handle, address
        for (int i = 0; i < 6000; ++i) {
            void* const handle = gSystemPlatform.allocateMovable(1 + random() % 64);
            blocks.emplace_back(handle, gSystemPlatform.lockMovable(handle));
        }
        std::shuffle(blocks.begin(), blocks.end(), random);
        for (const auto& [handle, address] : blocks) {
            if (address == nullptr || gSystemPlatform.movableHandle(address) != handle) ++wrong;
            gSystemPlatform.unlockMovable(handle);
            gSystemPlatform.freeMovable(handle);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 3; ++seed) threads.emplace_back(churn, seed);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(PlatformMemory, HasNoMoreLeftThanThereIs)
{
    const rv::MemoryStatus status = gSystemPlatform.memoryStatus();
    EXPECT_GE(status.totalPhysical, 16 * kMiB);
    EXPECT_GT(status.availablePhysical, 0u);
    EXPECT_LE(status.availablePhysical, status.totalPhysical);
    EXPECT_LE(status.availablePageFile, status.totalPageFile);
}

std::atomic<void*> endedWith{nullptr};

TEST(PlatformSlots, AreNullOnEveryThreadAndTellTheirThreadsEnd)
{
    ThreadSlot slot, other;
    ASSERT_TRUE(gSystemPlatform.createSlot(&slot, [](void* value) { endedWith = value; }));
    ASSERT_TRUE(gSystemPlatform.createSlot(&other, nullptr));
    EXPECT_NE(slot, other);
    int here = 0, there = 0;
    EXPECT_EQ(gSystemPlatform.slotValue(slot), nullptr);
    ASSERT_TRUE(gSystemPlatform.setSlotValue(slot, &here));
    std::thread([&] {
        EXPECT_EQ(gSystemPlatform.slotValue(slot), nullptr);
        ASSERT_TRUE(gSystemPlatform.setSlotValue(slot, &there));
        EXPECT_EQ(gSystemPlatform.slotValue(slot), &there);
        EXPECT_EQ(gSystemPlatform.slotValue(other), nullptr);
    }).join();
    EXPECT_EQ(gSystemPlatform.slotValue(slot), &here);
#if !defined(_WIN32) // there the entry point of a library is told, and not the slot
    EXPECT_EQ(endedWith, &there);
#endif

    // After its slot is gone, a thread's end is nobody's business any more.
    endedWith = nullptr;
    std::atomic<int> stage{0};
    std::thread living([&] {
        gSystemPlatform.setSlotValue(slot, &there);
        stage = 1;
        while (stage != 2) gSystemPlatform.sleep(1);
    });
    while (stage != 1) gSystemPlatform.sleep(1);
    gSystemPlatform.destroySlot(slot);
    gSystemPlatform.destroySlot(other);
    stage = 2;
    living.join();
    EXPECT_EQ(endedWith, nullptr);
}

TEST(PlatformLocks, LetOneThreadInAndThatOneAgain)
{
    LockStorage lock;
    gSystemPlatform.createLock(&lock);
    int count = 0;
    const auto add = [&] {
        for (int i = 0; i < 20000; ++i) {
            gSystemPlatform.enterLock(&lock);
            ++count;
            gSystemPlatform.leaveLock(&lock);
        }
    };
    std::thread one(add), two(add);
    one.join();
    two.join();
    EXPECT_EQ(count, 40000);

    std::atomic<bool> entered{false};
    gSystemPlatform.enterLock(&lock);
    gSystemPlatform.enterLock(&lock);
    std::thread third([&] {
        gSystemPlatform.enterLock(&lock);
        entered = true;
        gSystemPlatform.leaveLock(&lock);
    });
    gSystemPlatform.leaveLock(&lock);
    gSystemPlatform.sleep(30);
    EXPECT_FALSE(entered); // left once, entered twice
    gSystemPlatform.leaveLock(&lock);
    third.join();
    EXPECT_TRUE(entered);
    gSystemPlatform.destroyLock(&lock);
}

TEST(PlatformEvents, RememberTheirSignalAsTheyWereMade)
{
    void* const once = gSystemPlatform.createEvent(false, true);
    void* const all = gSystemPlatform.createEvent(true, false);
    ASSERT_TRUE(once != nullptr && all != nullptr);
    EXPECT_TRUE(gSystemPlatform.waitEvent(once, 0));
    EXPECT_FALSE(gSystemPlatform.waitEvent(once, 0)); // the first wait took the signal
    gSystemPlatform.setEvent(once);
    gSystemPlatform.setEvent(once); // two signals are one
    EXPECT_TRUE(gSystemPlatform.waitEvent(once, rv::kWaitForever));
    EXPECT_FALSE(gSystemPlatform.waitEvent(once, 0));

    EXPECT_FALSE(gSystemPlatform.waitEvent(all, 0));
    gSystemPlatform.setEvent(all);
    EXPECT_TRUE(gSystemPlatform.waitEvent(all, 0));
    EXPECT_TRUE(gSystemPlatform.waitEvent(all, 0));
    gSystemPlatform.resetEvent(all);
    const uint64_t before = gSystemPlatform.ticks();
    EXPECT_FALSE(gSystemPlatform.waitEvent(all, 40));
    EXPECT_GE(gSystemPlatform.ticks() - before, 30u); // the clock may tick in steps of 10 and more
    gSystemPlatform.closeEvent(once);
    gSystemPlatform.closeEvent(all);
}

TEST(PlatformEvents, WakeOneWaiterOrAll)
{
    for (const bool manual : {false, true}) {
        void* const event = gSystemPlatform.createEvent(manual, false);
        ASSERT_NE(event, nullptr);
        std::atomic<int> awake{0};
        const auto wait = [&] { awake += gSystemPlatform.waitEvent(event, rv::kWaitForever) ? 1 : 100; };
        std::thread one(wait), two(wait);
        gSystemPlatform.sleep(20);
        EXPECT_EQ(awake, 0);
        gSystemPlatform.setEvent(event);
        while (awake < 1) gSystemPlatform.sleep(1);
        if (!manual) {
            gSystemPlatform.sleep(20);
            EXPECT_EQ(awake, 1);
            gSystemPlatform.setEvent(event);
        }
        one.join();
        two.join();
        EXPECT_EQ(awake, 2);
        gSystemPlatform.closeEvent(event);
    }
}

TEST(PlatformThreads, HaveIdsAndAClock)
{
    const uint32_t here = gSystemPlatform.threadId();
    uint32_t there = here;
    std::thread([&there] { there = gSystemPlatform.threadId(); }).join();
    EXPECT_NE(here, there);
    EXPECT_EQ(here, gSystemPlatform.threadId());
    EXPECT_NE(gSystemPlatform.processId(), 0u);

    const uint64_t before = gSystemPlatform.ticks();
    gSystemPlatform.sleep(50);
    const uint64_t elapsed = gSystemPlatform.ticks() - before;
    EXPECT_GE(elapsed, 35u);
    EXPECT_LT(elapsed, 30000u); // milliseconds, and nothing else
}

std::vector<PALETTEENTRY> ramp(size_t count)
{
    std::vector<PALETTEENTRY> entries(count);
    for (size_t i = 0; i < count; ++i) {
        const auto level = static_cast<uint8_t>(i);
        entries[i] = {level, static_cast<uint8_t>(255 - level), level, 0};
    }
    return entries;
}

bool same(const PALETTEENTRY& a, const PALETTEENTRY& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(PlatformPalettes, MoveTheEntriesTheyHave)
{
    const std::vector<PALETTEENTRY> made = ramp(257);
    const HPALETTE palette = gSystemPlatform.createPalette(made.data(), 16);
    ASSERT_NE(palette, nullptr);
    EXPECT_EQ(gSystemPlatform.paletteSize(palette), 16u);

    std::vector<PALETTEENTRY> read(300, PALETTEENTRY{9, 9, 9, 9});
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, 0, 16, read.data()), 16u);
    EXPECT_TRUE(std::equal(made.begin(), made.begin() + 16, read.begin(), same));
    EXPECT_TRUE(same(read[16], {9, 9, 9, 9}));
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, 10, 290, read.data()), 6u); // cut to what there is
    EXPECT_TRUE(same(read[5], made[15]));
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, 16, 1, read.data()), 0u);
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, UINT32_MAX, UINT32_MAX, read.data()), 0u);

    const PALETTEENTRY other[] = {{1, 2, 3, 0}, {4, 5, 6, 0}};
    EXPECT_EQ(gSystemPlatform.setPaletteEntries(palette, 15, 2, other), 1u);
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, 14, 2, read.data()), 2u);
    EXPECT_TRUE(same(read[0], made[14]) && same(read[1], other[0]));

    uint32_t index = 99;
    if (gSystemPlatform.nearestPaletteIndex(palette, 0x03FC03, &index)) { // red 3, green 252, blue 3
        EXPECT_EQ(index, 3u);
    } else {
        EXPECT_EQ(index, 99u);
    }
    EXPECT_EQ(gSystemPlatform.createPalette(made.data(), 257), nullptr);
    EXPECT_EQ(gSystemPlatform.createPalette(nullptr, 2), nullptr);
    gSystemPlatform.deletePalette(palette);
}

// What has failed to be made is given to the other calls all the same.
TEST(Platform, TakesNullForNothing)
{
    PALETTEENTRY entry{};
    EXPECT_EQ(gSystemPlatform.mapPages(nullptr), nullptr);
    gSystemPlatform.unmapPages(nullptr, nullptr);
    gSystemPlatform.closePages(nullptr);
    EXPECT_EQ(gSystemPlatform.movableHandle(nullptr), nullptr);
    EXPECT_EQ(gSystemPlatform.reallocateMovable(nullptr, 8), nullptr);
    EXPECT_EQ(gSystemPlatform.lockMovable(nullptr), nullptr);
    EXPECT_EQ(gSystemPlatform.movableSize(nullptr), 0u);
    gSystemPlatform.unlockMovable(nullptr);
    gSystemPlatform.freeMovable(nullptr);
    EXPECT_FALSE(gSystemPlatform.waitEvent(nullptr, 0));
    gSystemPlatform.setEvent(nullptr);
    gSystemPlatform.resetEvent(nullptr);
    gSystemPlatform.closeEvent(nullptr);
    EXPECT_EQ(gSystemPlatform.paletteSize(nullptr), 0u);
    EXPECT_EQ(gSystemPlatform.paletteEntries(nullptr, 0, 1, &entry), 0u);
    EXPECT_EQ(gSystemPlatform.setPaletteEntries(nullptr, 0, 1, &entry), 0u);
    gSystemPlatform.deletePalette(nullptr);
    gSystemPlatform.debugOutput(nullptr);
    gSystemPlatform.debugOutputWide(nullptr);
}

} // namespace
