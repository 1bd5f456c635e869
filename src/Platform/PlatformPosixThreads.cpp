// Reader/writer locks, threads and the pool on POSIX systems.
//
// There is one pool, made when it is first needed. It has as many workers as cores, and one more for each worker that
// is away: in an item that may run long, or waiting for an event. Its mutex is never held while an item runs.
#include "Platform/PlatformPosixThreads.h"

#include <csignal>
#include <cstring>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

namespace rv {

// --- Reader/writer locks

static_assert(sizeof(pthread_rwlock_t) <= sizeof(LockStorage) && alignof(pthread_rwlock_t) <= alignof(LockStorage));

namespace {

pthread_rwlock_t* slimOf(LockStorage* lock) noexcept { return std::launder(reinterpret_cast<pthread_rwlock_t*>(lock)); }

} // namespace

bool Platform::slimLocks() noexcept { return true; }

void Platform::createSlimLock(LockStorage* lock) noexcept
{
    auto* const slim = new (lock) pthread_rwlock_t;
    pthread_rwlockattr_t attributes;
    pthread_rwlockattr_init(&attributes);
#if defined(__GLIBC__)
    // By default a stream of readers that overlap keeps writers out for ever.
    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
#endif
    pthread_rwlock_init(slim, &attributes);
    pthread_rwlockattr_destroy(&attributes);
}

void Platform::enterSlimLock(LockStorage* lock, bool shared) noexcept
{
    if (shared) {
        pthread_rwlock_rdlock(slimOf(lock));
    } else {
        pthread_rwlock_wrlock(slimOf(lock));
    }
}

void Platform::leaveSlimLock(LockStorage* lock, bool) noexcept { pthread_rwlock_unlock(slimOf(lock)); }
void Platform::destroySlimLock(LockStorage* lock) noexcept { pthread_rwlock_destroy(slimOf(lock)); }

// --- The pool

/// What a thread that was started here knows of itself; on its stack.
struct Member {
    uint64_t age; ///< the pool's, when the thread began
    bool away;
};

namespace {

struct Job {
    Work work;
    bool mayRunLong;
};

/// A ring. The room for a few jobs is always there, more comes and goes with the jobs.
class JobQueue {
public:
    uint32_t size() const noexcept { return size_; }
    bool push(const Job& job) noexcept
    {
        if (size_ == capacity_ && !grow()) return false;
        room()[(first_ + size_++) & (capacity_ - 1)] = job;
        return true;
    }
    Job pop() noexcept
    {
        const Job job = room()[first_];
        first_ = (first_ + 1) & (capacity_ - 1);
        --size_;
        return job;
    }
    /// What an empty queue has no use for; the caller's to release.
    void* takeSpareRoom() noexcept
    {
        if (size_ != 0 || more_ == nullptr) return nullptr;
        void* const spare = more_;
        more_ = nullptr;
        capacity_ = kFew;
        first_ = 0;
        return spare;
    }
    /// Forgets all jobs.
    void* clear() noexcept
    {
        size_ = 0;
        return takeSpareRoom();
    }

private:
    static constexpr uint32_t kFew = 64; // a power of two, like every capacity

    Job* room() noexcept { return more_ != nullptr ? more_ : few_; }
    bool grow() noexcept;

