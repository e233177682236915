#include "StopSignals.h"

namespace host {

StopSignals::StopSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    sigaddset(&signals_, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
}

StopSignals::~StopSignals() {
    finish();
}

void StopSignals::finish() {
    if (!waiter_.joinable()) return;
    finishing_ = true;
    pthread_kill(waiter_.native_handle(), SIGTERM);  // wakes the waiter, which then calls nothing
    waiter_.join();
}

void StopSignals::deliverTo(std::function<void(int)> onFirst, std::function<void(int)> onAgain) {
    waiter_ = std::thread([this, onFirst = std::move(onFirst), onAgain = std::move(onAgain)] {
        for (bool first = true;; first = false) {
            int signal = 0;
            if (sigwait(&signals_, &signal) != 0 || finishing_) return;
            (first ? onFirst : onAgain)(signal);
        }
    });
}

}  // namespace host
