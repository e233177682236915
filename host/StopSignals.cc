#include "StopSignals.h"

namespace host {

StopSignals::StopSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
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

void StopSignals::deliverTo(std::function<void(int)> onSignal) {
    waiter_ = std::thread([this, onSignal = std::move(onSignal)] {
        int signal = 0;
        if (sigwait(&signals_, &signal) == 0 && !finishing_) onSignal(signal);
    });
}

}  // namespace host
