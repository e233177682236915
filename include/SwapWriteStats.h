// SwapWriteStats: bytes the kernel swapped out to swap devices other than zram0, i.e. swap
// traffic that reached storage: pswpout from /proc/vmstat minus what zram0 wrote
// (/sys/block/zram0/stat), never negative.
//
// sample() returns ("SwapHeartbeat", "1 Hour") on every call and reads nothing; the host reads
// the record after a successful snapshot. Calls are not synchronised.
#pragma once

#include <cstdint>

#include "Provider.h"

namespace Vistrel {

class SwapWriteStats : public Provider {
public:
    SwapWriteStats();
    ~SwapWriteStats() override;

    const char* name() const override;
    // Refreshes both fields; on a failed read logs the reason, returns false and changes neither.
    bool snapshot(IClockReader& clock, bool force) override;
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    int64_t timestamp = 0;       // clock.readTimestamp() at the last successful snapshot
    int64_t swapWriteBytes = 0;  // bytes swapped out since boot that did not go to zram0, >= 0
};

}  // namespace Vistrel
