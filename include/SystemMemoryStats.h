// SystemMemoryStats: system-wide memory every five minutes: available and used memory from
// /proc/meminfo, the memory pressure-stall averages from /proc/pressure/memory and how long the
// reading took. On request (getZramIdleMemStats, switched on by the property
// mobile_vistrel_zram_idle_collector) it also gathers zram0's idle-page statistics.
//
// The reading happens in sample(), which always returns ("SystemMemoryInfo", "Memory snapshot");
// snapshot() only reports whether a completed reading exists. Total memory is read by the
// first sample of the process and assumed constant afterwards. Calls are not synchronised.
#pragma once

#include <cstdint>

#include "Provider.h"

namespace Vistrel {

// zram0 idle-page statistics; every entry is all-ones when it was not read.
struct ZramIdleStats {
    uint32_t idleHistogram[16];    // idlehisto buckets; values past the 16th summed into it
    uint32_t idleClusterSizes[8];  // idle_cluster_sz entries; values past the 8th summed into it
    uint64_t simulatedBdStat[4];   // simulated_bd_stat figures
};

class SystemMemoryStats : public Provider {
public:
    SystemMemoryStats();
    ~SystemMemoryStats() override;

    const char* name() const override;
    // With force, runs sample() first; true when a reading has completed (ever), else logs.
    bool snapshot(IClockReader& clock, bool force) override;
    // Reads meminfo and PSI into the record. A failed meminfo read is not detected (figures 0);
    // a missing PSI file leaves the six PSI fields at -1.0.
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // Whether the property mobile_vistrel_zram_idle_collector is set and true (logged).
    bool getZramIdleMemStatsEnabled();
    // Sets every zramIdle entry to all-ones then, when enabled, asks the kernel for idle
    // statistics of pages older than mobile_vistrel_zram_idle_threshold seconds (default 300) in
    // buckets of mobile_vistrel_zram_idle_histo_bucket seconds (default 60) and reads them.
    // The request is written to calculate_idle_pg_stats unflushed and reaches the kernel when
    // the control file is closed after the reads, so the figures read belong to the previous
    // request. Returns &zramIdle, valid for the object's lifetime.
    ZramIdleStats* getZramIdleMemStats();

    int64_t timestampMs = 0;      // clock.elapsedNs() / 1000000 at the start of the sample
    int64_t readDurationMs = 0;   // boot-clock time spent reading meminfo and PSI
    uint64_t memAvailableKb = 0;  // "MemAvailable:"
    uint64_t memUsedKb = 0;       // total minus available, unsigned, not clamped
    // Pressure-stall averages in percent; -1.0 when the PSI file could not be read.
    float psiFullAvg10 = 0;
    float psiFullAvg60 = 0;
    float psiFullAvg300 = 0;
    float psiSomeAvg10 = 0;
    float psiSomeAvg60 = 0;
    float psiSomeAvg300 = 0;
    bool sampleValid = false;  // a sample has completed
    int64_t uptimeMs = 0;      // android_uptimeMillis() after the PSI read
    ZramIdleStats zramIdle{};

private:
    void readPsi();
};

}  // namespace Vistrel
