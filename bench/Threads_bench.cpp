// Queued work that does nothing: what is left is what queueing costs.
#include "Support.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace rv::bench {

namespace {

constexpr R_UINT kItems = 100000;

R_INT nothing(RVWorkItems*, void*) { return SUCCESS; }

Step byWorkItems()
{
    const auto group = std::make_shared<RVWorkItems>();
    return [=] {
        if (group->Create(kItems, 0, 0) != SUCCESS) return false;
        for (R_UINT i = 0; i < kItems; ++i)
            if (group->QueueItem(nothing, nullptr) != SUCCESS) return false;
        group->Wait();
        return true;
    };
}

/// What the others count down, and who waits for it.
class Countdown {
public:
    explicit Countdown(R_UINT count) : left_(count) {}
    void count()
    {
        if (--left_ != 0) return;
        const std::lock_guard hold(mutex_);
        done_ = true;
        changed_.notify_one();
    }
    void wait()
    {
        std::unique_lock hold(mutex_);
        changed_.wait(hold, [this] { return done_; });
    }

private:
    std::atomic<R_UINT> left_;
    bool done_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
};

R_UINT countDown(void* countdown) { return static_cast<Countdown*>(countdown)->count(), 0; }

Step byPool()
{
    return [] {
        Countdown countdown(kItems);
        for (R_UINT i = 0; i < kItems; ++i)
            if (RVThreadPool::QueueUserWorkItem(countDown, &countdown, 0) != SUCCESS) return false;
        countdown.wait();
        return true;
    };
}

/// What one writes in half an hour: a queue of functions behind a mutex, and as many threads as cores.
class PlainPool {
public:
    PlainPool()
    {
        for (unsigned i = 0; i < std::max(1u, std::thread::hardware_concurrency()); ++i)
            threads_.emplace_back([this] { run(); });
    }
    ~PlainPool()
    {
        {
            const std::lock_guard hold(mutex_);
            ending_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) thread.join();
    }
    void queue(std::function<void()> work)
    {
        {
            const std::lock_guard hold(mutex_);
            queue_.push_back(std::move(work));
        }
        changed_.notify_one();
    }

private:
    void run()
    {
        std::unique_lock hold(mutex_);
        while (true) {
            changed_.wait(hold, [this] { return ending_ || !queue_.empty(); });
            if (queue_.empty()) return;
            const std::function<void()> work = std::move(queue_.front());
            queue_.pop_front();
            hold.unlock();
            work();
            hold.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> queue_;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

Step byPlainPool()
{
    const auto pool = std::make_shared<PlainPool>();
    return [=] {
        Countdown countdown(kItems);
        for (R_UINT i = 0; i < kItems; ++i) pool->queue([&countdown] { countdown.count(); });
        countdown.wait();
        return true;
    };
}

Step byAsync()
{
    return [] {
        std::vector<std::future<void>> all;
        for (R_UINT i = 0; i < kItems; ++i) {
            all.push_back(std::async(std::launch::async, [] {}));
            if (all.size() == 1000) all.clear(); // which waits: so many threads at a time are enough
        }
        return true;
    };
}

} // namespace

void registerThreads()
{
    measure("100,000 work items", "kernel", byWorkItems);
    measure("100,000 work items", "kernel's pool", byPool);
    measure("100,000 work items", "plain pool", byPlainPool);
    measure("100,000 work items", "std::async", byAsync);
}

} // namespace rv::bench
