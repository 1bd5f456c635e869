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
    const uint64_t before = gSystemPlatform.ticks();
    gSystemPlatform.sleep(50);
    const uint64_t elapsed = gSystemPlatform.ticks() - before;
    EXPECT_TRUE(elapsed >= 35 && elapsed < 30000) << elapsed; // milliseconds, and nothing else
    const rv::MemoryStatus status = gSystemPlatform.memoryStatus();
    EXPECT_TRUE(status.totalPhysical >= 16 * kMiB && status.availablePhysical > 0);
    EXPECT_LE(status.availablePhysical, status.totalPhysical);
    EXPECT_LE(status.availablePageFile, status.totalPageFile);
}

TEST(PlatformPalettes, MoveTheEntriesTheyHave)
{
    std::vector<PALETTEENTRY> made(257), read(20, {200, 0, 0, 0});
    for (size_t i = 0; i < made.size(); ++i) made[i].peRed = static_cast<uint8_t>(i);
    const HPALETTE palette = gSystemPlatform.createPalette(made.data(), 16);
    ASSERT_NE(palette, nullptr);
    EXPECT_EQ(gSystemPlatform.paletteSize(palette), 16u);
    EXPECT_EQ(gSystemPlatform.setPaletteEntries(palette, 15, 2, made.data() + 100), 1u); // cut to what there is
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, 14, UINT32_MAX, read.data()), 2u);
    EXPECT_TRUE(read[0].peRed == 14 && read[1].peRed == 100 && read[2].peRed == 200);
    EXPECT_EQ(gSystemPlatform.paletteEntries(palette, 16, 1, read.data()), 0u);
    uint32_t index = 99; // of what is near red 3
    EXPECT_EQ(gSystemPlatform.nearestPaletteIndex(palette, 0x000003, &index) ? index : index - 96, 3u);
    EXPECT_EQ(gSystemPlatform.createPalette(made.data(), 257), nullptr);
    EXPECT_EQ(gSystemPlatform.createPalette(nullptr, 2), nullptr);
    gSystemPlatform.deletePalette(palette);
}

} // namespace
