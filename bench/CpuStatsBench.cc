// CpuStats' parsing of one sample against a floor measured in the same run.
//
//   BM_Sample        processNamedFeatures + processFeatureIds + processCpuSample on one profile
//                    buffer of 2,000 threads x 8 CPUs with "features" and "feature-ids" sections
//                    of 64 entries each (laid out by the simulated SDK's writer), with a sampler
//                    whose getThreadInfo returns no names
//   BM_Sample_Floor  the same three readings built as the same unordered maps from the same
//                    counts already decoded into plain arrays (rotation included)
//   BM_SnapshotReductions  generateFeatureSnapshot + generateFeatureIdsSnapshot +
//                    generateProcessSnapshot over six intervals of the same data
// Ratios of median times are printed after the table, with the microseconds per sample.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "CpuStats.h"
#include "ProfileBufferWriter.h"

namespace {

constexpr int kRepetitions = 5;
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

void BM_Sample(benchmark::State& state) {
    useSampler(false);
    Vistrel::inLastMinute_ = false;
    Buffer b(sim::sdk::writeProfileBuffer(description(1)));
    Vistrel::CpuStats cpu;
    for (auto _ : state) {
        cpu.processNamedFeatures(&b.buffer);
        cpu.processFeatureIds(&b.buffer);
        cpu.processCpuSample(&b.buffer);
    }
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

void BM_Sample_Floor(benchmark::State& state) {
    const Decoded in = decode(description(1));
    std::unique_ptr<Reading<std::string>> features[2], previousFeatures[2];
    std::unique_ptr<Reading<int32_t>> threads, previousThreads;
    for (auto _ : state) {
        for (int s = 0; s < 2; ++s) {
            build(features[s], previousFeatures[s], in.names[s], in.entryCounts[s]);
        }
        build(threads, previousThreads, in.tids, in.threadCounts);
    }
    benchmark::DoNotOptimize(threads->size());
}

void BM_SnapshotReductions(benchmark::State& state) {
    useSampler(true);
    Vistrel::CpuStats cpu;
    Vistrel::inLastMinute_ = true;
    for (uint64_t step = 1; step <= 7; ++step) {  // six intervals, as in a heartbeat's last minute
        Buffer b(sim::sdk::writeProfileBuffer(description(step)));
        cpu.processNamedFeatures(&b.buffer);
        cpu.processFeatureIds(&b.buffer);
        cpu.processCpuSample(&b.buffer);
    }
    for (auto _ : state) {
        auto features = cpu.generateFeatureSnapshot();
        auto ids = cpu.generateFeatureIdsSnapshot();
        auto processes = cpu.generateProcessSnapshot();
        benchmark::DoNotOptimize(processes->size() + features->size() + ids->size());
    }
}

// The operation runs right after its floor, so both see the same machine load.
BENCHMARK(BM_Sample_Floor)->Repetitions(kRepetitions)->ReportAggregatesOnly();
BENCHMARK(BM_Sample)->Repetitions(kRepetitions)->ReportAggregatesOnly();
BENCHMARK(BM_SnapshotReductions)->Repetitions(kRepetitions)->ReportAggregatesOnly();

// Console output as usual, plus the median real time of every benchmark for the ratios.
class MedianRecorder : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
                !run.error_occurred) {
                medians[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> medians;  // in the run's time unit (ns by default)
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    MedianRecorder recorder;
    benchmark::RunSpecifiedBenchmarks(&recorder);
    const auto& m = recorder.medians;
    printf("\n");
    if (m.count("BM_Sample") && m.count("BM_Sample_Floor") && m.at("BM_Sample_Floor") > 0) {
        printf("sample: %.1f us per sample (floor %.1f us)\n", m.at("BM_Sample") / 1000,
               m.at("BM_Sample_Floor") / 1000);
        printf("ratio BM_Sample vs decoded-map floor = %.3f  (aim <= 1.3)\n",
               m.at("BM_Sample") / m.at("BM_Sample_Floor"));
    }
    if (m.count("BM_SnapshotReductions")) {
        printf("snapshot reductions: %.1f us\n", m.at("BM_SnapshotReductions") / 1000);
    }
    Vistrel::instructionSampler_.reset();
    benchmark::Shutdown();
    return 0;
}
