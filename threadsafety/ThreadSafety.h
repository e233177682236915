// Clang thread-safety annotations and the thin annotated lock types that carry them.
//
// libstdc++'s std::mutex and std::lock_guard carry no annotations, so state shared across
// threads is guarded by a Mutex from here and locked with a MutexLock:
//
//   threadsafety::Mutex mutex_;
//   int count_ GUARDED_BY(mutex_) = 0;
//   void add() EXCLUDES(mutex_) { threadsafety::MutexLock lock(mutex_); ++count_; }
//
// A clang build with -Wthread-safety then checks that every access holds the lock. Other
// compilers see plain std::mutex behaviour and no attributes. The macros are spelled exactly as
// the platform's <utils/Mutex.h> spells them, so either header may come first in a source.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#ifndef THREAD_ANNOTATION_ATTRIBUTE__
#if defined(__clang__) && (!defined(SWIG))
#define THREAD_ANNOTATION_ATTRIBUTE__(x) __attribute__((x))
#else
#define THREAD_ANNOTATION_ATTRIBUTE__(x)  // no-op
#endif
#endif

#ifndef CAPABILITY
#define CAPABILITY(x) THREAD_ANNOTATION_ATTRIBUTE__(capability(x))
#endif
#ifndef SCOPED_CAPABILITY
#define SCOPED_CAPABILITY THREAD_ANNOTATION_ATTRIBUTE__(scoped_lockable)
#endif
#ifndef GUARDED_BY
#define GUARDED_BY(x) THREAD_ANNOTATION_ATTRIBUTE__(guarded_by(x))
#endif
#ifndef PT_GUARDED_BY
#define PT_GUARDED_BY(x) THREAD_ANNOTATION_ATTRIBUTE__(pt_guarded_by(x))
#endif
#ifndef ACQUIRED_BEFORE
#define ACQUIRED_BEFORE(...) THREAD_ANNOTATION_ATTRIBUTE__(acquired_before(__VA_ARGS__))
#endif
#ifndef ACQUIRED_AFTER
#define ACQUIRED_AFTER(...) THREAD_ANNOTATION_ATTRIBUTE__(acquired_after(__VA_ARGS__))
#endif
#ifndef REQUIRES
#define REQUIRES(...) THREAD_ANNOTATION_ATTRIBUTE__(requires_capability(__VA_ARGS__))
#endif
#ifndef ACQUIRE
#define ACQUIRE(...) THREAD_ANNOTATION_ATTRIBUTE__(acquire_capability(__VA_ARGS__))
#endif
#ifndef RELEASE
#define RELEASE(...) THREAD_ANNOTATION_ATTRIBUTE__(release_capability(__VA_ARGS__))
#endif
#ifndef TRY_ACQUIRE
#define TRY_ACQUIRE(...) THREAD_ANNOTATION_ATTRIBUTE__(try_acquire_capability(__VA_ARGS__))
#endif
#ifndef EXCLUDES
#define EXCLUDES(...) THREAD_ANNOTATION_ATTRIBUTE__(locks_excluded(__VA_ARGS__))
#endif
#ifndef ASSERT_CAPABILITY
#define ASSERT_CAPABILITY(x) THREAD_ANNOTATION_ATTRIBUTE__(assert_capability(x))
#endif
#ifndef RETURN_CAPABILITY
#define RETURN_CAPABILITY(x) THREAD_ANNOTATION_ATTRIBUTE__(lock_returned(x))
#endif
#ifndef NO_THREAD_SAFETY_ANALYSIS
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION_ATTRIBUTE__(no_thread_safety_analysis)
#endif

namespace threadsafety {

// A std::mutex the analysis knows as a capability.
class CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    friend class ConditionVariable;
    std::mutex mutex_;
};

// Holds a Mutex for its scope, like std::lock_guard.
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex_;
};

// A condition variable over a Mutex the caller holds. The waits take no predicate: the caller
// loops on its condition itself, inside the function the analysis checks, e.g.
//   while (queue_.empty()) arrived_.wait(mutex_);
class ConditionVariable {
public:
    void wait(Mutex& mutex) REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        condition_.wait(lock);
        lock.release();  // the caller still holds it
    }
    // False when `deadline` passed first.
    template <class Clock, class Duration>
    bool waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
            REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        const bool notified = condition_.wait_until(lock, deadline) == std::cv_status::no_timeout;
        lock.release();
        return notified;
    }
    void notifyOne() { condition_.notify_one(); }
    void notifyAll() { condition_.notify_all(); }

private:
    std::condition_variable condition_;
};

}  // namespace threadsafety
