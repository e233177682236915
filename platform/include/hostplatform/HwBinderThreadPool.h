// Host stand-in for the process's hardware-binder thread pool: the thread on which one-way HIDL
// calls into this process arrive (callbacks such as IThermalChangedCallback::notifyThrottling).
// One worker thread per process, started on first use, runs the posted transactions one at a
// time in the order they were posted, as the device delivers one-way calls to an object. Code
// receiving such calls must not assume any particular thread. Thread-safe.
#pragma once

#include <functional>

namespace hostplatform {

// Queues `transaction` for the worker thread and returns at once: a one-way call never waits
// for its receiver.
void postOnewayTransaction(std::function<void()> transaction);

// Blocks until every transaction posted before this call has finished; transactions posted
// meanwhile are not waited for. On the worker thread itself it returns at once.
void waitForOnewayTransactions();

// Whether the caller is the worker thread.
bool onHwBinderThread();

}  // namespace hostplatform
