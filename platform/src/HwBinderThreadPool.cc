#include "hostplatform/HwBinderThreadPool.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

namespace hostplatform {
namespace {

// Transactions are numbered as they are posted; `finished_` counts those that have run, so a
// waiter only needs the number of the last one posted before it started waiting.
class ThreadPool {
public:
    ThreadPool() : worker_([this] { run(); }) {}
    // Process exit: the transaction in progress completes, queued ones are dropped.
    ~ThreadPool() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        posted_.notify_all();
        worker_.join();
    }

    void post(std::function<void()> transaction) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            queue_.push_back(std::move(transaction));
            ++postedCount_;
        }
        posted_.notify_one();
    }

    void waitForPosted() {
        if (onWorker()) return;
        std::unique_lock<std::mutex> lock(mutex_);
        const uint64_t target = postedCount_;
        finished_.wait(lock, [&] { return finishedCount_ >= target || stopping_; });
    }

    bool onWorker() const { return std::this_thread::get_id() == worker_.get_id(); }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            posted_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            if (stopping_) return;
            std::function<void()> transaction = std::move(queue_.front());
            queue_.pop_front();
            lock.unlock();
            transaction();
            transaction = nullptr;  // release what it captured before counting it finished
            lock.lock();
            ++finishedCount_;
            finished_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    std::condition_variable finished_;
    std::deque<std::function<void()>> queue_;
    uint64_t postedCount_ = 0;
    uint64_t finishedCount_ = 0;
    bool stopping_ = false;
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
