// CpuStats: where the headset's CPUs spend their time, from the SDK's instruction sampler.
//
// acquireResources() begins a sampling session. The collector then works in five-minute
// heartbeat periods: sampleRate() is 240000 ms until 240 s into a period, then 10000 ms, so the
// host samples once at about 240 s and every 10 s after that. Each sample reads the sampler's
// profile buffer and parses its "features" and "feature-ids" sections and its thread table;
// during the last minute each sample also appends the per-interval deltas. The sample at 300 s
// returns ("ProcessCpuHeartbeat", "300.000000 seconds") and starts the next period. snapshot()
// reduces the accumulated intervals to featureStats, featureIdStats and processStats (each
// disengaged when a reading is missing) and clears them.
//
// All sampling state lives in the namespace-level variables below: one set per process, shared
// by every CpuStats instance. Locks: heartbeatMutex covers lastHeartbeatNs (acquire and the
// heartbeat decision in sample), `mtx` is held for the whole of snapshot(); nothing else is
// locked, so the host must not overlap sample() with snapshot() or sampleRate().
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Provider.h"
#include "ThreadSafety.h"
#include "platkit/instsamp/IInstructionSampler.h"

namespace Vistrel {

using Platkit::InstructionSampler::v4::IInstructionSampler;
using Platkit::InstructionSampler::v4::ProfileBuffer;
using Platkit::InstructionSampler::v4::SampleConfiguration;
using Platkit::InstructionSampler::v4::ThreadInfo;

// One interval of one thread.
struct ProcessCpuUsage {
    std::vector<uint64_t> delta;  // samples per CPU in the interval
    double intervalMs;
};

// The statistics of one reported thread name over the accumulated intervals. Rates are samples
// per millisecond; times are milliseconds.
struct ProcessCpuStats {
    double total;        // samples over all CPUs and intervals
    double meanRate;     // total / totalTimeMs
    double maxRate;      // highest interval rate (initially 0)
    double minRate;      // lowest interval rate (initially the largest finite double)
    double totalTimeMs;  // sum of the interval lengths
    std::vector<double> perCpuMeanRate;
    std::vector<double> perCpuMaxRate;
    std::vector<double> perCpuMinRate;
};

// Seven values: mean rate, maximum rate, minimum rate, total time (ms), active mean rate, active
// minimum rate, active time (ms); "active" intervals are those with a non-zero delta.
using FeatureCpuStats = std::vector<double>;
using FeatureStatsMap = std::unordered_map<std::string, FeatureCpuStats>;
using ProcessStatsMap = std::unordered_map<std::string, ProcessCpuStats>;

// Readings: name (or thread id) to cumulative samples per CPU (numCpus_ of them).
using FeatureReading = std::unordered_map<std::string, std::vector<uint64_t>>;
using ThreadReading = std::unordered_map<int32_t, std::vector<uint64_t>>;
// Accumulated intervals: name to {delta summed over the CPUs, interval length in ms}.
using FeatureIntervals = std::unordered_map<std::string, std::vector<std::pair<uint64_t, double>>>;

// ---- Module-level sampling state (one set per process) ----
extern SampleConfiguration sampleConfiguration_;
extern std::shared_ptr<IInstructionSampler> instructionSampler_;
extern ProfileBuffer* profileBuffer_;  // the sampler's, valid until its next read
extern int32_t numCpus_;               // from the profile buffer at acquire time
extern bool inLastMinute_;             // deltas are accumulated only while set
extern threadsafety::Mutex mtx;        // held for the whole of snapshot()
extern std::unique_ptr<FeatureReading> previousNamedFeatureBuffer_, currentNamedFeatureBuffer_;
extern double previousNamedFeatureBufferTimestamp, currentNamedFeatureBufferTimestamp;  // seconds
extern std::unique_ptr<FeatureReading> previousFeatureIdBuffer_, currentFeatureIdBuffer_;
extern double previousFeatureIdBufferTimestamp, currentFeatureIdBufferTimestamp;  // seconds
extern std::unique_ptr<ThreadReading> previousProcessSnapshot_, currentProcessSnapshot_;
extern double previousProcessSnapshotTimestamp, currentProcessSnapshotTimestamp;  // seconds
extern std::unique_ptr<std::unordered_map<int32_t, ThreadInfo>> tidMap;
extern std::unique_ptr<std::unordered_map<int32_t, std::vector<ProcessCpuUsage>>> tidToInfoMap;
extern std::unique_ptr<FeatureIntervals> featureToInfoMap;
extern std::unique_ptr<FeatureIntervals> featureIdToInfoMap;

class CpuStats : public Provider {
public:
    CpuStats();
    ~CpuStats() override;

