#include <cmath>

#include "SamplerSources.h"

namespace sim::sdk {
namespace {

constexpr uint8_t kCpus = 8;

// The entries of the two feature sections, in order, and the id each feature is counted under
// in "feature-ids" ("" for none).
struct Feature {
    const char* name;
    const char* id;
};
constexpr Feature kFeatures[] = {
        {"render", "100"},      {"tracking", "101"}, {"audio", "205"},
        {"passthrough", "310"}, {"input", ""},
};
// "features.100", a section the collector must not take for "features": constant busy entries.
constexpr const char* kDecoySection = "features.100";
constexpr const char* kDecoyEntries[] = {"render", "tracking"};
constexpr double kDecoyBusy = 3.0;

std::vector<int> allCpus() {
    std::vector<int> cpus;
    for (int i = 0; i < kCpus; ++i) cpus.push_back(i);
    return cpus;
}

std::vector<uint64_t> wholeCounts(const std::vector<double>& perCpu) {
    std::vector<uint64_t> counts;
    for (const double c : perCpu) counts.push_back(static_cast<uint64_t>(std::floor(c)));
    return counts;
}

}  // namespace

SimulatedHeadset::SimulatedHeadset(uint32_t samplingPeriodUs, int64_t startNs)
    : samplesPerBusySecond_(1e6 / (samplingPeriodUs == 0 ? 5000 : samplingPeriodUs)),
      lastNs_(startNs) {}

void SimulatedHeadset::accrue(Accrual& a, const std::vector<int>& cpus, double busy,
                              double seconds) const {
    a.perCpu.resize(kCpus, 0.0);
    for (const int cpu : cpus) {
        if (cpu < 0 || cpu >= kCpus) continue;
        a.perCpu[cpu] += busy * seconds * samplesPerBusySecond_ / static_cast<double>(cpus.size());
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
    // Each thread ran since the previous reading as busy as it was then; a new one had no time.
    std::map<int32_t, HeadsetThread> previous;
    previous.swap(threads_);
    for (HeadsetThread& t : headsetThreadsAt(now)) {
        const auto before = previous.find(t.tid);
        const double busy = before == previous.end() ? 0.0 : before->second.busy;
        // A thread that has never run has no samples, and no record.
        if (t.busy <= 0 && busy <= 0 && counts_.count(t.tid) == 0) continue;
        Accrual& a = counts_[t.tid];
        accrue(a, t.cpus, busy, seconds);
        d.threads.push_back({t.tid, wholeCounts(a.perCpu)});
        if (!t.feature.empty()) accrue(features_["features/" + t.feature], t.cpus, busy, seconds);
        threads_[t.tid] = std::move(t);
    }
    // Ended threads are forgotten: a reused id starts a new thread's counts.
    for (auto it = counts_.begin(); it != counts_.end();) {
        it = threads_.count(it->first) ? std::next(it) : counts_.erase(it);
    }
    d.sections.push_back({kDecoySection, {}});
    for (const char* entry : kDecoyEntries) {
        Accrual& a = features_[std::string(kDecoySection) + "/" + entry];
        accrue(a, allCpus(), kDecoyBusy, seconds);
        d.sections.back().entries.push_back({entry, wholeCounts(a.perCpu)});
    }
    NamedSection named{"features", {}}, ids{"feature-ids", {}};
    for (const Feature& f : kFeatures) {
        auto counts = wholeCounts(features_["features/" + std::string(f.name)].perCpu);
        counts.resize(kCpus, 0);
        if (*f.id != '\0') ids.entries.push_back({f.id, counts});
        named.entries.push_back({f.name, std::move(counts)});
    }
    d.sections.push_back(std::move(named));
    d.sections.push_back(std::move(ids));
    return writeProfileBuffer(d);
}

std::string SimulatedHeadset::threadName(int32_t tid) const {
    const auto it = threads_.find(tid);
    return it == threads_.end() ? std::string() : it->second.name;
}

int32_t SimulatedHeadset::processOf(int32_t tid) const {
    const auto it = threads_.find(tid);
    return it == threads_.end() ? 0 : it->second.pid;
}

}  // namespace sim::sdk
