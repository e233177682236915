// Kernel-file parsing and the process scan, each against baselines measured in the same run:
//   - parsing one real status text: the table parser vs a plain linear strncmp walk of the table
//     and vs a per-line sscanf parser (all three must produce the same record);
//   - a full scan (getNextPid + getProcessStatusData for every process) vs the floor of
//     readdir + open + one read + close of every status file, with about 700 processes present
//     (idle children are spawned for it and killed by pid however the run ends), and vs that
//     floor plus the per-entry stat the enumeration makes to accept only directories.
// Ratios are printed after the table, from the median CPU time of the repetitions.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "procfsutils/ProcFsParser.h"
#include "procfsutils/ProcFsParserInternal.h"

namespace {

using namespace procfsutils;
using namespace procfsutils::internal;

constexpr int kRepetitions = 5;
constexpr int kProcessesWanted = 700;

std::string loadStatusText() {
    std::ifstream in(VISTREL_SOURCE_DIR "/tests/data/procfs-host/proc/4974/status");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

const std::string& statusText() {
    static const std::string text = loadStatusText();
    return text;
}

// Stores one converted value the way the table parser does, through the exported scanners.
void storeValue(const DataFileField& row, const char* text, int v, int e, char* record) {
    switch (row.type) {
        case KiloBytes32: {
            const uint64_t bytes = getByteCount(text, v, e);
            const uint32_t kib = bytes >= (uint64_t{1} << 41) ? UINT32_MAX : bytes / 1024;
            memcpy(record + row.offset, &kib, 4);
            break;
        }
        case Int32: {
            const auto n = static_cast<int64_t>(getNumber(text, v, e));
            const int32_t value = n > INT32_MAX ? -1 : static_cast<int32_t>(n);
            memcpy(record + row.offset, &value, 4);
            break;
        }
        case UInt64: {
            const uint64_t n = getNumber(text, v, e);
            memcpy(record + row.offset, &n, 8);
            break;
        }
        case String:
            getString(text, v, e, record + row.offset, static_cast<int>(row.size));
            break;
        case Char: {
            char letter[2];
            getString(text, v, e, letter, 2);
            record[row.offset] = letter[0];
            break;
        }
        default:
            break;
    }
}

// Baseline 1: the same line walk with a plain strncmp against every row in turn.
void strncmpWalk(const char* text, int len, ProcessStatusData* out) {
    int pos = 0;
    while (pos < len) {
        int k = pos;
        while (k < len && text[k] != ':' && text[k] != ' ' && text[k] != '\n') ++k;
        const int v = k + 1;
        if (v >= len) return;
        int e = v;
        while (e < len && text[e] != '\n') ++e;
        if (k != pos && v < e) {
            for (int i = 0; i < kProcessStatusFieldCount; ++i) {
                if (strncmp(text + pos, kProcessStatusFields[i].name, k - pos) == 0) {
                    storeValue(kProcessStatusFields[i], text, v, e, reinterpret_cast<char*>(out));
                    break;
                }
            }
        }
        pos = e + 1;
    }
}

// Baseline 2: each line copied out and taken apart with sscanf, keys compared with strcmp.
void sscanfLines(const char* text, int len, ProcessStatusData* out) {
    char* record = reinterpret_cast<char*>(out);
    const char* end = text + len;
    for (const char* line = text; line < end;) {
        const char* next = static_cast<const char*>(memchr(line, '\n', end - line));
        if (next == nullptr) next = end;
        char buf[1024];
        const size_t n = std::min<size_t>(next - line, sizeof buf - 1);
        memcpy(buf, line, n);
        buf[n] = '\0';
        line = next + 1;
        char key[64];
        int valueAt = 0;
        if (sscanf(buf, "%63[^:]:%n", key, &valueAt) != 1 || valueAt == 0) continue;
        const char* value = buf + valueAt;
        for (int i = 0; i < kProcessStatusFieldCount; ++i) {
            const DataFileField& row = kProcessStatusFields[i];
            if (strcmp(key, row.name) != 0) continue;
            unsigned long long number = 0;
            char unit[8] = "";
            if (row.type == KiloBytes32 && sscanf(value, "%llu %7s", &number, unit) >= 1) {
                const uint64_t bytes = unit[0] == 'k' ? number << 10 : number;
                const uint32_t kib = bytes >= (uint64_t{1} << 41) ? UINT32_MAX : bytes / 1024;
                memcpy(record + row.offset, &kib, 4);
            } else if (row.type == Int32 && sscanf(value, "%llu", &number) == 1) {
                const int32_t n = number > INT32_MAX ? -1 : static_cast<int32_t>(number);
                memcpy(record + row.offset, &n, 4);
            } else if (row.type == UInt64 && sscanf(value, "%llu", &number) == 1) {
                memcpy(record + row.offset, &number, 8);
            } else if (row.type == String) {
                char name[64] = "";
                sscanf(value, " %63[^\n]", name);
                size_t length = strlen(name);
                while (length > 0 && (name[length - 1] == ' ' || name[length - 1] == '\t'))
                    --length;
                length = std::min(length, row.size - 1);
                memcpy(record + row.offset, name, length);
                record[row.offset + length] = '\0';
            } else if (row.type == Char) {
                sscanf(value, " %c", record + row.offset);
            }
            break;
        }
    }
}

using StatusParser = void (*)(const char*, int, ProcessStatusData*);

bool sameAsTableParser(StatusParser parser) {
    const std::string& text = statusText();
    ProcessStatusData ours, theirs;
    memset(&ours, 0, sizeof ours);
    memset(&theirs, 0, sizeof theirs);
    parseProcessStatusData(text.data(), static_cast<int>(text.size()), &ours);
    parser(text.data(), static_cast<int>(text.size()), &theirs);
    return memcmp(&ours, &theirs, sizeof ours) == 0 && ours.vmRss != 0 && ours.name[0] != 0;
}

void runStatusParser(benchmark::State& state, StatusParser parser) {
    if (!sameAsTableParser(parser)) {
        state.SkipWithError("result differs from the table parser");
        return;
    }
    const std::string& text = statusText();
    ProcessStatusData out;
    for (auto _ : state) {
        memset(&out, 0, sizeof out);
        parser(text.data(), static_cast<int>(text.size()), &out);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_StatusParse_TableParser(benchmark::State& state) {
    runStatusParser(state, parseProcessStatusData);
}
void BM_StatusParse_StrncmpWalk(benchmark::State& state) {
    runStatusParser(state, strncmpWalk);
}
void BM_StatusParse_SscanfLines(benchmark::State& state) {
    runStatusParser(state, sscanfLines);
}

void BM_FullScan_ProcFsParser(benchmark::State& state) {
    ProcFsParser parser;
    ProcessStatusData status;
    int processes = 0;
    for (auto _ : state) {
        parser.reset();
        processes = 0;
        int pid;
        while (parser.getNextPid(&pid)) processes += parser.getProcessStatusData(pid, &status);
        benchmark::DoNotOptimize(status);
    }
    state.counters["processes"] = processes;
}

// The least any scan must do: list /proc, then open, read once and close each status file.
// With `withStat`, also the stat of each numeric entry that the enumeration makes to accept only
// directories: the floor of the system calls the reader itself must issue.
void scanFloor(benchmark::State& state, bool withStat) {
    DIR* dir = opendir("/proc");
    std::vector<char> buffer(32768);
    int processes = 0;
    for (auto _ : state) {
        rewinddir(dir);
        processes = 0;
        while (const dirent* entry = readdir(dir)) {
            if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
            char path[288];
            struct stat st;
            snprintf(path, sizeof path, "/proc/%s", entry->d_name);
            if (withStat && stat(path, &st) != 0) continue;
            snprintf(path, sizeof path, "/proc/%s/status", entry->d_name);
            const int fd = open(path, O_RDONLY | O_CLOEXEC);
            if (fd < 0) continue;
            processes += read(fd, buffer.data(), buffer.size()) >= 0;
            close(fd);
        }
    }
    closedir(dir);
    state.counters["processes"] = processes;
}

void BM_FullScan_Floor(benchmark::State& state) {
    scanFloor(state, false);
}
void BM_FullScan_FloorWithStat(benchmark::State& state) {
    scanFloor(state, true);
}

BENCHMARK(BM_StatusParse_TableParser)->Repetitions(kRepetitions);
BENCHMARK(BM_StatusParse_StrncmpWalk)->Repetitions(kRepetitions);
BENCHMARK(BM_StatusParse_SscanfLines)->Repetitions(kRepetitions);
BENCHMARK(BM_FullScan_ProcFsParser)->Repetitions(kRepetitions)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FullScan_Floor)->Repetitions(kRepetitions)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FullScan_FloorWithStat)->Repetitions(kRepetitions)->Unit(benchmark::kMicrosecond);

// Idle child processes for the scan, remembered in plain storage so that a signal handler and
// an exit handler can kill them; the children also die with this process (PR_SET_PDEATHSIG).
constexpr int kMaxChildren = 4096;
pid_t g_children[kMaxChildren];
volatile sig_atomic_t g_childCount = 0;
constexpr int kFatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGSEGV, SIGBUS, SIGABRT};

void killChildren() {
    for (int i = 0; i < g_childCount; ++i) kill(g_children[i], SIGKILL);
}

void onFatalSignal(int signal) {
    killChildren();
    ::signal(signal, SIG_DFL);
    raise(signal);
}

class IdleProcesses {
public:
    explicit IdleProcesses(int count) {
        for (int signal : kFatalSignals) ::signal(signal, onFatalSignal);
        atexit(killChildren);
        const pid_t parent = getpid();
        while (g_childCount < count && g_childCount < kMaxChildren) {
            const pid_t child = fork();
            if (child < 0) break;
            if (child == 0) idle(parent);
            g_children[g_childCount] = child;
            g_childCount = g_childCount + 1;
        }
    }
    ~IdleProcesses() {
        killChildren();
        for (int i = 0; i < g_childCount; ++i) waitpid(g_children[i], nullptr, 0);
        g_childCount = 0;
        for (int signal : kFatalSignals) ::signal(signal, SIG_DFL);
    }
    IdleProcesses(const IdleProcesses&) = delete;
    IdleProcesses& operator=(const IdleProcesses&) = delete;
    int count() const { return g_childCount; }

private:
    [[noreturn]] static void idle(pid_t parent) {
        g_childCount = 0;
        for (int signal : kFatalSignals) ::signal(signal, SIG_DFL);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(0);  // the parent died before the request took hold
        for (;;) pause();
    }
};

int countProcesses() {
    ProcFsParser parser;
    int pid, count = 0;
    while (parser.getNextPid(&pid)) ++count;
    return count;
}

// Console output as usual, plus the median CPU time of every benchmark for the ratios (CPU time,
// kernel time included, is what this process spends; wall time on a shared machine is noisier).
class MedianRecorder : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> medians;  // CPU time, in each benchmark's display unit
};

