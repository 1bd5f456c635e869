// Locks, events, work groups, slots and the pool behind them.
#include "Common/Rvthreading.h"
#include "Kernel/Base/System.h"
#include "R_Kernel.h"
#include "Support/FailingPlatform.h"
#include "Support/Unused.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace rv;
using namespace rv::test;

namespace {

struct TwoCores : PretendCores, Unused { // destroyed in the other order: the library is detached as it was made
    TwoCores() : PretendCores(2) {}
};

/// Whether it comes true within a time that no sane system exceeds.
template <class Condition> bool soon(Condition condition)
{
    for (const uint64_t end = gSystemPlatform.ticks() + 20000; !condition() && gSystemPlatform.ticks() < end;)
        gSystemPlatform.sleep(1);
    return condition();
}

std::atomic<int> ran{0};

R_INT countItem(RVWorkItems*, void* data) { return ran += data != nullptr ? 0 : 1, SUCCESS; }
R_UINT countWork(void*) { return static_cast<R_UINT>(++ran); }

TEST(ThreadingGroups, RunEveryItemOnceAndMayEndWithTheWait)
{
    const TwoCores cores;
    std::minstd_rand random(5);
    const LiveBlocks live;
    for (int round = 0; round < 300; ++round) {
        auto group = std::make_unique<RVWorkItems>();
        const auto upTo = [&](R_UINT most) { return static_cast<R_UINT>(random() >> 8) % (most + 1); };
        const R_UINT thread = upTo(7) == 0 ? THREAD_DEDICATED : upTo(1) * THREAD_LONG_RUNNING, flags = upTo(7);
        const R_UINT count = 1 + upTo(thread != 0 ? 11 : 199);
        ran = 0;
        ASSERT_EQ(group->Create(count, flags, thread), SUCCESS);
        EXPECT_TRUE(group->IsThreaded());
        EXPECT_EQ(group->GetLock()->IsCreated() != 0, flags != 0);
        for (R_UINT i = 0; i < count; ++i) ASSERT_EQ(group->QueueItem(countItem, nullptr), SUCCESS);
        group->Wait();
        group.reset(); // while the last worker is on its way back
        ASSERT_EQ(ran, static_cast<int>(count)) << "round " << round << " of seed 5";
    }
    EXPECT_EQ(live.count(kHeap) + live.count(kObjects), 0) << live.text();
}

TEST(ThreadingGroups, AreCancelledByAnItemOrTheCallerWhileOthersRun)
{
    const TwoCores cores;
    for (const R_UINT flags : {0u, WORKITEMS_LOCK_CANCEL, WORKITEMS_LOCK_CANCEL | WORKITEMS_KEEP_STATUS}) {
        RVWorkItems group;
        constexpr int kItems = 3000;
        ran = 0;
        ASSERT_EQ(group.Create(kItems, flags, 0), SUCCESS);
        const auto item = [](RVWorkItems* g, void* cancels) -> R_INT {
            if (++ran == 100 && cancels == nullptr) g->Cancel();
            return ran == 100 ? ERROR_USER_ABORT : SUCCESS;
        };
        for (int i = 0; i < kItems - 1; ++i) ASSERT_EQ(group.QueueItem(item, i % 2 != 0 ? &group : nullptr), SUCCESS);
        ASSERT_TRUE(soon([&] { return group.IsCanceled() != 0; }));
        EXPECT_EQ(group.QueueItem(item, nullptr), SUCCESS); // not run, but waited for
        group.Wait();
        EXPECT_LT(ran, 110); // those that were running went on
        group.Destroy();
        EXPECT_TRUE(group.GetStatus() == SUCCESS && !group.IsCanceled() && !group.IsCreated() && !group.IsThreaded());
    }
}

TEST(ThreadingGroups, KeepTheStatusesThatTheirFlagsName)
{
    const auto answer = [](RVWorkItems*, void* data) -> R_INT { return *static_cast<R_INT*>(data); };
    const TwoCores cores;
    R_INT status = -7, abort = ERROR_USER_ABORT;
    for (const R_UINT flags : {0u, WORKITEMS_LOCK, WORKITEMS_KEEP_STATUS}) {
        RVWorkItems group;
        ASSERT_EQ(group.Create(1, flags, 0), SUCCESS);
        EXPECT_EQ(group.QueueItem(answer, &status), SUCCESS);
        group.Wait();
        EXPECT_EQ(group.GetStatus(), flags == WORKITEMS_KEEP_STATUS ? -7 : SUCCESS) << flags;
    }
    for (const bool oneCore : {false, true}) { // every item inline
        RVWorkItems group;
        {
            const PretendCores one(oneCore ? 1 : 2);
            detach();
            ASSERT_EQ(group.Create(5, oneCore ? WORKITEMS_LOCK : WORKITEMS_INLINE, 0), SUCCESS);
        }
        EXPECT_FALSE(group.IsThreaded() || group.GetLock()->IsCreated());
        EXPECT_EQ(group.QueueItem(answer, &abort), SUCCESS);
        EXPECT_EQ(group.GetStatus(), ERROR_USER_ABORT);
        EXPECT_FALSE(group.IsCanceled());
        group.Wait();
        group.Cancel();
        EXPECT_EQ(group.QueueItem(answer, &status), SUCCESS); // not run
        EXPECT_EQ(group.GetStatus(), ERROR_USER_ABORT);
    }
}

TEST(ThreadingGroups, MayWaitForItemsThatAreStillQueued)
{
    const TwoCores cores;
    ran = 0;
    const auto outer = [](RVWorkItems*, void*) -> R_INT {
        RVWorkItems inner;
        if (inner.Create(4, 0, 0) != SUCCESS) return ERROR_FAILURE;
        for (int i = 0; i < 4; ++i)
            if (inner.QueueItem(countItem, nullptr) != SUCCESS) return ERROR_FAILURE;
        inner.Wait();
        return SUCCESS;
    };
    RVWorkItems group;
    ASSERT_EQ(group.Create(16, WORKITEMS_KEEP_STATUS, 0), SUCCESS);
    for (int i = 0; i < 16; ++i) ASSERT_EQ(group.QueueItem(outer, nullptr), SUCCESS);
    group.Wait();
    EXPECT_EQ(group.GetStatus(), SUCCESS);
    EXPECT_EQ(ran, 64);

    const auto last = [](RVWorkItems* g, void*) -> R_INT { return g->Finish(), SUCCESS; };
    ASSERT_EQ(group.Create(0, 0, 0), SUCCESS); // without a count
    EXPECT_EQ(group.QueueItem(last, nullptr), SUCCESS);
    group.Wait();
}

TEST(Threading, SaysWhatTheSystemRefuses)
{
    const TwoCores cores;
    const LiveBlocks live;
    RVWorkItems group;
    RVWaitEvent event;
    {
        const NoMemory none(kFailObjects);
        EXPECT_EQ(group.Create(1, 0, 0), ERROR_FAILURE);
        EXPECT_FALSE(group.IsCreated() || group.IsThreaded());
        EXPECT_EQ(event.Create(0, 0), ERROR_FAILURE);
    }
    ASSERT_EQ(group.Create(2, 0, 0), SUCCESS);
    for (const unsigned kind : {kFailHeap, kFailThreads}) {
        const NoMemory none(kind);
        if (kind == kFailThreads) {
            EXPECT_EQ(group.QueueItem(countItem, nullptr), ERROR_FAILURE);
        }
        EXPECT_EQ(RVThreadPool::QueueUserWorkItem(countWork, nullptr, THREAD_DEDICATED), ERROR_FAILURE);
        EXPECT_EQ(R_RavoThreadCreateAndRun(countWork, nullptr, 0), ERROR_FAILURE);
    }
    EXPECT_EQ(group.QueueItem(nullptr, nullptr), ERROR_FAILURE);
    group.Cancel();
    for (int missing = 0; missing < 2; ++missing) EXPECT_EQ(group.QueueItem(countItem, nullptr), SUCCESS);
    group.Wait(); // for nobody
    EXPECT_EQ(RVThreadPool::QueueUserWorkItem(nullptr, nullptr, 0), ERROR_FAILURE);
    EXPECT_EQ(R_RavoThreadCreateAndRun(nullptr, nullptr, 0), ERROR_INV_PARAMETER);
    group.Destroy();

    EXPECT_TRUE(event.WaitOne(0) == 1 && event.Set() == 1 && event.Reset() == 1); // there is none
    ASSERT_EQ(event.Create(1, 1), SUCCESS);
    ASSERT_EQ(event.Create(0, 1), SUCCESS);
    const R_INT first = event.WaitOne(0), second = event.WaitOne(1);
    EXPECT_TRUE(first == 1 && second == ERROR_USER_ABORT);
    {
        const NoMemory none(kFailWaits);
        EXPECT_EQ(event.WaitOne(0), 0);
    }
    event.Destroy();
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(ThreadingLocks, LetReadersShareOnlyWhereTheyAreSlim)
{
    for (const bool slim : {true, false}) {
        const PretendLocks pretend(slim);
        const Unused anew;
        RVReaderWriterLock lock;
        {
            const LiveBlocks live;
            lock.Create();
            EXPECT_EQ(live.count(kSystemLocks), slim ? 0 : 1);
        }
        std::atomic<bool> inside{false};
        RVReaderWriterLockItem hold = lock.AcquireReaderLock();
        std::thread other([&] {
            const RVReaderWriterLockItem shared = RVReaderWriterLock::Acquire(&lock, 1);
            inside = true;
        });
        if (slim) {
            EXPECT_TRUE(soon([&] { return inside.load(); }));
        } else {
            gSystemPlatform.sleep(30);
            EXPECT_FALSE(inside);
        }
        const RVReaderWriterLockItem taken = hold; // once only: a second release would let the other in too early
        hold = RVReaderWriterLockItem();
        EXPECT_EQ(inside, slim);
        const_cast<RVReaderWriterLockItem&>(taken) = RVReaderWriterLockItem();
        other.join();
        const RVReaderWriterLock copy(lock);
        EXPECT_TRUE(lock.IsCreated() && !copy.IsCreated());

        // Writers have it to themselves, in the midst of readers that never leave it empty.
        int64_t value[2] = {};
        std::atomic<int> writing{2};
        const auto read = [&] {
            for (const uint64_t end = gSystemPlatform.ticks() + 20000; writing != 0 && gSystemPlatform.ticks() < end;) {
                const RVReaderWriterLockItem held = lock.AcquireReaderLock();
                EXPECT_EQ(value[0], value[1]);
            }
            EXPECT_EQ(writing, 0) << "writers starve";
        };
        const auto write = [&] {
            for (int i = 0; i < 500; ++i) {
                lock.Lock();
                ++value[0];
                ++value[1];
                lock.Unlock();
            }
            --writing;
        };
        std::thread threads[] = {std::thread(read), std::thread(read), std::thread(write), std::thread(write)};
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(value[0], 1000);
        lock.Destroy();
        const RVReaderWriterLockItem nothing = lock.AcquireWriterLock(); // and so nothing to leave
    }
}

TEST(ThreadingSlots, AreEachThreadsAndGoBackAtDetach)
{
    const Unused anew;
    const LiveBlocks live;
    const R_UINT slot = R_TlsAlloc(), kept = R_TlsAlloc();
    int value;
    EXPECT_EQ(R_TlsSetValue(slot, &value), SUCCESS);
    std::thread([&] { EXPECT_EQ(R_TlsGetValue(slot), nullptr); }).join();
    EXPECT_EQ(R_TlsGetValue(slot), &value);
    EXPECT_EQ(R_TlsFree(slot), SUCCESS);
    for (const R_UINT gone : {slot, 0xFFFFFFFFu, 5000u})
        EXPECT_TRUE(R_TlsFree(gone) == ERROR_INV_PARAMETER && R_TlsSetValue(gone, &value) == ERROR_INV_PARAMETER &&
                    R_TlsGetValue(gone) == nullptr);
    detach();
    EXPECT_EQ(R_TlsFree(kept), ERROR_INV_PARAMETER);
    EXPECT_EQ(live.count(kSlots), 0);
}

/// An item that stays until it is told to go, and counts then.
R_UINT spinUntilSet(void* flag)
{
    while (!*static_cast<std::atomic<bool>*>(flag)) gSystemPlatform.sleep(1);
    return countWork(nullptr);
}

TEST(ThreadingPool, StartsAnotherWorkerForItemsThatRunLong)
{
    const TwoCores cores;
    std::atomic<bool> set{false};
    ran = 0;
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(platform().queueWork(workOf(spinUntilSet, &set), true));
    ASSERT_TRUE(platform().queueWork(workOf(countWork, nullptr), false));
    EXPECT_TRUE(soon([] { return ran == 1; }));
    set = true;
    EXPECT_TRUE(soon([] { return ran == 7; }));
}

#if !defined(_WIN32)
TEST(ThreadingPool, RefusesAnItemThatItHasNoRoomForAndKeepsTheOthers)
{
    const PretendCores one(1);
    const Unused anew;
    const LiveBlocks live;
    std::atomic<bool> set{false};
    ran = 0;
    ASSERT_TRUE(platform().queueWork(workOf(spinUntilSet, &set), false));
    int queued = 1;
    {
        const NoMemory none(kFailHeap);
        while (platform().queueWork(workOf(countWork, nullptr), false)) ASSERT_LT(++queued, 1000);
    }
    for (int i = 0; i < 300; ++i, ++queued) ASSERT_TRUE(platform().queueWork(workOf(countWork, nullptr), false));
    set = true;
    platform().endWork();
    EXPECT_EQ(ran, queued);
    EXPECT_EQ(live.count(), 0) << live.text();
}

#if defined(__GLIBC__)
TEST(ThreadingPool, SaysThatItHasNoThreads)
{
    const TwoCores cores;
    pthread_attr_t usual, impossible;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&impossible);
    pthread_attr_setstacksize(&impossible, size_t{1} << 47);
    ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
    const LiveBlocks live;
    EXPECT_FALSE(platform().queueWork(workOf(countWork, nullptr), true));
    EXPECT_FALSE(platform().startThread(workOf(countWork, nullptr)));
    EXPECT_EQ(live.count(), 0) << live.text();
    pthread_setattr_default_np(&usual);
    pthread_attr_destroy(&usual);
    ran = 0;
    EXPECT_TRUE(platform().queueWork(workOf(countWork, nullptr), false));
    platform().endWork();
    EXPECT_EQ(ran, 1);
}
#endif

/// The same by an event.
R_UINT stay(void* event) { return static_cast<RVWaitEvent*>(event)->WaitOne(20000) == 1 ? countWork(nullptr) : 0; }

TEST(ThreadingPool, StaysBehindWhenTheProcessForks)
{
    const TwoCores cores;
    RVWaitEvent event;
    event.Create(1, 0);
    ran = 0;
    ASSERT_TRUE(platform().queueWork(workOf(stay, &event), false));
    ASSERT_TRUE(platform().queueWork(workOf(stay, &event), false));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);                // a hang is a failure
#if !defined(__SANITIZE_THREAD__) // which starts no thread in such a child
        if (!platform().queueWork(workOf(countWork, nullptr), false)) _exit(2);
#else
        ++ran;
#endif
        detach();
        _exit(ran == 1 ? 0 : 3);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    event.Set();
    platform().endWork();
    EXPECT_EQ(ran, 2);
}
#endif

} // namespace
