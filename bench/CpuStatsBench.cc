// CpuStats against baselines measured in the same run, in CPU time (BenchSupport.h):
//
//   sample parse vs decoded-map floor
//       processNamedFeatures + processFeatureIds + processCpuSample on one profile buffer of
//       2,000 threads x 8 CPUs with "features" and "feature-ids" sections of 64 entries each
//       (laid out by the simulated SDK's writer), with a sampler whose getThreadInfo returns no
//       names, against the same three readings built as the same unordered maps from the same
//       counts already decoded into plain arrays (rotation included)
//   snapshot reductions vs one-pass floor
//       generateFeatureSnapshot + generateFeatureIdsSnapshot + generateProcessSnapshot over six
//       intervals of the same data (named threads), against one pass that adds up every
//       accumulated interval
//
// Both pairs work on CpuStats' process-wide state; the parse leaves the accumulated intervals
// alone (outside a heartbeat's last minute) but replaces the thread names, which the reductions
// put back before their turn.
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "CpuStats.h"
#include "ProfileBufferWriter.h"

namespace {

using TidNames = std::unordered_map<int32_t, Vistrel::ThreadInfo>;

constexpr int kRepetitions = 10;
constexpr double kMinSeconds = 0.5;
constexpr uint8_t kCpus = 8;
constexpr int kThreads = 2000;
constexpr int kEntries = 64;

class TrivialSampler : public Vistrel::IInstructionSampler {
public:
    bool beginSession(const Vistrel::SampleConfiguration&) override { return true; }
    Vistrel::ProfileBuffer* readProfileBuffer() override { return nullptr; }
    Platkit::Array<Vistrel::ThreadInfo> getThreadInfo(const Platkit::Array<int32_t>& tids) override {
        if (!named) return {};
        std::vector<Vistrel::ThreadInfo> infos(tids.size());
        for (uint64_t i = 0; i < tids.size(); ++i) {
            infos[i].tid = tids[i];
            infos[i].name = Platkit::String(("thread-" + std::to_string(tids[i] % 500)).c_str());
        }
        return Platkit::Array<Vistrel::ThreadInfo>(std::move(infos));
    }
    bool endSession() override { return true; }
    bool named = false;
};

std::string entryName(const char* prefix, int i) {
    return prefix + std::to_string(i);
}

// A reading whose counts grow with `step`, so consecutive readings have non-zero deltas.
sim::sdk::ProfileDescription description(uint64_t step) {
    sim::sdk::ProfileDescription d;
    d.cpuCount = kCpus;
    d.timestampUs = step * 10000000;
    for (int t = 0; t < kThreads; ++t) {
        std::vector<uint64_t> counts(kCpus);
        for (int c = 0; c < kCpus; ++c) counts[c] = step * (t % 13 + c) + t;
        d.threads.push_back({10000 + t, counts});
    }
    for (const bool ids : {false, true}) {
        sim::sdk::NamedSection s{ids ? "feature-ids" : "features", {}};
        for (int e = 0; e < kEntries; ++e) {
            std::vector<uint64_t> counts(kCpus);
            for (int c = 0; c < kCpus; ++c) counts[c] = step * (e + c) + e;
            s.entries.push_back({entryName(ids ? "id-" : "feature-", e), counts});
        }
        d.sections.push_back(std::move(s));
    }
    return d;
}

struct Buffer {
    explicit Buffer(const sim::sdk::Reading& r) : bytes(r.bytes) {
        buffer.data = bytes.data();
        buffer.size = bytes.size();
        buffer.namedSectionOffset = r.cachedSectionOffset;
        buffer.threadTableOffset = r.cachedThreadTableOffset;
        buffer.cpuCount = r.cachedCpuCount;
    }
    std::vector<uint8_t> bytes;
    Vistrel::ProfileBuffer buffer;
};

std::shared_ptr<TrivialSampler> g_sampler;

void useSampler(bool named) {
    g_sampler = std::make_shared<TrivialSampler>();
    g_sampler->named = named;
    Vistrel::instructionSampler_ = g_sampler;
    Vistrel::numCpus_ = kCpus;
}

void parse(Vistrel::CpuStats& cpu, Vistrel::ProfileBuffer& buffer) {
    cpu.processNamedFeatures(&buffer);
    cpu.processFeatureIds(&buffer);
    cpu.processCpuSample(&buffer);
    benchmark::DoNotOptimize(Vistrel::currentProcessSnapshot_->size());
}

// The same counts, already decoded.
struct Decoded {
    std::vector<int32_t> tids;
    std::vector<uint64_t> threadCounts;  // kThreads x kCpus
    std::vector<std::string> names[2];
    std::vector<uint64_t> entryCounts[2];  // kEntries x kCpus
};

Decoded decode(const sim::sdk::ProfileDescription& d) {
    Decoded out;
    for (const auto& t : d.threads) {
        out.tids.push_back(t.tid);
        out.threadCounts.insert(out.threadCounts.end(), t.counts.begin(), t.counts.end());
    }
    for (int s = 0; s < 2; ++s) {
        for (const auto& e : d.sections[s].entries) {
            out.names[s].push_back(e.name);
            out.entryCounts[s].insert(out.entryCounts[s].end(), e.counts.begin(), e.counts.end());
        }
    }
    return out;
}

template <typename Key>
using Reading = std::unordered_map<Key, std::vector<uint64_t>>;

template <typename Key>
void build(std::unique_ptr<Reading<Key>>& current, std::unique_ptr<Reading<Key>>& previous,
           const std::vector<Key>& keys, const std::vector<uint64_t>& counts) {
    previous = std::move(current);
    current = std::make_unique<Reading<Key>>();
    for (size_t i = 0; i < keys.size(); ++i) {
        auto it = current->find(keys[i]);
        if (it == current->end())
            it = current->emplace(keys[i], std::vector<uint64_t>(kCpus)).first;
        std::copy(&counts[i * kCpus], &counts[i * kCpus] + kCpus, it->second.begin());
    }
}

// The floor of the parse: the same maps from the decoded counts.
struct DecodedMaps {
    void rebuild() {
        for (int s = 0; s < 2; ++s) {
            build(features[s], previousFeatures[s], in.names[s], in.entryCounts[s]);
        }
        build(threads, previousThreads, in.tids, in.threadCounts);
        benchmark::DoNotOptimize(threads->size());
    }

