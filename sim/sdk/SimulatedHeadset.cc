#include <algorithm>
#include <cmath>
#include <iterator>

#include "SamplerSources.h"

namespace sim::sdk {
namespace {

constexpr uint32_t kAllCpus = (1u << SimulatedHeadset::kCpus) - 1;

// The entries of the two feature sections, in order, and the id each feature is counted under
// in "feature-ids" ("" for none).
struct Feature {
    const char* name;
    const char* id;
};
constexpr Feature kFeatureNames[SimulatedHeadset::kFeatures] = {
        {"render", "100"},      {"tracking", "101"}, {"audio", "205"},
        {"passthrough", "310"}, {"input", ""},
};
// "features.100", a section the collector must not take for "features": constant busy entries.
constexpr const char* kDecoySection = "features.100";
constexpr const char* kDecoyNames[SimulatedHeadset::kDecoyEntries] = {"render", "tracking"};
constexpr double kDecoyBusy = 3.0;

// The index of a feature in kFeatureNames; their count for none.
size_t featureIndex(const std::string& name) {
    size_t i = 0;
    while (i < std::size(kFeatureNames) && name != kFeatureNames[i].name) ++i;
    return i;
}

bool byTid(const HeadsetThread& t, int32_t tid) {
    return t.tid < tid;
}

}  // namespace

SimulatedHeadset::SimulatedHeadset(uint32_t samplingPeriodUs, int64_t startNs)
    : samplesPerBusySecond_(1e6 / (samplingPeriodUs == 0 ? 5000 : samplingPeriodUs)),
      lastNs_(startNs) {}

void SimulatedHeadset::accrue(Accrual& a, uint32_t cpus, double busy, double seconds) const {
    cpus &= kAllCpus;
    if (cpus == 0 || busy <= 0) return;
    const double share = busy * seconds * samplesPerBusySecond_ / __builtin_popcount(cpus);
    for (size_t cpu = 0; cpu < kCpus; ++cpu) {
        if (cpus & (1u << cpu)) a[cpu] += share;
    }
}

std::vector<uint64_t> SimulatedHeadset::wholeCounts(const Accrual& a) {
    std::vector<uint64_t> counts;
    counts.reserve(kCpus);
    for (const double c : a) counts.push_back(static_cast<uint64_t>(std::floor(c)));
    return counts;
}

const HeadsetThread* SimulatedHeadset::find(int32_t tid) const {
    const auto it = std::lower_bound(threads_.begin(), threads_.end(), tid, byTid);
    return it != threads_.end() && it->tid == tid ? &*it : nullptr;
}

void SimulatedHeadset::accrueThreads(int64_t now, double seconds, ProfileDescription& d) {
    // Each thread ran since the previous reading as busy as it was then; a new one had no time.
    std::vector<HeadsetThread> current = headsetThreadsAt(now);
    std::sort(current.begin(), current.end(),
              [](const HeadsetThread& a, const HeadsetThread& b) { return a.tid < b.tid; });
    std::vector<HeadsetThread> listed;
    listed.reserve(current.size());
    for (HeadsetThread& t : current) {
        const HeadsetThread* before = find(t.tid);
        const double busy = before == nullptr ? 0.0 : before->busy;
        // A thread that has never run has no samples, and no record.
        if (t.busy <= 0 && busy <= 0 && counts_.count(t.tid) == 0) continue;
        Accrual& a = counts_[t.tid];
        accrue(a, t.cpus, busy, seconds);
        d.threads.push_back({t.tid, wholeCounts(a)});
        const size_t feature = featureIndex(t.feature);
        if (feature < kFeatures) accrue(features_[feature], t.cpus, busy, seconds);
        listed.push_back(std::move(t));
    }
    threads_ = std::move(listed);
    // Ended threads are forgotten: a reused id starts a new thread's counts.
    for (auto it = counts_.begin(); it != counts_.end();) {
        it = find(it->first) != nullptr ? std::next(it) : counts_.erase(it);
    }
}

Reading SimulatedHeadset::next() {
    const int64_t now = deviceNs();
    const double seconds = now > lastNs_ ? static_cast<double>(now - lastNs_) / 1e9 : 0.0;
    lastNs_ = std::max(lastNs_, now);

    ProfileDescription d;
    d.cpuCount = kCpus;
    d.timestampUs = static_cast<uint64_t>(now / 1000);
    d.cacheHeader = false;  // the collector reads the header's own fields
    accrueThreads(now, seconds, d);
    d.sections.push_back({kDecoySection, {}});
    for (size_t i = 0; i < kDecoyEntries; ++i) {
        accrue(decoys_[i], kAllCpus, kDecoyBusy, seconds);
        d.sections.back().entries.push_back({kDecoyNames[i], wholeCounts(decoys_[i])});
    }
    NamedSection named{"features", {}}, ids{"feature-ids", {}};
    for (size_t i = 0; i < kFeatures; ++i) {
        const Feature& f = kFeatureNames[i];
        if (*f.id != '\0') ids.entries.push_back({f.id, wholeCounts(features_[i])});
        named.entries.push_back({f.name, wholeCounts(features_[i])});
    }
    d.sections.push_back(std::move(named));
    d.sections.push_back(std::move(ids));
    return writeProfileBuffer(d);
}

std::string SimulatedHeadset::threadName(int32_t tid) const {
    const HeadsetThread* t = find(tid);
    return t == nullptr ? std::string() : t->name;
}

int32_t SimulatedHeadset::processOf(int32_t tid) const {
    const HeadsetThread* t = find(tid);
    return t == nullptr ? 0 : t->pid;
}

}  // namespace sim::sdk
