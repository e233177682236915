// Ending a run on SIGINT, SIGTERM or SIGHUP.
//
// A signal handler could not ask the host to stop (it may only call async-signal-safe
// functions), so the stop signals are blocked in every thread and taken by one thread of their
// own with sigwait(), which then calls the given functions on that thread: one for the first
// stop signal (end the run in order), another for each later one (end the process at once, for
// a run that does not end: a read that never returns, an output that blocks).
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

namespace host {

class StopSignals {
public:
    // Blocks the stop signals in the calling thread and so in every thread it starts afterwards:
    // construct before any other thread (the simulated headset's included) starts.
    StopSignals();
    // finish(), if not called yet.
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // Starts the thread that calls `onFirst(signal)` for the first stop signal that arrives and
    // `onAgain(signal)` for every later one.
    void deliverTo(std::function<void(int)> onFirst, std::function<void(int)> onAgain);
    // Ends the waiting thread without calling either function: call before what they stop is
    // gone.
    void finish();

private:
    sigset_t signals_;
    std::atomic<bool> finishing_{false};
    std::thread waiter_;
};

}  // namespace host