    const char* name() const override;
    // Creates the sampler (interface version 4), begins the session with the sampling period of
    // getSamplingPeriodUs(), reads the first profile buffer for the CPU count and starts the
    // heartbeat period. The router is not used. False (logged) on any failure.
    bool acquireResources(NotificationRouter router, IClockReader& clock) override
            EXCLUDES(heartbeatMutex);
    // Ends the session and drops the sampler; false (logged) when there is none.
    bool releaseResources() override;
    // Reduces and clears the accumulated state; never samples (with force it only logs).
    bool snapshot(IClockReader& clock, bool force) override EXCLUDES(mtx);
    std::optional<Notification> sample(IClockReader& clock) override EXCLUDES(heartbeatMutex);
    // {10000 ms} in the last minute of a heartbeat period, else {240000 ms}.
    SamplePeriod sampleRate() const override;

    // Microseconds between samples of the session: the system property
    // vistrel_instruction_sampler_sampling_period_us, or 2000 when unset; 0 disables sampling.
    virtual uint32_t getSamplingPeriodUs() const;

    ProfileBuffer* getProfileBuffer() const;
    // Shares ownership: the sampler lives on while the copy does, and the copy's last release
    // runs the SDK's destroy function on the releasing thread.
    std::shared_ptr<IInstructionSampler> getIInstructionSampler() const;

    // ---- Processing of one profile buffer, and the snapshot's reductions ----
    // Each read rotates the current reading into the previous slot, then stores the buffer's
    // reading as current (false, with the current slot empty, when the buffer lacks it); in the
    // last minute of a period it appends one interval per entry to the accumulated state.
    bool processNamedFeatures(ProfileBuffer* buffer);  // section "features"
    bool processFeatureIds(ProfileBuffer* buffer);     // section "feature-ids"
    bool processCpuSample(ProfileBuffer* buffer);      // the thread table
    // processCpuSample() and updateTidToNameMap() ask instructionSampler_ for thread names, so
    // they need a sampler. Replaces tidMap by the sampler's names for `ids` (taken over);
    // empty names are left out.
    bool updateTidToNameMap(std::vector<int32_t>& ids);
    bool updateProcessInfoMap();
    bool updateFeatureInfoMap();
    bool updateFeatureIdInfoMap();
    std::optional<FeatureStatsMap> generateFeatureSnapshot();
    std::optional<FeatureStatsMap> generateFeatureIdsSnapshot();
    std::optional<ProcessStatsMap> generateProcessSnapshot();
    ProcessCpuStats buildProcessCpuStats(const std::vector<ProcessCpuUsage>& intervals);
    // "1 2 3 " for {1, 2, 3}: each count followed by one space.
    std::string creditsToString(const std::vector<uint64_t>& counts);

    // nowNs() at the start of the current heartbeat period.
    int64_t lastHeartbeatNs GUARDED_BY(heartbeatMutex) = 0;
    // Record, read by the host after a successful snapshot.
    std::optional<FeatureStatsMap> featureStats;
    std::optional<FeatureStatsMap> featureIdStats;
    std::optional<ProcessStatsMap> processStats;
    threadsafety::Mutex heartbeatMutex;
};

}  // namespace Vistrel
