// Settings of threads, limits of the process, and what attach and detach leave behind.
#include "Kernel/Base/System.h"
#include "R_Kernel.h"
#include "Support/FailingPlatform.h"
#include "Support/Unused.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using namespace rv;
using namespace rv::test;

namespace {

/// Runs on a thread that has no settings yet.
template <class Function> void onFreshThread(Function function) { std::thread(function).join(); }

/// Runs on several threads at a time.
template <class Function> void onThreads(int count, Function function)
{
    std::vector<std::thread> threads;
    for (int i = 1; i <= count; ++i) threads.emplace_back(function, i);
    for (std::thread& thread : threads) thread.join();
}

/// Reserve, largest conventional size, tile size, conventional tiles, conventional buffers.
using Thresholds = std::array<R_INT64, 5>;

Thresholds thresholds()
{
    R_INT reserve = 0, tiles = 0, buffers = 0;
    R_INT64 size = 0, tileSize = 0;
    EXPECT_EQ(R_GetMemoryThresholds(&reserve, &size, &tileSize, &tiles, &buffers), SUCCESS);
    return {reserve, size, tileSize, tiles, buffers};
}

R_INT set(const Thresholds& t, R_UINT flags)
{
    const auto small = [&](size_t i) { return static_cast<R_INT>(t[i]); };
    return R_SetMemoryThresholds(small(0), t[1], t[2], small(3), small(4), flags);
}

constexpr R_UINT kAllThresholds = 31;

TEST(ThreadSettings, BelongToOneThreadAndEndWithIt)
{
    threadSettings();
    const LiveBlocks live;
    constexpr int kThreads = 4;
    std::atomic<int> ready{0};
    onThreads(kThreads, [&](int i) {
        EXPECT_EQ(R_SetDefaultXResolution(i * 100), 150);
        EXPECT_EQ(R_SetDefaultYResolution(-i), 150);
        R_SetMemoryThresholds(-i, 0, 0, 0, 0, THRESHOLD_RESERVE);
        ++ready;
        while (ready < kThreads) platform().sleep(1); // all blocks are alive now
        EXPECT_EQ(R_GetDefaultXResolution(), i * 100);
        EXPECT_EQ(R_SetDefaultYResolution(0), -i);
        EXPECT_EQ(R_GetDefaultYResolution(), 0);
        EXPECT_EQ(threadSettings().reserve, -i);
    });
    EXPECT_EQ(R_GetDefaultXResolution(), 150);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(ThreadSettings, ThresholdsAreTestedInOrderAndStoredUpToTheFirstRefusal)
{
    onFreshThread([] {
        const Thresholds least = {-100, -100, 0, -100, -100}, wanted = {1, 2, 3, 4, 5},
                         most = {0x7FFFFFFF, INT64_MAX, INT64_MAX, 0x7FFFFFFF, 0x7FFFFFFF};
        EXPECT_EQ(set(least, 0), SUCCESS);
        EXPECT_EQ(thresholds(), (Thresholds{0, 2147483647, 0, -100, 1}));
        for (const Thresholds& bound : {least, most}) {
            EXPECT_EQ(set(bound, kAllThresholds), SUCCESS);
            EXPECT_EQ(thresholds(), bound);
        }
        for (size_t wrong = 0; wrong < wanted.size(); ++wrong) {
            Thresholds asked = wanted, stored = most;
            asked[wrong] = least[wrong] - 1;
            std::copy_n(wanted.begin(), wrong, stored.begin());
            set(most, kAllThresholds);
            EXPECT_EQ(set(asked, kAllThresholds), ERROR_INV_PARAMETER);
            EXPECT_EQ(thresholds(), stored);
            EXPECT_EQ(set(asked, kAllThresholds & ~(1u << wrong)), SUCCESS); // not asked, not tested
            stored = wanted;
            stored[wrong] = most[wrong];
            EXPECT_EQ(thresholds(), stored);
        }
        EXPECT_EQ(R_GetMemoryThresholds(nullptr, nullptr, nullptr, nullptr, nullptr), SUCCESS);
    });
}

TEST(ThreadSettings, MemoryTypeIsOneOfTwo)
{
    onFreshThread([] {
        EXPECT_EQ(R_SetDefaultMemoryType(MEM_DISK), SUCCESS);
        for (const R_UINT wrong : {0u, 129u}) EXPECT_EQ(R_SetDefaultMemoryType(wrong), ERROR_INV_PARAMETER) << wrong;
        EXPECT_EQ(R_GetDefaultMemoryType(), R_UINT{MEM_DISK});
    });
}

R_INT anyStatus(R_INT, void*) { return SUCCESS; }
R_INT otherStatus(R_INT, void*) { return 0; }

TEST(ThreadSettings, CallbacksAreTwoPairs)
{
    onFreshThread([] {
        int data = 0, otherData = 0;
        STATUSCALLBACK old = otherStatus;
        void* oldData = &old;
        EXPECT_EQ(R_SetStatusCallBack(anyStatus, &data, &old, &oldData), SUCCESS);
        EXPECT_TRUE(old == nullptr && oldData == nullptr);
        EXPECT_EQ(R_SetCopyStatusCallBack(otherStatus, &otherData, nullptr, nullptr), SUCCESS);
        EXPECT_TRUE(R_GetStatusCallBack(&oldData) == anyStatus && oldData == &data);
        EXPECT_TRUE(R_GetCopyStatusCallBack(&oldData) == otherStatus && oldData == &otherData);
        EXPECT_EQ(R_SetCopyStatusCallBack(nullptr, nullptr, &old, &oldData), SUCCESS);
        EXPECT_TRUE(old == otherStatus && oldData == &otherData);
    });
}

// A thread without a slot or without memory works on the process's own block.
TEST(ThreadSettings, WithoutASlotAllThreadsShareOneBlock)
{
    const Unused fresh;
    const LiveBlocks live;
    for (const int resolution : {72, 73}) { // nothing is left of the last time
        const FailingAllocation fault(1, kFailSlots);
        ThreadSettings* const here = &threadSettings();
        ASSERT_TRUE(fault.happened());
        EXPECT_EQ(R_SetDefaultXResolution(resolution), 150);
        onFreshThread([=] {
            EXPECT_EQ(&threadSettings(), here);
            EXPECT_EQ(R_GetDefaultXResolution(), resolution);
        });
        EXPECT_EQ(live.count(kHeap), 0);
        detach();
    }
    ThreadSettings* const here = &threadSettings();
    onFreshThread([here] { EXPECT_NE(&threadSettings(), here); });
}

TEST(ThreadSettings, AThreadThatWasRefusedMemoryKeepsWhatItSets)
{
    threadSettings();
    const LiveBlocks live;
    onFreshThread([] {
        ThreadSettings* shared = nullptr;
        {
            const NoMemory nothing(kFailHeap);
            shared = &threadSettings();
            shared->yResolution = 99;
        }
        EXPECT_EQ(&threadSettings(), shared); // with memory again, the thread stays where its settings are
        shared->yResolution = 150;
    });
    EXPECT_EQ(live.count(), 0) << live.text(); // and the shared block is not freed with a thread
    EXPECT_EQ(R_GetDefaultYResolution(), 150);
}

TEST(System, LeavesNothingBehindWhenDetached)
{
    const Unused fresh;
    const LiveBlocks live;
    for (int round = 0; round < 3; ++round) {
        const PretendDiagnostics wanted(round == 1); // asked when attached, and never again
        attach();
        threadSettings();
        R_ManageMemory(MANAGE_GET_LIMIT, 0, nullptr);
        std::atomic<int> stage{0};
        std::thread living([&stage] {
            threadSettings();
            stage = 1;
            while (stage != 2) gSystemPlatform.sleep(1);
        });
        while (stage != 1) gSystemPlatform.sleep(1);
        EXPECT_EQ(live.count(kHeap), 2);
        EXPECT_EQ(live.count(kSlots), 1);
        EXPECT_EQ(live.count(kSystemLocks), 2);            // made anew each time
        for (int detached = 0; detached < 2; ++detached) { // while a thread still has its block; again for nothing
            detach();
            EXPECT_EQ(live.count(), 0) << live.text();
            EXPECT_EQ(live.count(kSystemLocks), 0);
        }
        stage = 2;
        living.join();
        EXPECT_EQ(live.count(), 0) << live.text();
        EXPECT_EQ(lockCountDiagnostics(), round == 1);
    }
}

constinit LazyLock lazyLock;

TEST(LazyLock, IsMadeOnceByWhoeverComesFirstAndAgainAfterDetach)
{
    const Unused fresh;
    for (int round = 0; round < 5; ++round) {
        int count = 0;
        std::atomic<int> ready{0};
        onThreads(4, [&](int) {
            for (++ready; ready < 4;) std::this_thread::yield();
            for (int step = 0; step < 2000; ++step) {
                const LockGuard guard(lazyLock), again(lazyLock);
                ++count;
            }
        });
        EXPECT_EQ(count, 8000);
        detach();
    }
}

/// The process's conventional memory from nothing, and as it was afterwards.
struct FreshLimits : Scoped {
    FreshLimits()
    {
        R_ManageMemory(MANAGE_GET_TOTAL, 0, &total);
        R_ManageMemory(MANAGE_RELEASE, total, nullptr);
        R_ManageMemory(MANAGE_SET_LIMIT, 0, &limit);
    }
    ~FreshLimits()
    {
        R_UINT64 now = 0;
        R_ManageMemory(MANAGE_GET_TOTAL, 0, &now);
        R_ManageMemory(MANAGE_RELEASE, now - total, nullptr); // wraps where it must
        R_ManageMemory(MANAGE_SET_LIMIT, limit, nullptr);
    }
    R_UINT64 total = 0, limit = 0;
};

TEST(ManageMemory, ReservesUpToTheLimit)
{
    const FreshLimits fresh;
    constexpr R_UINT64 kNone = 0xDEAD;
    const struct {
        R_UINT command;
        R_UINT64 value, result;
        R_INT status = SUCCESS;
    } steps[] = {
        {MANAGE_GET_AVAILABLE, UINT64_MAX, 0x7FFFFFFFFFFFFFFF},
        {MANAGE_RESERVE, 800, kNone},
        {MANAGE_SET_LIMIT, 1000, 0},
        {MANAGE_GET_AVAILABLE, 200, 200},
        {MANAGE_RESERVE, 201, kNone, ERROR_MEMORY_LIMIT},
        {MANAGE_GET_TOTAL, 0, 800},
        {MANAGE_RESERVE, 200, kNone},
        {MANAGE_GET_AVAILABLE, 0, 1}, // nothing is left, and 0 bytes would fit
        {MANAGE_GET_AVAILABLE, 1, 1, ERROR_MEMORY_LIMIT},
        {MANAGE_SET_LIMIT, 500, 1000}, // below what is held
        {MANAGE_GET_AVAILABLE, 0, 1, ERROR_MEMORY_LIMIT},
        {MANAGE_SET_LIMIT, 0, 500},
        {MANAGE_RESERVE, 1, kNone},
        // A sum that wraps fits nowhere, limit or none.
        {MANAGE_RESERVE, UINT64_MAX, kNone, ERROR_MEMORY_LIMIT},
        {MANAGE_SET_LIMIT, UINT64_MAX, 0},
        {MANAGE_RESERVE, UINT64_MAX - 1000, kNone, ERROR_MEMORY_LIMIT},
        {MANAGE_RESERVE, UINT64_MAX - 1001, kNone},
        {MANAGE_RELEASE, UINT64_MAX, kNone},
        {MANAGE_GET_TOTAL, 0, 0},
        {6, 7, kNone, ERROR_FEATURE_NOT_SUPPORTED},
    };
    for (const auto& [command, value, wanted, status] : steps) {
        R_UINT64 result = kNone;
        EXPECT_EQ(R_ManageMemory(command, value, &result), status) << command << ", " << value;
        EXPECT_EQ(result, wanted) << command << ", " << value;
    }
    for (R_UINT command = MANAGE_SET_LIMIT; command <= MANAGE_GET_AVAILABLE; ++command)
        EXPECT_EQ(R_ManageMemory(command, 0, nullptr), command == MANAGE_GET_TOTAL ? ERROR_NULL_PTR : SUCCESS);
}

TEST(ManageMemory, CountsWhatTheStoresTakeOnAnyThread)
{
    const FreshLimits fresh;
    R_ManageMemory(MANAGE_SET_LIMIT, 4000, nullptr);
    std::atomic<int> taken{0};
    onThreads(2, [&taken](int) {
        for (int i = 0; i < 3000; ++i) taken += reserveConventional(1).ok();
    });
    EXPECT_EQ(taken, 4000);
    EXPECT_EQ(reserveConventional(1), ERROR_MEMORY_LIMIT);
    returnConventional(3999);
    R_UINT64 total = 0;
    EXPECT_EQ(R_ManageMemory(MANAGE_GET_TOTAL, 0, &total), SUCCESS);
    EXPECT_EQ(total, 1u);
}

TEST(GlobalThreshold, IsCheckedBeforeItIsStored)
{
    constexpr R_UINT kSize = GLOBALMEMORYTHRESHOLDS_SIZE;
    const std::tuple<R_UINT, R_INT64, R_INT, R_INT64> steps[] = {
        {kSize, 5000, SUCCESS, 5000},
        {kSize, -2, ERROR_INV_PARAMETER, 5000},
        {16, -2, ERROR_INV_STRUCT_SIZE, 5000},
        {kSize, -1, SUCCESS, 0}, // as at the start: none
    };
    for (const auto& [size, threshold, status, stored] : steps) {
        GLOBALMEMORYTHRESHOLDS record{size, threshold};
        EXPECT_EQ(R_SetGlobalMemoryThresholds(&record), status) << threshold;
        EXPECT_EQ(R_GetGlobalMemoryThresholds(&record, kSize), SUCCESS);
        EXPECT_EQ(record.nThreshold, stored);
    }
    EXPECT_EQ(R_GetGlobalMemoryThresholds(nullptr, 16), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_GetGlobalMemoryThresholds(nullptr, kSize), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_SetGlobalMemoryThresholds(nullptr), SUCCESS);
}

TEST(Hooks, OfTheDisplayAreReplacedAsAWhole)
{
    DISDISPATCH display{}, wrong{};
    display.uStructSize = sizeof display;
    wrong.uStructSize = sizeof wrong + 1;
    display.DeleteRegion = [](void*) {};
    EXPECT_EQ(R_SetDisDispatch(&display), SUCCESS);
    EXPECT_EQ(R_SetDisDispatch(&wrong), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(displayHooks().DeleteRegion, display.DeleteRegion);
    EXPECT_EQ(R_SetDisDispatch(nullptr), SUCCESS);
    EXPECT_EQ(displayHooks().DeleteRegion, nullptr);
}

} // namespace
