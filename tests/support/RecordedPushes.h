// Pushes through a provider's notification router as the host receives them, from whichever
// thread, each as "name/detail", with "/force" appended when forced. `token` shows whether
// anything (a listener, a callback) still holds a copy of the router.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Provider.h"
#include "ThreadSafety.h"
#include "hostplatform/HwBinderThreadPool.h"

namespace testing_support {

struct RecordedPushes {
    Vistrel::NotificationRouter router() {
        return [this, token = token](const std::string& name, const std::string& detail,
                                     bool force) {
            threadsafety::MutexLock lock(mutex);
            seen.push_back(name + "/" + detail + (force ? "/force" : ""));
        };
    }
    // Everything pushed, once the one-way calls sent so far have arrived.
    std::vector<std::string> delivered() EXCLUDES(mutex) {
        hostplatform::waitForOnewayTransactions();
        threadsafety::MutexLock lock(mutex);
        return seen;
    }

    threadsafety::Mutex mutex;
    std::vector<std::string> seen GUARDED_BY(mutex);
    std::shared_ptr<int> token = std::make_shared<int>(0);
};

}  // namespace testing_support
