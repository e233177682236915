// What the benchmark programs share: idle child processes for scans of /proc (killed by pid
// however the program ends), and paired measurements that compare an operation with its baseline
// in CPU time, then print each ratio's median and spread over the repetitions.
//
// A paired benchmark runs the operation and the baseline alternately inside every iteration
// (which goes first alternates too), so both see the same machine load, caches and frequency;
// each repetition yields one ratio of the two CPU-time totals. Repetitions of different pairs
// are interleaved at random. Time is CPU time (user + system): the benchmark thread's for work
// done in this process, the child's for a program run. On a shared machine wall time mostly
// measures the neighbours.
#pragma once

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace benchsupport {

// CPU time of the calling thread, kernel time included, in seconds.
inline double threadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Puts `dir` (the build's simulated SDK modules) first on the library search path, which the
// loader reads only at start-up: re-executes the program once when it is not there yet.
inline void searchModulesIn(const std::string& dir, char** argv) {
    const char* path = getenv("LD_LIBRARY_PATH");
    if (path == nullptr || std::string(path).rfind(dir, 0) != 0) {
        setenv("LD_LIBRARY_PATH", (dir + (path ? ":" + std::string(path) : "")).c_str(), 1);
        execv("/proc/self/exe", argv);
    }
}

// ---- Idle processes -----------------------------------------------------------------------

// Children kept in plain storage so that a signal handler and an exit handler can kill them.
inline constexpr int kMaxChildren = 4096;
inline pid_t g_children[kMaxChildren];
inline volatile sig_atomic_t g_childCount = 0;
inline constexpr int kFatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGSEGV, SIGBUS, SIGABRT};

// Async-signal-safe: kill() only.
inline void killChildren() {
    for (int i = 0; i < g_childCount; ++i) kill(g_children[i], SIGKILL);
}

inline void onFatalSignal(int signal) {
    killChildren();
    ::signal(signal, SIG_DFL);
    raise(signal);
}

// Processes present in a /proc (numeric entries): this machine's, or a tree's.
inline int countProcesses(const std::string& procDir = "/proc") {
    int count = 0;
    if (DIR* proc = opendir(procDir.c_str())) {
        while (const dirent* entry = readdir(proc))
            count += entry->d_name[0] >= '1' && entry->d_name[0] <= '9';
        closedir(proc);
    }
    return count;
}

// Spawns `/bin/sleep 3600` children until about `wanted` processes are present, and waits until
// each runs sleep, so scans see settled processes with their own memory and command line. The
// children die with this program: by pid from the destructor, an exit handler or a fatal-signal
// handler, and by PR_SET_PDEATHSIG if it is killed outright.
class IdleProcesses {
public:
    explicit IdleProcesses(int wanted) {
        for (int signal : kFatalSignals) ::signal(signal, onFatalSignal);
        atexit(killChildren);
        const pid_t parent = getpid();
        for (int missing = wanted - countProcesses(); missing > 0 && g_childCount < kMaxChildren;
             --missing) {
            const pid_t child = fork();
            if (child < 0) break;
            if (child == 0) runIdle(parent);
            g_children[g_childCount] = child;
            g_childCount = g_childCount + 1;
        }
        for (int i = 0; i < g_childCount; ++i) waitUntilSleeping(g_children[i]);
    }
    ~IdleProcesses() {
        killChildren();
        for (int i = 0; i < g_childCount; ++i) waitpid(g_children[i], nullptr, 0);
        g_childCount = 0;
        for (int signal : kFatalSignals) ::signal(signal, SIG_DFL);
    }
    IdleProcesses(const IdleProcesses&) = delete;
    IdleProcesses& operator=(const IdleProcesses&) = delete;

    int spawned() const { return g_childCount; }

private:
    [[noreturn]] static void runIdle(pid_t parent) {
        for (int signal : kFatalSignals) ::signal(signal, SIG_DFL);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(0);  // the parent died before the request took hold
        execl("/bin/sleep", "sleep", "3600", static_cast<char*>(nullptr));
        _exit(127);
    }
    static void waitUntilSleeping(pid_t child) {
        char path[64], comm[32];
        snprintf(path, sizeof(path), "/proc/%d/comm", child);
        for (int tries = 0; tries < 2000; ++tries) {
            FILE* file = fopen(path, "re");
            const bool ready = file != nullptr && fgets(comm, sizeof(comm), file) != nullptr &&
                               strncmp(comm, "sleep", 5) == 0;
            if (file != nullptr) fclose(file);
            if (ready) return;
            usleep(1000);
        }
    }
};

// ---- Paired measurements ------------------------------------------------------------------

// One side of a comparison: performs `calls` calls and returns the CPU seconds they used.
using Side = std::function<double(int calls)>;

// A side whose work runs on the benchmark thread, timed by the thread's CPU clock.
template <typename Call>
Side onThisThread(Call call) {
    return [call](int calls) mutable {
        const double start = threadCpuSeconds();
        for (int i = 0; i < calls; ++i) call();
        return threadCpuSeconds() - start;
    };
}

struct Pair {
    std::string name;      // benchmark name, e.g. "SystemMemoryStats::sample vs floor"
    Side operation;        // what is measured
    Side baseline;         // what it is compared with
    int callsPerSide = 1;  // calls of each side per iteration: enough to dwarf the clock reads
    const char* aim = "-";
};

// Runs the pair alternately, `callsPerSide` calls a side per iteration, and records the totals;
// the iteration time is the CPU time of both sides.
inline void runPair(benchmark::State& state, const Pair& pair) {
    double operationSeconds = 0, baselineSeconds = 0;
    int64_t calls = 0;
    bool operationFirst = true;
    for (auto _ : state) {
        double operation = 0, baseline = 0;
        if (operationFirst) {
            operation = pair.operation(pair.callsPerSide);
            baseline = pair.baseline(pair.callsPerSide);
        } else {
            baseline = pair.baseline(pair.callsPerSide);
            operation = pair.operation(pair.callsPerSide);
        }
        operationFirst = !operationFirst;
        if (operation < 0 || baseline <= 0) {
            state.SkipWithError("a side could not run");
            return;
        }
        state.SetIterationTime(operation + baseline);
        operationSeconds += operation;
        baselineSeconds += baseline;
        calls += pair.callsPerSide;
    }
    state.counters["operation_us"] = operationSeconds / static_cast<double>(calls) * 1e6;
    state.counters["baseline_us"] = baselineSeconds / static_cast<double>(calls) * 1e6;
    state.counters["ratio"] = operationSeconds / baselineSeconds;
}

// Console output of the aggregates only, plus every repetition's ratio and times per pair.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    struct Samples {
        std::vector<double> ratios, operationUs, baselineUs;
    };

    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> aggregates;
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate) {
                aggregates.push_back(run);
            } else if (!run.error_occurred && run.counters.count("ratio") != 0) {
                Samples& s = samples[run.run_name.function_name];
                s.ratios.push_back(run.counters.at("ratio"));
                s.operationUs.push_back(run.counters.at("operation_us"));
                s.baselineUs.push_back(run.counters.at("baseline_us"));
            }
        }
        if (!aggregates.empty()) ConsoleReporter::ReportRuns(aggregates);
    }

    std::map<std::string, Samples> samples;
};

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Registers every pair with `repetitions` repetitions of at least `minSeconds` of CPU time each,
// runs them (repetitions interleaved at random unless the command line says otherwise) and
// prints one line per pair: median ratio, its min-max over the repetitions, the median times.
inline int runPairs(int argc, char** argv, const std::vector<Pair>& pairs, int repetitions,
                    double minSeconds) {
    std::vector<char*> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
    for (const Pair& pair : pairs) {
        benchmark::RegisterBenchmark(pair.name.c_str(),
                                     [&pair](benchmark::State& state) { runPair(state, pair); })
                ->UseManualTime()
                ->MinTime(minSeconds)
                ->MinWarmUpTime(minSeconds / 5)
                ->Repetitions(repetitions)
                ->Unit(benchmark::kMillisecond);
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printf("\n%-52s %7s  %-15s %12s %12s  %s\n", "ratio (CPU time)", "median", "min-max",
           "operation us", "baseline us", "aim");
    for (const Pair& pair : pairs) {
        const auto found = reporter.samples.find(pair.name);
        if (found == reporter.samples.end() || found->second.ratios.empty()) {
            printf("%-52s not measured (filtered out or skipped)\n", pair.name.c_str());
            continue;
        }
        const auto& s = found->second;
        const auto [low, high] = std::minmax_element(s.ratios.begin(), s.ratios.end());
        char spread[32];
        snprintf(spread, sizeof(spread), "%.3f-%.3f", *low, *high);
        printf("%-52s %7.3f  %-15s %12.1f %12.1f  %s\n", pair.name.c_str(), median(s.ratios),
               spread, median(s.operationUs), median(s.baselineUs), pair.aim);
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace benchsupport
