// The memory and storage collectors against the floor of reading the same files in the same run
// (open + one read + close of each file the operation reads; statvfs for "/data"):
//   SystemMemoryStats::sample   /proc/meminfo and /proc/pressure/memory
//   ZramStats::snapshot         /sys/block/zram0/mm_stat
//   SwapWriteStats::snapshot    /proc/vmstat and /sys/block/zram0/stat
//   StorageStats::snapshot      statvfs("/data")
// The library reads the workstation's own /proc and /sys through a file-system root made of
// symbolic links (proc -> /proc, sys -> /sys) and a real "data" directory, and the floor opens
// the very same resolved paths. Ratios of median times are printed after the table.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "StorageStats.h"
#include "SwapWriteStats.h"
#include "SystemMemoryStats.h"
#include "ZramStats.h"
#include "hostplatform/FsRoot.h"

namespace {

constexpr int kRepetitions = 5;

class BenchClock : public Vistrel::IClockReader {
public:
    int64_t elapsedNs() override { return 0; }
    int64_t readTimestamp() override { return 0; }
    int64_t nowNs() override { return 0; }
};

// The root every benchmark reads under; removed when the program ends.
struct BenchRoot {
    BenchRoot() {
        char pattern[] = "/tmp/vistrel-bench-XXXXXX";
        dir = mkdtemp(pattern);
        std::filesystem::create_directory_symlink("/proc", dir / "proc");
        std::filesystem::create_directory_symlink("/sys", dir / "sys");
        std::filesystem::create_directory(dir / "data");
        hostplatform::setFsRoot(dir.string());
    }
    ~BenchRoot() {
        hostplatform::setFsRoot("");
        std::filesystem::remove_all(dir);
    }
    std::string at(const char* devicePath) const { return dir.string() + devicePath; }
    std::filesystem::path dir;
};

const BenchRoot* g_root = nullptr;

// open + one read of up to the library's buffer size + close; false when the file is missing.
bool readOnce(const std::string& path) {
    static char buffer[32768];
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    benchmark::DoNotOptimize(read(fd, buffer, sizeof(buffer)));
    close(fd);
    return true;
}

void floorOf(benchmark::State& state, std::vector<const char*> devicePaths) {
    std::vector<std::string> paths;
    for (const char* p : devicePaths) paths.push_back(g_root->at(p));
    for (const auto& p : paths) {
        if (!readOnce(p)) return state.SkipWithError(("missing " + p).c_str());
    }
    for (auto _ : state) {
        for (const auto& p : paths) readOnce(p);
    }
}

void BM_SystemMemorySample(benchmark::State& state) {
    Vistrel::SystemMemoryStats stats;
    BenchClock clock;
    for (auto _ : state) benchmark::DoNotOptimize(stats.sample(clock));
}
void BM_SystemMemorySample_Floor(benchmark::State& state) {
    floorOf(state, {"/proc/meminfo", "/proc/pressure/memory"});
}

void BM_ZramSnapshot(benchmark::State& state) {
    Vistrel::ZramStats stats;
    BenchClock clock;
    if (!stats.snapshot(clock, false)) return state.SkipWithError("no zram0 mm_stat");
    for (auto _ : state) benchmark::DoNotOptimize(stats.snapshot(clock, false));
}
void BM_ZramSnapshot_Floor(benchmark::State& state) {
    floorOf(state, {"/sys/block/zram0/mm_stat"});
}

void BM_SwapWriteSnapshot(benchmark::State& state) {
    Vistrel::SwapWriteStats stats;
    BenchClock clock;
    if (!stats.snapshot(clock, false)) return state.SkipWithError("no vmstat or zram0 stat");
    for (auto _ : state) benchmark::DoNotOptimize(stats.snapshot(clock, false));
}
void BM_SwapWriteSnapshot_Floor(benchmark::State& state) {
    floorOf(state, {"/proc/vmstat", "/sys/block/zram0/stat"});
}

void BM_StorageSnapshot(benchmark::State& state) {
    Vistrel::StorageStats stats;
    BenchClock clock;
    for (auto _ : state) benchmark::DoNotOptimize(stats.snapshot(clock, false));
}
void BM_StorageSnapshot_Floor(benchmark::State& state) {
    const std::string data = g_root->at("/data");
    struct statvfs fs;
    for (auto _ : state) benchmark::DoNotOptimize(statvfs(data.c_str(), &fs));
}

// Each operation runs right after its floor, so both see the same machine load.
#define VISTREL_PAIR(name)                                                      \
    BENCHMARK(name##_Floor)->Repetitions(kRepetitions)->ReportAggregatesOnly(); \
    BENCHMARK(name)->Repetitions(kRepetitions)->ReportAggregatesOnly()
VISTREL_PAIR(BM_SystemMemorySample);
VISTREL_PAIR(BM_ZramSnapshot);
VISTREL_PAIR(BM_SwapWriteSnapshot);
VISTREL_PAIR(BM_StorageSnapshot);

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
    std::map<std::string, double> medians;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    BenchRoot root;
    g_root = &root;
    MedianRecorder recorder;
    benchmark::RunSpecifiedBenchmarks(&recorder);
    printf("\n");
    for (const char* name : {"BM_SystemMemorySample", "BM_ZramSnapshot", "BM_SwapWriteSnapshot",
                             "BM_StorageSnapshot"}) {
        const auto ours = recorder.medians.find(name);
        const auto floor = recorder.medians.find(std::string(name) + "_Floor");
        if (ours == recorder.medians.end() || floor == recorder.medians.end() ||
            floor->second == 0) {
            printf("ratio %-24s not measured (filtered out, or its file is missing here)\n", name);
            continue;
        }
        printf("ratio %-24s vs open+read+close floor = %.3f  (aim <= 1.3)\n", name,
               ours->second / floor->second);
    }
    benchmark::Shutdown();
    return 0;
}
