#include "CpuStats.h"

#include <cfloat>
#include <cstdlib>
#include <cstring>

#include "ProfileBufferFormat.h"
#include "ProviderSupport.h"
#include "SharedOsServicesProperties.sysprop.h"
#include "Timing.h"

namespace Vistrel {

SampleConfiguration sampleConfiguration_;
std::shared_ptr<IInstructionSampler> instructionSampler_;
ProfileBuffer* profileBuffer_ = nullptr;
int32_t numCpus_ = 0;
bool inLastMinute_ = false;
threadsafety::Mutex mtx;
std::unique_ptr<FeatureReading> previousNamedFeatureBuffer_, currentNamedFeatureBuffer_;
double previousNamedFeatureBufferTimestamp = 0, currentNamedFeatureBufferTimestamp = 0;
std::unique_ptr<FeatureReading> previousFeatureIdBuffer_, currentFeatureIdBuffer_;
double previousFeatureIdBufferTimestamp = 0, currentFeatureIdBufferTimestamp = 0;
std::unique_ptr<ThreadReading> previousProcessSnapshot_, currentProcessSnapshot_;
double previousProcessSnapshotTimestamp = 0, currentProcessSnapshotTimestamp = 0;
std::unique_ptr<std::unordered_map<int32_t, ThreadInfo>> tidMap;
std::unique_ptr<std::unordered_map<int32_t, std::vector<ProcessCpuUsage>>> tidToInfoMap =
        std::make_unique<std::unordered_map<int32_t, std::vector<ProcessCpuUsage>>>();
std::unique_ptr<FeatureIntervals> featureToInfoMap = std::make_unique<FeatureIntervals>();
std::unique_ptr<FeatureIntervals> featureIdToInfoMap = std::make_unique<FeatureIntervals>();

namespace {

constexpr double kHeartbeatSeconds = 300.0;
constexpr double kLastMinuteSeconds = 240.0;
constexpr int64_t kLastMinutePeriodMs = 10000;
constexpr int64_t kEarlyPeriodMs = 240000;
constexpr uint32_t kDefaultSamplingPeriodUs = 2000;

// The variables of one of the two feature pipelines, which are otherwise the same code.
struct FeaturePipeline {
    const char* section;
    std::unique_ptr<FeatureReading>& current;
    std::unique_ptr<FeatureReading>& previous;
    double& currentTimestamp;
    double& previousTimestamp;
    std::unique_ptr<FeatureIntervals>& intervals;
};

FeaturePipeline namedFeatures() {
    return {"features",
            currentNamedFeatureBuffer_,
            previousNamedFeatureBuffer_,
            currentNamedFeatureBufferTimestamp,
            previousNamedFeatureBufferTimestamp,
            featureToInfoMap};
}

FeaturePipeline featureIds() {
    return {"feature-ids",
            currentFeatureIdBuffer_,
            previousFeatureIdBuffer_,
            currentFeatureIdBufferTimestamp,
            previousFeatureIdBufferTimestamp,
            featureIdToInfoMap};
}

// The current reading becomes the previous one (the older previous is freed); without a current
// reading, the previous one is freed.
template <typename Reading>
void rotate(std::unique_ptr<Reading>& current, std::unique_ptr<Reading>& previous,
            double& currentTimestamp, double& previousTimestamp) {
    if (current) {
        previous = std::move(current);
        previousTimestamp = currentTimestamp;
    } else {
        previous.reset();
    }
}

// Copies numCpus_ unaligned counts over `stored` (which holds numCpus_ entries).
void copyCounts(const uint8_t* counts, std::vector<uint64_t>& stored) {
    if (!stored.empty()) memcpy(stored.data(), counts, stored.size() * sizeof(uint64_t));
}

// counts[i], or 0 past the end. Hardening: readings and intervals kept from before an acquire
// that reported more CPUs are shorter than numCpus_.
inline uint64_t countAt(const std::vector<uint64_t>& counts, size_t i) {
    return i < counts.size() ? counts[i] : 0;
}

template <typename Key>
std::vector<uint64_t>& readingFor(std::unordered_map<Key, std::vector<uint64_t>>& reading, Key key) {
    auto it = reading.find(key);
    if (it == reading.end()) {
        it = reading.emplace(std::move(key), std::vector<uint64_t>(numCpus_)).first;
    }
    return it->second;
}

bool processFeatures(const FeaturePipeline& p, ProfileBuffer* buffer) {
    rotate(p.current, p.previous, p.currentTimestamp, p.previousTimestamp);
    if (buffer == nullptr) return false;  // hardening: no buffer to read
    const profilebuffer::View view = profilebuffer::viewOf(*buffer);
    const auto table = profilebuffer::sectionTable(view);
    if (!table) return false;
    // Taken before the search compares any name, whether the section is found or not.
    p.currentTimestamp = profilebuffer::timestampSeconds(view);
    const auto section = profilebuffer::findSection(view, *table, p.section);
    if (!section) return false;
    p.current = std::make_unique<FeatureReading>();
    profilebuffer::forEachEntry(view, *section, numCpus_,
                                [&](std::string_view name, const uint8_t* counts) {
                                    copyCounts(counts, readingFor(*p.current, std::string(name)));
                                });
    return true;
}

bool appendFeatureIntervals(const FeaturePipeline& p) {
    const double intervalMs = (p.currentTimestamp - p.previousTimestamp) * 1000.0;
    for (const auto& [name, counts] : *p.current) {
        const auto previous = p.previous->find(name);
        uint64_t delta = 0;
        for (size_t i = 0; i < counts.size(); ++i) {
            delta += counts[i] - (previous == p.previous->end() ? 0 : countAt(previous->second, i));
        }
        (*p.intervals)[name].emplace_back(delta, intervalMs);
    }
    return true;
}

std::optional<FeatureStatsMap> reduceFeatures(const FeaturePipeline& p) {
    if (!p.previous || !p.current) {
        logWarning("Missing one of the needed buffers for snapshot");
        return std::nullopt;
    }
    FeatureStatsMap result;
    for (const auto& [name, intervals] : *p.intervals) {
        double totalCount = 0, totalTime = 0, maxRate = 0, minRate = DBL_MAX;
        double activeCount = 0, activeTime = 0, activeMinRate = DBL_MAX;
        for (const auto& [count, time] : intervals) {
            if (!(time > 0)) continue;
            const double rate = static_cast<double>(count) / time;
            if (rate > maxRate) maxRate = rate;
            totalCount += static_cast<double>(count);
            totalTime += time;
            if (rate < minRate) minRate = rate;
            if (count != 0) {
                activeCount += static_cast<double>(count);
                activeTime += time;
                if (rate < activeMinRate) activeMinRate = rate;
            }
        }
        result[name] = {
                totalTime > 0 ? totalCount / totalTime : 0,    maxRate,       minRate,   totalTime,
                activeTime > 0 ? activeCount / activeTime : 0, activeMinRate, activeTime};
    }
    return result;
}

void fillSampleConfiguration(uint32_t samplingPeriodUs) {
    sampleConfiguration_.sampleInfos =
            Platkit::Array<Platkit::InstructionSampler::v4::SampleInfo>({4, 7, 6, 0});
    std::vector<Platkit::String> names;
    names.emplace_back("feature-ids.100");
    names.emplace_back("features.100");
    sampleConfiguration_.bufferNames = Platkit::Array<Platkit::String>(std::move(names));
    sampleConfiguration_.sampleKernel = 1;
    sampleConfiguration_.perThread = 1;
    sampleConfiguration_.samplingPeriodUs = samplingPeriodUs;
    sampleConfiguration_.tracePath = Platkit::String();
}

// A copy of `name` in a new buffer of the C allocator; aborts when it cannot be made.
Platkit::String copyName(const Platkit::String& name) {
    if (name.length == SIZE_MAX) abort();
    auto* copy = static_cast<char*>(malloc(name.length + 1));
    if (copy == nullptr) abort();
    memcpy(copy, name.data, name.length);
    copy[name.length] = '\0';
    return Platkit::String(copy, name.length, nullptr, &Platkit::String::freeStr);
}

}  // namespace

CpuStats::CpuStats() = default;
CpuStats::~CpuStats() = default;

const char* CpuStats::name() const {
    return "CpuStats";
}

SamplePeriod CpuStats::sampleRate() const {
    return std::chrono::milliseconds(inLastMinute_ ? kLastMinutePeriodMs : kEarlyPeriodMs);
}

uint32_t CpuStats::getSamplingPeriodUs() const {
    return halden::sysprop::SharedOsServicesProperties::vistrel_instruction_sampler_sampling_period_us()
            .value_or(kDefaultSamplingPeriodUs);
}

ProfileBuffer* CpuStats::getProfileBuffer() const {
    return profileBuffer_;
}

std::shared_ptr<IInstructionSampler> CpuStats::getIInstructionSampler() const {
    return instructionSampler_;
}

bool CpuStats::acquireResources(NotificationRouter, IClockReader& clock) {
    instructionSampler_ = Platkit::InstructionSampler::v4::createInstructionSamplerPtr();
    if (!instructionSampler_) {
        logWarning("Failed to Create Instruction Sampler");
        return false;
    }
    const uint32_t samplingPeriodUs = getSamplingPeriodUs();
    if (samplingPeriodUs == 0) {
        logWarning("Instruction Sampling is disabled via sysprop.");
        return false;  // the sampler stays held; releaseResources() ends and drops it
    }
    fillSampleConfiguration(samplingPeriodUs);
    if (!instructionSampler_->beginSession(sampleConfiguration_)) {
        logWarning("Failed to begin instruction sampling session.");
        instructionSampler_.reset();
        return false;
    }
    profileBuffer_ = instructionSampler_->readProfileBuffer();
    if (profileBuffer_ == nullptr) {
        logWarning("No profile buffer generated");
        return false;
    }
    // Hardening: a buffer without even a CPU count byte gives no CPUs.
    numCpus_ = static_cast<int32_t>(
            profilebuffer::cpuCount(profilebuffer::viewOf(*profileBuffer_)).value_or(0));
    threadsafety::MutexLock lock(heartbeatMutex);
    lastHeartbeatNs = clock.nowNs();
    return true;
}

bool CpuStats::releaseResources() {
    if (!instructionSampler_) {
        logWarning("No instruction sampler available");
        return false;
    }
    instructionSampler_->endSession();
    instructionSampler_.reset();
    return true;
}

std::optional<Notification> CpuStats::sample(IClockReader& clock) {
    if (!instructionSampler_) {
        logWarning("CpuStats Sampling Failed.");
        return std::nullopt;
    }
    profileBuffer_ = instructionSampler_->readProfileBuffer();
    if (profileBuffer_ == nullptr) {
        logWarning("CpuStats Sampling Failed.");
        return std::nullopt;
    }
    // A full memory fence: the new buffer is visible before it is parsed. (The builtin, since
    // GCC refuses std::atomic_thread_fence in ThreadSanitizer builds.)
    __sync_synchronize();
    processNamedFeatures(profileBuffer_);
    processFeatureIds(profileBuffer_);
    processCpuSample(profileBuffer_);

    double elapsed;
    {
        threadsafety::MutexLock lock(heartbeatMutex);
        elapsed = static_cast<double>(difference(clock.nowNs(), lastHeartbeatNs)) / 1e9;
        if (elapsed >= kHeartbeatSeconds) {
            lastHeartbeatNs = clock.nowNs();
            inLastMinute_ = false;
            // The detail names the period, not the measured time.
            return Notification{"ProcessCpuHeartbeat", std::to_string(300.0) + " seconds"};
        }
    }
    if (elapsed >= kLastMinuteSeconds) inLastMinute_ = true;
    return std::nullopt;
}

bool CpuStats::snapshot(IClockReader&, bool force) {
    threadsafety::MutexLock lock(mtx);
    featureStats.reset();
    featureIdStats.reset();
    processStats.reset();
    if (force) logWarning("CpuStats: unable to force sample in snapshot");
    if (!instructionSampler_) {
        logWarning("CpuStats snapshot Failed.");
        return false;
    }
    featureStats = generateFeatureSnapshot();
    featureIdStats = generateFeatureIdsSnapshot();
    processStats = generateProcessSnapshot();
    featureToInfoMap = std::make_unique<FeatureIntervals>();
    currentNamedFeatureBuffer_ = nullptr;
    previousNamedFeatureBuffer_ = nullptr;
    featureIdToInfoMap = std::make_unique<FeatureIntervals>();
    currentFeatureIdBuffer_ = nullptr;
    previousFeatureIdBuffer_ = nullptr;
    tidToInfoMap = std::make_unique<std::unordered_map<int32_t, std::vector<ProcessCpuUsage>>>();
    currentProcessSnapshot_ = nullptr;
    previousProcessSnapshot_ = nullptr;
    return true;
}

bool CpuStats::processNamedFeatures(ProfileBuffer* buffer) {
    const bool read = processFeatures(namedFeatures(), buffer);
    if (read && previousNamedFeatureBuffer_ && inLastMinute_) updateFeatureInfoMap();
    return read;
}

bool CpuStats::processFeatureIds(ProfileBuffer* buffer) {
    const bool read = processFeatures(featureIds(), buffer);
    if (read && previousFeatureIdBuffer_ && inLastMinute_) updateFeatureIdInfoMap();
    return read;
}

bool CpuStats::updateFeatureInfoMap() {
    return appendFeatureIntervals(namedFeatures());
}

bool CpuStats::updateFeatureIdInfoMap() {
    return appendFeatureIntervals(featureIds());
}

std::optional<FeatureStatsMap> CpuStats::generateFeatureSnapshot() {
    return reduceFeatures(namedFeatures());
}

std::optional<FeatureStatsMap> CpuStats::generateFeatureIdsSnapshot() {
    return reduceFeatures(featureIds());
}

bool CpuStats::processCpuSample(ProfileBuffer* buffer) {
    rotate(currentProcessSnapshot_, previousProcessSnapshot_, currentProcessSnapshotTimestamp,
           previousProcessSnapshotTimestamp);
    if (buffer == nullptr) return false;  // hardening: no buffer to read
    const profilebuffer::View view = profilebuffer::viewOf(*buffer);
    const auto table = profilebuffer::threadTable(view);
    if (!table) return false;
    currentProcessSnapshotTimestamp = profilebuffer::timestampSeconds(view);
    currentProcessSnapshot_ = std::make_unique<ThreadReading>();
    std::vector<int32_t> ids;
    // No more ids than records that fit in the buffer, whatever the header claims.
    ids.reserve(std::min<uint64_t>(table->records, view.size / table->stride + 1));
    profilebuffer::forEachThreadRecord(
            view, *table, numCpus_, [&](int32_t tid, const uint8_t* counts) {
                ids.push_back(tid);
                copyCounts(counts, readingFor(*currentProcessSnapshot_, tid));
            });
    updateTidToNameMap(ids);
    if (previousProcessSnapshot_ && inLastMinute_) updateProcessInfoMap();
    return true;
}

bool CpuStats::updateTidToNameMap(std::vector<int32_t>& ids) {
    Platkit::Array<int32_t> request(std::move(ids));
    Platkit::Array<ThreadInfo> result = instructionSampler_->getThreadInfo(request);
    tidMap = std::make_unique<std::unordered_map<int32_t, ThreadInfo>>();
    // Hardening: a name without data (from a faulty module) counts as no name; an array without
    // data has no elements.
    for (const ThreadInfo& info : result) {
        if (info.name.length == 0 || info.name.data == nullptr) continue;
        Platkit::String name = copyName(info.name);
        ThreadInfo& entry = (*tidMap)[info.tid];
        entry.tid = info.tid;
        entry.tgid = info.tgid;
        entry.name.reset();
        entry.name = std::move(name);
    }
    result.reset();
    request.reset();
    return true;
}

bool CpuStats::updateProcessInfoMap() {
    const double intervalMs =
            (currentProcessSnapshotTimestamp - previousProcessSnapshotTimestamp) * 1000.0;
    for (const auto& [tid, counts] : *currentProcessSnapshot_) {
        const auto previous = previousProcessSnapshot_->find(tid);
        ProcessCpuUsage usage{std::vector<uint64_t>(numCpus_), intervalMs};
        for (int32_t i = 0; i < numCpus_; ++i) {
            // A thread new in this interval is credited with all its counts.
            usage.delta[i] = counts[i] - (previous == previousProcessSnapshot_->end()
                                                  ? 0
                                                  : countAt(previous->second, i));
        }
        (*tidToInfoMap)[tid].push_back(std::move(usage));
    }
    return true;
}

std::optional<ProcessStatsMap> CpuStats::generateProcessSnapshot() {
    if (!previousProcessSnapshot_ || !currentProcessSnapshot_ || !tidMap) {
        logWarning("Missing one of CPU buffers needed for snapshot");
        return std::nullopt;
    }
    ProcessStatsMap result;
    for (const auto& [tid, intervals] : *tidToInfoMap) {
        const auto info = tidMap->find(tid);
        if (info == tidMap->end()) continue;
        std::string name(info->second.name.data, info->second.name.length);
        ProcessCpuStats stats = buildProcessCpuStats(intervals);
        // The first thread met under a name wins; threads without samples never appear.
        if (stats.total >= 1.0) result.emplace(std::move(name), std::move(stats));
    }
    return result;
}

ProcessCpuStats CpuStats::buildProcessCpuStats(const std::vector<ProcessCpuUsage>& intervals) {
    const size_t cpus = numCpus_ < 0 ? 0 : static_cast<size_t>(numCpus_);
    ProcessCpuStats s{0,
                      0,
                      0,
                      DBL_MAX,
                      0,
                      std::vector<double>(cpus, 0.0),
                      std::vector<double>(cpus, 0.0),
                      std::vector<double>(cpus, DBL_MAX)};
    for (size_t k = 0; k < intervals.size(); ++k) {
        const ProcessCpuUsage& u = intervals[k];
        s.totalTimeMs += u.intervalMs;
        const double totalBefore = s.total;
        for (size_t i = 0; i < cpus; ++i) {
            const double delta = static_cast<double>(countAt(u.delta, i));
            s.total += delta;
            const double rate = delta / u.intervalMs;
            if (rate > s.perCpuMaxRate[i]) s.perCpuMaxRate[i] = rate;
            if (rate < s.perCpuMinRate[i]) s.perCpuMinRate[i] = rate;
            s.perCpuMeanRate[i] += delta;
            if (k + 1 == intervals.size()) s.perCpuMeanRate[i] /= s.totalTimeMs;
        }
        const double rate = (s.total - totalBefore) / u.intervalMs;
        if (rate > s.maxRate) s.maxRate = rate;
        if (rate < s.minRate) s.minRate = rate;
    }
    s.meanRate = s.total / s.totalTimeMs;
    return s;
}

std::string CpuStats::creditsToString(const std::vector<uint64_t>& counts) {
    std::string text;
    for (const uint64_t count : counts) {
        text += std::to_string(count);
        text += ' ';
    }
    return text;
}

}  // namespace Vistrel
