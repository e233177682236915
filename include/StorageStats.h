// StorageStats: capacity of the "/data" file system, with a low-storage alarm at 90 % use and a
// one-hour limit on its own sampling.
//
// sample() refreshes the record at most once an hour: within an hour of the last successful
// snapshot (whoever called it, forced or not) it logs a warning and returns nothing; otherwise
// it snapshots and returns ("LowStorage", "Equal to or larger than 90% Disk Usage") or
// ("StorageHeartbeat", "1 Hour"). A host that snapshots more often than hourly therefore keeps
// sample() from ever notifying. The record is read by the host after a successful snapshot.
// Calls are not synchronised.
#pragma once

#include <cstdint>

#include "Provider.h"

namespace Vistrel {

class StorageStats : public Provider {
public:
    StorageStats();
    ~StorageStats() override;

    const char* name() const override;
    // Refreshes the record from statvfs("/data"); false (nothing logged, record unchanged) when
    // statvfs fails. With force, runs sample() first, which may itself query the file system.
    bool snapshot(IClockReader& clock, bool force) override;
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // Byte figures are block counts times f_bsize.
    int64_t totalBytes = 0;
    int64_t availableBytes = 0;  // available to unprivileged writers (f_bavail)
    int64_t freeBytes = 0;       // free including reserved blocks (f_bfree)
    bool lowStorage = false;     // availableBytes below 10 % of totalBytes
    int64_t lastSnapshotNs = 0;  // clock.nowNs() at the last successful snapshot; 0 before
};

}  // namespace Vistrel
