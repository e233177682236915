#include "hostplatform/HwBinderThreadPool.h"

#include <cstdint>
#include <deque>
#include <thread>

#include "ThreadSafety.h"

namespace hostplatform {
namespace {

// Transactions are numbered as they are posted; `finished_` counts those that have run, so a
// waiter only needs the number of the last one posted before it started waiting.
class ThreadPool {
public:
    ThreadPool() : worker_([this] { run(); }) {}
    // Process exit: the transaction in progress completes, queued ones are dropped.
    ~ThreadPool() EXCLUDES(mutex_) {
        {
            threadsafety::MutexLock lock(mutex_);
            stopping_ = true;
        }
        posted_.notifyAll();
        worker_.join();
    }

    void post(std::function<void()> transaction) EXCLUDES(mutex_) {
        {
            threadsafety::MutexLock lock(mutex_);
            queue_.push_back(std::move(transaction));
            ++postedCount_;
        }
        posted_.notifyOne();
    }

    void waitForPosted() EXCLUDES(mutex_) {
        if (onWorker()) return;
        threadsafety::MutexLock lock(mutex_);
        const uint64_t target = postedCount_;
        while (finishedCount_ < target && !stopping_) finished_.wait(mutex_);
    }

    bool onWorker() const { return std::this_thread::get_id() == worker_.get_id(); }

private:
    // The worker: runs each transaction with the lock released.
    void run() EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        for (;;) {
            while (!stopping_ && queue_.empty()) posted_.wait(mutex_);
            if (stopping_) return;
            std::function<void()> transaction = std::move(queue_.front());
            queue_.pop_front();
            mutex_.unlock();
            transaction();
            transaction = nullptr;  // release what it captured before counting it finished
            mutex_.lock();
            ++finishedCount_;
            finished_.notifyAll();
        }
    }

    threadsafety::Mutex mutex_;
    threadsafety::ConditionVariable posted_;
    threadsafety::ConditionVariable finished_;
    std::deque<std::function<void()>> queue_ GUARDED_BY(mutex_);
    uint64_t postedCount_ GUARDED_BY(mutex_) = 0;
    uint64_t finishedCount_ GUARDED_BY(mutex_) = 0;
    bool stopping_ GUARDED_BY(mutex_) = false;
    std::thread worker_;  // last: starts once everything above exists
};

ThreadPool& pool() {
    static ThreadPool instance;
    return instance;
}

}  // namespace

void postOnewayTransaction(std::function<void()> transaction) {
    pool().post(std::move(transaction));
}

void waitForOnewayTransactions() {
    pool().waitForPosted();
}

bool onHwBinderThread() {
    return pool().onWorker();
}

}  // namespace hostplatform