void printRatio(const MedianRecorder& recorder, const char* what, const std::string& ours,
                const std::string& baseline, const char* aim) {
    const auto a = recorder.medians.find(ours), b = recorder.medians.find(baseline);
    if (a == recorder.medians.end() || b == recorder.medians.end() || b->second == 0) return;
    printf("ratio %-38s %-28s / %-28s = %.3f  (aim %s)\n", what, ours.c_str(), baseline.c_str(),
           a->second / b->second, aim);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const int present = countProcesses();
    IdleProcesses idle(kProcessesWanted > present ? kProcessesWanted - present : 0);
    printf("processes present for the scan: %d (%d idle children spawned)\n",
           present + idle.count(), idle.count());

    MedianRecorder recorder;
    benchmark::RunSpecifiedBenchmarks(&recorder);
    printf("\n");
    printRatio(recorder, "status parse: table vs strncmp walk", "BM_StatusParse_TableParser",
               "BM_StatusParse_StrncmpWalk", "< 0.25");
    printRatio(recorder, "status parse: table vs per-line sscanf", "BM_StatusParse_TableParser",
               "BM_StatusParse_SscanfLines", "< 0.125");
    printRatio(recorder, "full scan vs open+read+close floor", "BM_FullScan_ProcFsParser",
               "BM_FullScan_Floor", "<= 1.1");
    printRatio(recorder, "full scan vs floor + per-entry stat", "BM_FullScan_ProcFsParser",
               "BM_FullScan_FloorWithStat", "-");
    benchmark::Shutdown();
    return 0;
}
