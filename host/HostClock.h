// The reference host's clock. Device time counts from the host's start: in real mode it follows
// the boot clock, in simulated mode it only moves when the scheduler advances it, so hours of
// device time run as fast as the providers' work allows.
//
//   elapsedNs()     real: CLOCK_BOOTTIME;  simulated: device time
//   nowNs()         real: CLOCK_MONOTONIC; simulated: device time
//   readTimestamp() wall-clock milliseconds since the Unix epoch (simulated: start + device time)
#pragma once

#include <atomic>
#include <cstdint>

#include "Provider.h"

namespace host {

class HostClock : public Vistrel::IClockReader {
public:
    enum class Mode { Real, Simulated };

    explicit HostClock(Mode mode);

    int64_t elapsedNs() override;
    int64_t readTimestamp() override;
    int64_t nowNs() override;

    Mode mode() const { return mode_; }
    // Nanoseconds since the host started. Thread-safe.
    int64_t deviceNs() const;
    // Simulated mode only: moves device time forward to `ns` (never backwards).
    void advanceTo(int64_t ns);

private:
    Mode mode_;
    std::atomic<int64_t> simulatedNs_{0};
    int64_t startBootNs_;
    int64_t startWallMs_;
};

}  // namespace host