    Job few_[kFew] = {};
    Job* more_ = nullptr;
    uint32_t capacity_ = kFew;
    uint32_t first_ = 0;
    uint32_t size_ = 0;
};

bool JobQueue::grow() noexcept
{
    if (capacity_ > UINT32_MAX / 4) return false;
    auto* const wider = static_cast<Job*>(platform().allocate(2 * capacity_ * sizeof(Job)));
    if (wider == nullptr) return false;
    const uint32_t toEnd = capacity_ - first_; // the queue is full: it goes round from first_ to first_
    std::memcpy(wider, room() + first_, toEnd * sizeof(Job));
    std::memcpy(wider + toEnd, room(), first_ * sizeof(Job));
    platform().release(more_);
    more_ = wider;
    capacity_ *= 2;
    first_ = 0;
    return true;
}

/// More threads than this are no help to anybody, however many workers are away.
constexpr uint32_t kMostWorkers = 512;

struct Pool {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // guards all that follows
    pthread_cond_t wake = PTHREAD_COND_INITIALIZER;    // sleeping workers hear it
    pthread_cond_t left = PTHREAD_COND_INITIALIZER;    // a thread is about to end
    JobQueue queue;
    uint64_t age = 0; // counts forks: threads of another age have stayed behind in the parent
    uint32_t cores = 0;
    uint32_t workers = 0;
    uint32_t sleeping = 0; // of the workers
    uint32_t waking = 0;   // of the sleeping: told to wake, but not back yet
    uint32_t away = 0;     // items that may run long, queued or running, and workers that wait
    uint32_t threads = 0;  // workers and threads of their own that have not left
    bool ending = false;
    bool anyEnded = false;
    pthread_t lastEnded{}; // has left, is yet to be joined
    bool forkHandled = false;
    std::atomic<bool> ready{false}; // there is a key
    pthread_key_t key{};            // each thread's Member
};
constinit Pool pool;

class PoolLock {
public:
    PoolLock() noexcept { lock(); }
    ~PoolLock()
    {
        if (held_) unlock();
    }
    PoolLock(const PoolLock&) = delete;
    PoolLock& operator=(const PoolLock&) = delete;
    void lock() noexcept
    {
        pthread_mutex_lock(&pool.mutex);
        held_ = true;
    }
    void unlock() noexcept
    {
        held_ = false;
        pthread_mutex_unlock(&pool.mutex);
    }

private:
    bool held_ = false;
};

/// The calling thread, where it was started here.
Member* self() noexcept
{
    if (!pool.ready.load(std::memory_order_acquire)) return nullptr;
    return static_cast<Member*>(pthread_getspecific(pool.key));
}

// A child has the thread that forked and no other. The mutex is held meanwhile, so that the child finds the pool whole.
void beforeFork() noexcept { pthread_mutex_lock(&pool.mutex); }
void afterForkInParent() noexcept { pthread_mutex_unlock(&pool.mutex); }

void afterForkInChild() noexcept
{
    new (&pool.mutex) pthread_mutex_t(PTHREAD_MUTEX_INITIALIZER);
    new (&pool.wake) pthread_cond_t(PTHREAD_COND_INITIALIZER);
    new (&pool.left) pthread_cond_t(PTHREAD_COND_INITIALIZER);
    ++pool.age;
    pool.workers = pool.sleeping = pool.waking = pool.away = pool.threads = 0;
    pool.ending = pool.anyEnded = false;
    if (void* const spare = pool.queue.clear()) platform().release(spare);
}

/// Makes what every thread needs, where it is not there. The pool is locked.
bool makeReady() noexcept
{
    if (pool.ready.load(std::memory_order_relaxed)) return true;
    if (!pool.forkHandled) {
        if (pthread_atfork(&beforeFork, &afterForkInParent, &afterForkInChild) != 0) return false;
        pool.forkHandled = true;
    }
    if (pthread_key_create(&pool.key, nullptr) != 0) return false;
    const uint32_t cores = platform().coreCount();
    pool.cores = cores != 0 ? cores : 1;
    pool.ready.store(true, std::memory_order_release);
    return true;
}

/// Starts a thread that counts. Signals are the program's, whose handlers do not expect to run here; those that a fault
/// raises come to the thread that has it.
bool start(void* (*run)(void*), void* argument) noexcept
{
    sigset_t all, before;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF}) sigdelset(&all, fault);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    pthread_t thread;
    const bool started = pthread_create(&thread, nullptr, run, argument) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started) ++pool.threads;
    return started;
}

/// The last thing a thread does. Threads are joined, not detached: the library may be unmapped once all have ended, and
/// one that has said so still runs a few instructions of it. Each joins the one that left before it.
void leave(PoolLock& hold) noexcept
{
    const bool another = pool.anyEnded;
    const pthread_t previous = pool.lastEnded;
    pool.anyEnded = true;
    pool.lastEnded = pthread_self();
    --pool.threads;
    pthread_cond_broadcast(&pool.left);
    hold.unlock();
    if (another) pthread_join(previous, nullptr);
}

uint32_t workersWanted() noexcept
{
    const uint64_t wanted = uint64_t{pool.cores} + pool.away;
    return wanted < kMostWorkers ? static_cast<uint32_t>(wanted) : kMostWorkers;
}

// A worker that has been woken looks at the queue, whoever woke it and for what; it wakes the next where there is more
// than it takes. So a burst of items costs few calls of the system.
void wakeOne() noexcept
{
    if (pool.sleeping == pool.waking) return;
    ++pool.waking;
    pthread_cond_signal(&pool.wake);
}

