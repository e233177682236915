#include "HostClock.h"

#include <time.h>

namespace host {
namespace {

int64_t read(clockid_t id) {
    timespec ts{};
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

HostClock::HostClock(Mode mode)
    : mode_(mode),
      startBootNs_(read(CLOCK_BOOTTIME)),
      startWallMs_(read(CLOCK_REALTIME) / 1000000) {}

int64_t HostClock::deviceNs() const {
    return mode_ == Mode::Simulated ? simulatedNs_.load() : read(CLOCK_BOOTTIME) - startBootNs_;
}

void HostClock::advanceTo(int64_t ns) {
    if (ns > simulatedNs_.load()) simulatedNs_.store(ns);
}

int64_t HostClock::elapsedNs() {
    return mode_ == Mode::Simulated ? simulatedNs_.load() : read(CLOCK_BOOTTIME);
}

int64_t HostClock::nowNs() {
    return mode_ == Mode::Simulated ? simulatedNs_.load() : read(CLOCK_MONOTONIC);
}

int64_t HostClock::readTimestamp() {
    return mode_ == Mode::Simulated ? startWallMs_ + simulatedNs_.load() / 1000000
                                    : read(CLOCK_REALTIME) / 1000000;
}

}  // namespace host
