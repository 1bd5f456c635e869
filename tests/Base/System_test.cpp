// Settings of threads, limits of the process, and what attach and detach leave behind.
#include "Kernel/Base/System.h"
#include "R_Kernel.h"
#include "Support/FailingPlatform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

using namespace rv;
using namespace rv::test;

namespace {

/// Runs on a thread that has no settings yet.
template <class Function> void onFreshThread(Function function) { std::thread(function).join(); }

/// A library that nobody has used, for a test of the first use; ready for the other tests afterwards.
class Unused {
public:
    Unused() { detach(); }
    ~Unused()
    {
        detach();
        attach();
        threadSettings();
    }
    Unused(const Unused&) = delete;
    Unused& operator=(const Unused&) = delete;
};

struct Thresholds {
    R_INT reserve = 0;
    R_INT64 maxConvSize = 0;
    R_INT64 tileSize = 0;
    R_INT convTiles = 0;
    R_INT convBuffers = 0;
    bool operator==(const Thresholds&) const = default;
};

Thresholds thresholds()
{
    Thresholds t;
    EXPECT_EQ(R_GetMemoryThresholds(&t.reserve, &t.maxConvSize, &t.tileSize, &t.convTiles, &t.convBuffers), SUCCESS);
    return t;
}

R_INT set(const Thresholds& t, R_UINT flags)
{
    return R_SetMemoryThresholds(t.reserve, t.maxConvSize, t.tileSize, t.convTiles, t.convBuffers, flags);
}

constexpr R_UINT kAllThresholds = 31;

TEST(ThreadSettings, StartWithTheDefaults)
{
    onFreshThread([] {
        EXPECT_EQ(thresholds(), (Thresholds{0, 2147483647, 0, -100, 1}));
        EXPECT_EQ(threadSettings().ditheringMethod, 7);
        EXPECT_EQ(R_GetDefaultMemoryType(), MEM_CONVENTIONAL);
        EXPECT_EQ(R_GetDefaultXResolution(), 150);
        EXPECT_EQ(R_GetDefaultYResolution(), 150);
        void* userData = &userData;
        EXPECT_EQ(R_GetStatusCallBack(&userData), nullptr);
        EXPECT_EQ(userData, nullptr);
        EXPECT_EQ(R_GetCopyStatusCallBack(nullptr), nullptr);
    });
}

TEST(ThreadSettings, BelongToOneThreadAndEndWithIt)
{
    threadSettings();
    const LiveBlocks live;
    constexpr int kThreads = 4;
    std::atomic<int> wrong{0}, ready{0};
    std::vector<std::thread> threads;
    for (int i = 1; i <= kThreads; ++i) {
        threads.emplace_back([&, i] {
            if (R_SetDefaultXResolution(i * 100) != 150) ++wrong;
            R_SetMemoryThresholds(-i, 0, 0, 0, 0, THRESHOLD_RESERVE);
            ++ready;
            while (ready < kThreads) platform().sleep(1); // all blocks are alive now
            if (R_GetDefaultXResolution() != i * 100 || threadSettings().reserve != -i) ++wrong;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(R_GetDefaultXResolution(), 150);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(ThreadSettings, ThresholdsAreTestedInOrderAndStoredUpToTheFirstRefusal)
{
    onFreshThread([] {
        const Thresholds defaults = thresholds();
        const Thresholds least = {-100, -100, 0, -100, -100};
        EXPECT_EQ(set(least, 0), SUCCESS);
        EXPECT_EQ(thresholds(), defaults);
        EXPECT_EQ(set({5, 6, 7, 8, 9}, THRESHOLD_TILE_SIZE | THRESHOLD_CONV_BUFFERS), SUCCESS);
        EXPECT_EQ(thresholds(), (Thresholds{0, 2147483647, 7, -100, 9}));
        EXPECT_EQ(set(least, kAllThresholds), SUCCESS);
        EXPECT_EQ(thresholds(), least);
        const Thresholds most = {0x7FFFFFFF, INT64_MAX, INT64_MAX, 0x7FFFFFFF, 0x7FFFFFFF};
        EXPECT_EQ(set(most, kAllThresholds), SUCCESS);
        EXPECT_EQ(thresholds(), most);

        const auto refusal = [&](Thresholds wanted, const Thresholds& stored) {
            set(most, kAllThresholds);
            EXPECT_EQ(set(wanted, kAllThresholds), ERROR_INV_PARAMETER);
            EXPECT_EQ(thresholds(), stored);
        };
        refusal({-101, 2, 3, 4, 5}, most);
        refusal({1, -101, 3, 4, 5}, {1, most.maxConvSize, most.tileSize, most.convTiles, most.convBuffers});
        refusal({1, 2, -1, 4, 5}, {1, 2, most.tileSize, most.convTiles, most.convBuffers});
        refusal({1, 2, 3, -101, 5}, {1, 2, 3, most.convTiles, most.convBuffers});
        refusal({1, 2, 3, 4, -101}, {1, 2, 3, 4, most.convBuffers});
        EXPECT_EQ(set({-101, 2, 3, 4, 5}, kAllThresholds & ~THRESHOLD_RESERVE), SUCCESS); // not asked, not tested
        EXPECT_EQ(R_GetMemoryThresholds(nullptr, nullptr, nullptr, nullptr, nullptr), SUCCESS);
    });
}

TEST(ThreadSettings, MemoryTypeIsOneOfTwoAndResolutionIsAnything)
{
    onFreshThread([] {
        EXPECT_EQ(R_SetDefaultMemoryType(MEM_DISK), SUCCESS);
        for (const R_UINT type : {0u, 2u, 4u, 129u, 0xFFFFFFFFu}) {
            EXPECT_EQ(R_SetDefaultMemoryType(type), ERROR_INV_PARAMETER) << type;
        }
        EXPECT_EQ(R_GetDefaultMemoryType(), MEM_DISK);
        EXPECT_EQ(R_SetDefaultMemoryType(MEM_CONVENTIONAL), SUCCESS);

        EXPECT_EQ(R_SetDefaultXResolution(-5), 150);
        EXPECT_EQ(R_SetDefaultXResolution(0), -5);
        EXPECT_EQ(R_SetDefaultYResolution(300), 150);
        EXPECT_EQ(R_GetDefaultXResolution(), 0);
        EXPECT_EQ(R_GetDefaultYResolution(), 300);
    });
}

R_INT anyStatus(R_INT, void*) { return SUCCESS; }
R_INT otherStatus(R_INT, void*) { return 0; }

TEST(ThreadSettings, CallbacksAreTwoPairs)
{
    onFreshThread([] {
        int data = 0, otherData = 0;
        STATUSCALLBACK oldCallback = anyStatus;
        void* oldData = &data;
        EXPECT_EQ(R_SetStatusCallBack(anyStatus, &data, &oldCallback, &oldData), SUCCESS);
        EXPECT_EQ(oldCallback, nullptr);
        EXPECT_EQ(oldData, nullptr);
        EXPECT_EQ(R_SetCopyStatusCallBack(otherStatus, &otherData, nullptr, nullptr), SUCCESS);
        EXPECT_EQ(R_GetStatusCallBack(&oldData), anyStatus);
        EXPECT_EQ(oldData, &data);
        EXPECT_EQ(R_SetCopyStatusCallBack(nullptr, nullptr, &oldCallback, &oldData), SUCCESS);
        EXPECT_EQ(oldCallback, otherStatus);
        EXPECT_EQ(oldData, &otherData);
        EXPECT_EQ(R_SetStatusCallBack(nullptr, nullptr, &oldCallback, &oldData), SUCCESS);
        EXPECT_EQ(oldCallback, anyStatus);
        EXPECT_EQ(oldData, &data);
    });
}

// A thread without a slot or without memory works on the process's own block.
TEST(ThreadSettings, WithoutASlotAllThreadsShareOneBlock)
{
    const Unused fresh;
    {
        const LiveBlocks live;
        const FailingAllocation fault(1, kFailSlots);
        ThreadSettings* const here = &threadSettings();
        ASSERT_TRUE(fault.happened());
        EXPECT_EQ(here->xResolution, 150);
        R_SetDefaultXResolution(72);
        onFreshThread([here] {
            EXPECT_EQ(&threadSettings(), here);
            EXPECT_EQ(R_GetDefaultXResolution(), 72);
        });
        EXPECT_EQ(live.counts().heap, 0);
    }
    detach();
    {
        const FailingAllocation fault(1, kFailSlots);
        EXPECT_EQ(R_GetDefaultXResolution(), 150); // nothing is left of the last time
    }
    detach();
    EXPECT_EQ(R_GetDefaultXResolution(), 150);
    ThreadSettings* const here = &threadSettings();
    onFreshThread([here] { EXPECT_NE(&threadSettings(), here); });
}

TEST(ThreadSettings, AThreadThatWasRefusedMemoryKeepsWhatItSets)
{
    threadSettings();
    const LiveBlocks live;
    for (const unsigned kind : {kFailHeap, kFailSlots}) {
        onFreshThread([kind] {
            ThreadSettings* shared = nullptr;
            {
                const NoMemory nothing(kind);
                shared = &threadSettings();
                shared->yResolution = 99;
                EXPECT_EQ(&threadSettings(), shared);
            }
            if (kind == kFailHeap) { // with memory again, the thread stays where its settings are
                EXPECT_EQ(&threadSettings(), shared);
            }
            shared->yResolution = 150;
        });
    }
    EXPECT_EQ(live.count(), 0) << live.text(); // and the shared block is not freed with a thread
    EXPECT_EQ(R_GetDefaultYResolution(), 150);
}

TEST(System, LeavesNothingBehindWhenDetached)
{
    const Unused fresh;
    const LiveBlocks live;
    for (int round = 0; round < 3; ++round) {
        attach();
        threadSettings();
        EXPECT_EQ(live.counts().heap, 1);
        EXPECT_EQ(live.counts().slots, 1);
        R_ManageMemory(MANAGE_GET_LIMIT, 0, nullptr);
        std::atomic<int> stage{0};
        std::thread living([&stage] {
            threadSettings();
            stage = 1;
            while (stage != 2) gSystemPlatform.sleep(1);
        });
        while (stage != 1) gSystemPlatform.sleep(1);
        detach(); // while a thread still has its block
        EXPECT_EQ(live.count(), 0) << live.text();
        EXPECT_EQ(live.counts().systemLocks, 0);
        detach(); // again, and there is nothing to do
        stage = 2;
        living.join();
        EXPECT_EQ(live.count(), 0) << live.text();
    }
}

TEST(System, AsksForTheDiagnosticsWhenAttachedAndNeverAgain)
{
    const Unused fresh;
    {
        const PretendDiagnostics wanted(true);
        attach();
    }
    EXPECT_TRUE(lockCountDiagnostics());
    detach();
    const PretendDiagnostics unwanted(false);
    EXPECT_TRUE(lockCountDiagnostics());
    attach();
    EXPECT_FALSE(lockCountDiagnostics());
}

constinit LazyLock lazyLock;

TEST(LazyLock, IsMadeOnceByWhoeverComesFirstAndAgainAfterDetach)
{
    const Unused fresh;
    for (int round = 0; round < 5; ++round) {
        int count = 0;
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                while (!go) std::this_thread::yield();
                for (int step = 0; step < 2000; ++step) {
                    const LockGuard guard(lazyLock);
                    const LockGuard again(lazyLock);
                    ++count;
                }
            });
        }
        go = true;
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(count, 8000);
        detach();
    }
}

/// The process's conventional memory from nothing, and as it was afterwards.
class FreshLimits {
public:
    FreshLimits()
    {
        R_ManageMemory(MANAGE_GET_TOTAL, 0, &total_);
        R_ManageMemory(MANAGE_RELEASE, total_, nullptr);
        R_ManageMemory(MANAGE_SET_LIMIT, 0, &limit_);
    }
    ~FreshLimits()
    {
        R_UINT64 now = 0;
        R_ManageMemory(MANAGE_GET_TOTAL, 0, &now);
        R_ManageMemory(MANAGE_RELEASE, now - total_, nullptr); // wraps where it must
        R_ManageMemory(MANAGE_SET_LIMIT, limit_, nullptr);
    }
    FreshLimits(const FreshLimits&) = delete;
    FreshLimits& operator=(const FreshLimits&) = delete;

private:
    R_UINT64 total_ = 0;
    R_UINT64 limit_ = 0;
};

R_UINT64 manage(R_UINT command, R_UINT64 value = 0, R_INT status = SUCCESS)
{
    R_UINT64 result = 0xDEAD;
    EXPECT_EQ(R_ManageMemory(command, value, &result), status) << command << ", " << value;
    return result;
}

constexpr R_UINT64 kNoLimit = 0x7FFFFFFFFFFFFFFF;

TEST(ManageMemory, ReservesUpToTheLimit)
{
    const FreshLimits fresh;
    EXPECT_EQ(manage(MANAGE_GET_AVAILABLE, UINT64_MAX), kNoLimit);
    EXPECT_EQ(manage(MANAGE_RESERVE, 800), 0xDEADu); // has no result
    EXPECT_EQ(manage(MANAGE_SET_LIMIT, 1000), 0u);
    EXPECT_EQ(manage(MANAGE_GET_LIMIT), 1000u);
    EXPECT_EQ(manage(MANAGE_GET_AVAILABLE, 200), 200u);
    EXPECT_EQ(manage(MANAGE_GET_AVAILABLE, 201, ERROR_MEMORY_LIMIT), 200u);
    manage(MANAGE_RESERVE, 201, ERROR_MEMORY_LIMIT);
    EXPECT_EQ(manage(MANAGE_GET_TOTAL), 800u);
    manage(MANAGE_RESERVE, 200);
    EXPECT_EQ(manage(MANAGE_GET_AVAILABLE), 1u); // nothing is left, and 0 bytes would fit
    EXPECT_EQ(manage(MANAGE_GET_AVAILABLE, 1, ERROR_MEMORY_LIMIT), 1u);
    EXPECT_EQ(manage(MANAGE_SET_LIMIT, 500), 1000u); // below what is held
    EXPECT_EQ(manage(MANAGE_GET_AVAILABLE, 0, ERROR_MEMORY_LIMIT), 1u);
    EXPECT_EQ(manage(MANAGE_SET_LIMIT, 0), 500u);
    manage(MANAGE_RESERVE, 1);
    EXPECT_EQ(manage(MANAGE_GET_TOTAL), 1001u);

    // A sum that wraps fits nowhere, limit or none.
    manage(MANAGE_RESERVE, UINT64_MAX, ERROR_MEMORY_LIMIT);
    manage(MANAGE_SET_LIMIT, UINT64_MAX);
    manage(MANAGE_RESERVE, UINT64_MAX - 1000, ERROR_MEMORY_LIMIT);
    manage(MANAGE_RESERVE, UINT64_MAX - 1001);
    manage(MANAGE_RELEASE, UINT64_MAX);
    EXPECT_EQ(manage(MANAGE_GET_TOTAL), 0u);
    manage(MANAGE_RELEASE, 3); // unchecked
    EXPECT_EQ(manage(MANAGE_GET_TOTAL), UINT64_MAX - 2);
}

TEST(ManageMemory, NeedsItsPointerForTheTotalAlone)
{
    const FreshLimits fresh;
    for (R_UINT command = MANAGE_SET_LIMIT; command <= MANAGE_GET_AVAILABLE; ++command) {
        EXPECT_EQ(R_ManageMemory(command, 0, nullptr), command == MANAGE_GET_TOTAL ? ERROR_NULL_PTR : SUCCESS);
    }
    EXPECT_EQ(manage(6, 7, ERROR_FEATURE_NOT_SUPPORTED), 0xDEADu);
}

TEST(ManageMemory, CountsWhatTheStoresTakeOnAnyThread)
{
    const FreshLimits fresh;
    manage(MANAGE_SET_LIMIT, 4000);
    std::atomic<int> taken{0};
    const auto take = [&taken] {
        for (int i = 0; i < 3000; ++i) {
            if (reserveConventional(1).ok()) ++taken;
        }
    };
    std::thread one(take), two(take);
    one.join();
    two.join();
    EXPECT_EQ(taken, 4000);
    EXPECT_EQ(reserveConventional(1), ERROR_MEMORY_LIMIT);
    returnConventional(3999);
    EXPECT_EQ(manage(MANAGE_GET_TOTAL), 1u);
}

TEST(GlobalThreshold, IsCheckedBeforeItIsStored)
{
    GLOBALMEMORYTHRESHOLDS record{GLOBALMEMORYTHRESHOLDS_SIZE, 5000};
    EXPECT_EQ(R_SetGlobalMemoryThresholds(&record), SUCCESS);
    EXPECT_EQ(globalBitmapThreshold(), 5000);
    record.nThreshold = -2;
    EXPECT_EQ(R_SetGlobalMemoryThresholds(&record), ERROR_INV_PARAMETER);
    record.uStructSize = 16;
    EXPECT_EQ(R_SetGlobalMemoryThresholds(&record), ERROR_INV_STRUCT_SIZE); // before the value is looked at
    EXPECT_EQ(R_GetGlobalMemoryThresholds(nullptr, 16), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_GetGlobalMemoryThresholds(nullptr, GLOBALMEMORYTHRESHOLDS_SIZE), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetGlobalMemoryThresholds(&record, GLOBALMEMORYTHRESHOLDS_SIZE), SUCCESS);
    EXPECT_EQ(record.uStructSize, GLOBALMEMORYTHRESHOLDS_SIZE);
    EXPECT_EQ(record.nThreshold, 5000);

    record.nThreshold = -1; // as at the start: none
    EXPECT_EQ(R_SetGlobalMemoryThresholds(&record), SUCCESS);
    EXPECT_EQ(globalBitmapThreshold(), 0);
    record.nThreshold = INT64_MAX;
    EXPECT_EQ(R_SetGlobalMemoryThresholds(&record), SUCCESS);
    EXPECT_EQ(R_SetGlobalMemoryThresholds(nullptr), SUCCESS);
    EXPECT_EQ(globalBitmapThreshold(), 0);
}

R_INT anyAllocate(ALLOCATIONINFO*, void*) { return SUCCESS; }

TEST(Hooks, AreReplacedAndHandedBack)
{
    int data = 0;
    ALLOCATECALLBACK oldCallback = anyAllocate;
    void* oldData = &data;
    EXPECT_EQ(R_SetAllocateBitmapCallback(anyAllocate, &data, &oldCallback, &oldData), SUCCESS);
    EXPECT_EQ(oldCallback, nullptr);
    EXPECT_EQ(oldData, nullptr);
    EXPECT_EQ(allocateHook().callback, anyAllocate);
    EXPECT_EQ(allocateHook().userData, &data);
    EXPECT_EQ(R_SetAllocateBitmapCallback(nullptr, nullptr, &oldCallback, &oldData), SUCCESS);
    EXPECT_EQ(oldCallback, anyAllocate);
    EXPECT_EQ(oldData, &data);

    DISDISPATCH display{};
    display.uStructSize = sizeof display;
    display.DeleteRegion = [](void*) {};
    EXPECT_EQ(R_SetDisDispatch(&display), SUCCESS);
    EXPECT_EQ(displayHooks().DeleteRegion, display.DeleteRegion);
    DISDISPATCH wrong = display;
    wrong.DeleteRegion = nullptr;
    ++wrong.uStructSize;
    EXPECT_EQ(R_SetDisDispatch(&wrong), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(displayHooks().DeleteRegion, display.DeleteRegion);
    EXPECT_EQ(R_SetDisDispatch(nullptr), SUCCESS);
    EXPECT_EQ(displayHooks().DeleteRegion, nullptr);
}

} // namespace
