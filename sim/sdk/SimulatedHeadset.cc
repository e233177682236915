#include <cmath>

#include "SamplerSources.h"

namespace sim::sdk {
namespace {

constexpr uint8_t kCpus = 8;
constexpr int64_t kWorkerLifeNs = INT64_C(120000000000);
// Thread ids come back after this many threads of a kind, as the kernel reuses them, so that the
// ids a long run sees (and the collector's map of them) stay bounded.
constexpr int32_t kReusedIds = 64;

struct SimThread {
    int32_t tid;
    const char* name;
    double busyInteractive;  // fraction of one CPU
    double busyIdle;         // < 0: the thread exists only while interactive
    std::vector<int> cpus;
};

const std::vector<SimThread>& headsetThreads() {
    static const auto* threads = new std::vector<SimThread>{
            {1201, "compositor", 0.45, 0.08, {4, 5}},
            {1202, "RenderThread", 0.35, 0.02, {5, 6}},
            {3101, "GameMain", 0.70, -1, {6, 7}},
            {1301, "AudioOut", 0.06, 0.03, {0}},
            {1401, "SensorFusion", 0.15, 0.12, {1, 2}},
            {901, "system_server", 0.10, 0.06, {0, 1, 2, 3}},
            {911, "binder:system", 0.03, 0.015, {2}},
            {912, "binder:system", 0.025, 0.012, {3}},
    };
    return *threads;
}

struct SimFeature {
    const char* section;
    const char* name;
    double busyInteractive;
    double busyIdle;
};

const std::vector<SimFeature>& headsetFeatures() {
    static const auto* features = new std::vector<SimFeature>{
            {"features.100", "render", 3.0, 3.0}, {"features.100", "tracking", 3.0, 3.0},
            {"features", "render", 0.60, 0.05},   {"features", "tracking", 0.30, 0.25},
            {"features", "audio", 0.08, 0.04},    {"features", "passthrough", 0.20, 0.0},
            {"features", "input", 0.05, 0.0},     {"feature-ids", "100", 0.40, 0.05},
            {"feature-ids", "101", 0.25, 0.20},   {"feature-ids", "205", 0.10, 0.02},
            {"feature-ids", "310", 0.02, 0.0},
    };
    return *features;
}

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
        a.perCpu[cpu] += busy * seconds * samplesPerBusySecond_ / static_cast<double>(cpus.size());
    }
}

Reading SimulatedHeadset::next() {
    const int64_t now = deviceNs();
    const double seconds = now > lastNs_ ? static_cast<double>(now - lastNs_) / 1e9 : 0.0;
    lastNs_ = std::max(lastNs_, now);
    const bool interactive = interactiveAt(now);
    if (interactive && !wasInteractive_) ++sessions_;  // a new game session: a new main thread
    wasInteractive_ = interactive;

    ProfileDescription d;
    d.cpuCount = kCpus;
    d.timestampUs = static_cast<uint64_t>(now / 1000);
    d.cacheHeader = false;  // the collector reads the header's own fields
    names_.clear();
    for (const SimThread& t : headsetThreads()) {
        if (!interactive && t.busyIdle < 0) continue;
        const int32_t tid = t.busyIdle < 0 ? t.tid + 10 * (sessions_ % kReusedIds) : t.tid;
        Accrual& a = threads_[tid];
        accrue(a, t.cpus, interactive ? t.busyInteractive : t.busyIdle, seconds);
        d.threads.push_back({tid, wholeCounts(a.perCpu)});
        names_[tid] = t.name;
    }
    // A background worker that is replaced by a new thread every two minutes.
    const auto worker = static_cast<int32_t>(5000 + now / kWorkerLifeNs % kReusedIds);
    Accrual& w = threads_[worker];
    accrue(w, {1}, 0.05, seconds);
    d.threads.push_back({worker, wholeCounts(w.perCpu)});
    names_[worker] = "BgWorker";
    // Ended threads are forgotten: a reused id starts a new thread's counts.
    for (auto it = threads_.begin(); it != threads_.end();) {
        it = names_.count(it->first) ? std::next(it) : threads_.erase(it);
    }

    for (const SimFeature& f : headsetFeatures()) {
        const std::string key = std::string(f.section) + "/" + f.name;
        accrue(features_[key], allCpus(), interactive ? f.busyInteractive : f.busyIdle, seconds);
        if (d.sections.empty() || d.sections.back().name != f.section) {
            d.sections.push_back({f.section, {}});
        }
        d.sections.back().entries.push_back({f.name, wholeCounts(features_[key].perCpu)});
    }
    return writeProfileBuffer(d);
}

std::string SimulatedHeadset::threadName(int32_t tid) const {
    const auto it = names_.find(tid);
    return it == names_.end() ? std::string() : it->second;
}

}  // namespace sim::sdk