    const Decoded in = decode(description(1));
    std::unique_ptr<Reading<std::string>> features[2], previousFeatures[2];
    std::unique_ptr<Reading<int32_t>> threads, previousThreads;
};

// Accumulates six intervals with named threads, as in a heartbeat's last minute, and returns
// the names; the parse then runs outside the last minute, with the unnamed sampler.
TidNames accumulateIntervals(Vistrel::CpuStats& cpu) {
    useSampler(true);
    Vistrel::inLastMinute_ = true;
    for (uint64_t step = 1; step <= 7; ++step) {
        Buffer b(sim::sdk::writeProfileBuffer(description(step)));
        parse(cpu, b.buffer);
    }
    Vistrel::inLastMinute_ = false;
    useSampler(false);
    return *Vistrel::tidMap;
}

void reduce(Vistrel::CpuStats& cpu) {
    auto features = cpu.generateFeatureSnapshot();
    auto ids = cpu.generateFeatureIdsSnapshot();
    auto processes = cpu.generateProcessSnapshot();
    benchmark::DoNotOptimize(processes->size() + features->size() + ids->size());
}

// The floor of the reductions: every accumulated count and interval length read once.
void addUpIntervals() {
    double sum = 0;
    for (const auto* intervals :
         {Vistrel::featureToInfoMap.get(), Vistrel::featureIdToInfoMap.get()}) {
        for (const auto& [name, entries] : *intervals) {
            for (const auto& [count, intervalMs] : entries)
                sum += static_cast<double>(count) + intervalMs;
        }
    }
    for (const auto& [tid, usages] : *Vistrel::tidToInfoMap) {
        for (const auto& usage : usages) {
            for (const uint64_t delta : usage.delta) sum += static_cast<double>(delta);
            sum += usage.intervalMs;
        }
    }
    benchmark::DoNotOptimize(sum);
}

}  // namespace

int main(int argc, char** argv) {
    Vistrel::CpuStats cpu;
    const TidNames names = accumulateIntervals(cpu);
    Buffer sample(sim::sdk::writeProfileBuffer(description(1)));
    DecodedMaps decoded;
    const auto reductions = [&cpu, &names](int calls) {
        Vistrel::tidMap = std::make_unique<TidNames>(names);  // the parse replaces them
        return benchsupport::onThisThread([&cpu] { reduce(cpu); })(calls);
    };
    const std::vector<benchsupport::Pair> pairs = {
            {"sample parse vs decoded-map floor",
             benchsupport::onThisThread([&cpu, &sample] { parse(cpu, sample.buffer); }),
             benchsupport::onThisThread([&decoded] { decoded.rebuild(); }), 1, "<= 1.3"},
            {"snapshot reductions vs one-pass floor", reductions,
             benchsupport::onThisThread(addUpIntervals)},
    };
    const int status = benchsupport::runPairs(argc, argv, pairs, kRepetitions, kMinSeconds);
    Vistrel::instructionSampler_.reset();
    return status;
}