void sleepUntilWoken() noexcept
{
    ++pool.sleeping;
    pthread_cond_wait(&pool.wake, &pool.mutex);
    --pool.sleeping;
    if (pool.waking != 0) --pool.waking;
}

void runOne(PoolLock& hold, Member* member) noexcept
{
    const Job job = pool.queue.pop();
    void* const spare = pool.queue.takeSpareRoom();
    if (pool.queue.size() != 0) wakeOne();
    member->away = job.mayRunLong;
    hold.unlock();
    if (spare != nullptr) platform().release(spare);
    job.work.run(job.work);
    hold.lock();
    if (member->age == pool.age && job.mayRunLong) --pool.away;
}

void* workerThread(void*) noexcept
{
    PoolLock hold;
    Member member{pool.age, false};
    pthread_setspecific(pool.key, &member);
    while (member.age == pool.age) {
        if (pool.queue.size() != 0) {
            runOne(hold, &member);
        } else if (pool.ending || pool.workers > workersWanted()) {
            --pool.workers;
            leave(hold);
            break;
        } else {
            sleepUntilWoken();
        }
    }
    return nullptr;
}

/// Sees to it that somebody takes the last job of the queue. The pool is locked.
void findWorker() noexcept
{
    if (pool.queue.size() > pool.sleeping && pool.workers < workersWanted() && start(&workerThread, nullptr)) {
        ++pool.workers;
    } else if (pool.waking == 0) {
        wakeOne();
    }
}

void* dedicatedThread(void* argument) noexcept
{
    const Work work = *static_cast<Work*>(argument);
    platform().release(argument); // before it begins
    PoolLock hold;
    Member member{pool.age, true};
    pthread_setspecific(pool.key, &member);
    hold.unlock();
    work.run(work);
    hold.lock();
    if (member.age == pool.age) leave(hold);
    return nullptr;
}

} // namespace

WorkerAway::WorkerAway() noexcept : member_(self())
{
    if (member_ == nullptr) return;
    const PoolLock hold;
    if (member_->away || member_->age != pool.age) {
        member_ = nullptr;
        return;
    }
    member_->away = true;
    ++pool.away;
    if (pool.queue.size() != 0) findWorker();
}

WorkerAway::~WorkerAway()
{
    if (member_ == nullptr) return;
    const PoolLock hold;
    member_->away = false;
    if (member_->age == pool.age) --pool.away;
}

bool Platform::startThread(const Work& work) noexcept
{
    void* const memory = allocate(sizeof(Work));
    if (memory == nullptr) return false;
    new (memory) Work(work);
    bool started;
    {
        const PoolLock hold;
        started = makeReady() && start(&dedicatedThread, memory);
    }
    if (!started) release(memory);
    return started;
}

bool Platform::queueWork(const Work& work, bool mayRunLong) noexcept
{
    const PoolLock hold;
    if (!makeReady() || !pool.queue.push({work, mayRunLong})) return false;
    if (mayRunLong) ++pool.away;
    findWorker();
    if (pool.workers != 0) return true;
    pool.queue.pop(); // no worker could be started: it is the only one
    if (mayRunLong) --pool.away;
    return false;
}

/// A thread of the pool's own may call this, where an item ends the process: it does not wait for itself.
void Platform::endWork() noexcept
{
    const WorkerAway away;
    PoolLock hold;
    if (!pool.ready.load(std::memory_order_relaxed)) return;
    const Member* const member = self();
    const bool own = member != nullptr && member->age == pool.age;
    pool.ending = true;
    pthread_cond_broadcast(&pool.wake);
    while (pool.threads > (own ? 1u : 0u)) pthread_cond_wait(&pool.left, &pool.mutex);
    pool.ending = false;
    const bool any = pool.anyEnded;
    const pthread_t last = pool.lastEnded;
    pool.anyEnded = false;
    if (!own) {
        pool.ready.store(false, std::memory_order_release);
        pthread_key_delete(pool.key);
    }
    hold.unlock();
    if (any) pthread_join(last, nullptr);
}

uint32_t Platform::coreCount() noexcept
{
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) return static_cast<uint32_t>(CPU_COUNT(&allowed));
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<uint32_t>(online) : 0;
}

} // namespace rv
