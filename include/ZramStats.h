// ZramStats: memory statistics of the compressed-swap device zram0, copied whole from
// /sys/block/zram0/mm_stat (byte and page figures as the kernel reports them).
//
// sample() returns ("ZramHeartbeat", "15 minutes") on every call and reads nothing; the host
// reads the record after a successful snapshot. An mm_stat whose column count is not ten gives
// a successful snapshot of all-zero fields. Calls are not synchronised.
#pragma once

#include <cstdint>

#include "Provider.h"

namespace Vistrel {

class ZramStats : public Provider {
public:
    ZramStats();
    ~ZramStats() override;

    const char* name() const override;
    // Refreshes all ten fields; when mm_stat cannot be read logs the failure, returns false and
    // keeps the previous values.
    bool snapshot(IClockReader& clock, bool force) override;
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    int64_t origDataSize = 0;    // bytes of uncompressed data stored
    int64_t comprDataSize = 0;   // bytes of compressed data
    int64_t memUsedTotal = 0;    // bytes used, allocator overhead included
    int64_t memLimit = 0;        // bytes, 0 when unlimited
    int64_t memUsedMax = 0;      // peak bytes used
    int64_t samePages = 0;       // pages stored as a repeated pattern
    int64_t pagesCompacted = 0;  // pages freed by compaction
    int64_t hugePages = 0;       // incompressible pages stored whole
    int64_t hugePagesSince = 0;  // incompressible pages since the device was set up
    int64_t column10 = 0;        // tenth mm_stat column of the device kernel, carried through
};

}  // namespace Vistrel
