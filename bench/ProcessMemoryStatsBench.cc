// ProcessMemoryStats::sample() over the live /proc, with about 700 extra idle processes that
// this program spawns (and kills by pid on exit, whatever happens), against baselines measured
// in the same run:
//   floor   listing /proc plus open + one read + close of cmdline, status, oom_score_adj and
//           stat of every process: the system calls any such scan needs
//   ps      `ps -e -o pid,rss,vsz,comm,args` to /dev/null (whole program run)
//   psutil  one psutil.process_iter(['pid','name','cmdline','memory_info','cpu_times']) pass,
//           timed inside python (interpreter start-up excluded)
// Time is CPU time (user + system) of the work: the benchmark thread for sample and floor, the
// ps child's rusage, python's process_time(). On a shared machine wall time mostly measures the
// neighbours; it is printed too. Repetitions are interleaved at random. The summary prints the
// medians and the ratios sample/floor, sample/ps and sample/psutil.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ProcessMemoryStats.h"
#include "TriggerService.h"
#include "hostplatform/FsRoot.h"

namespace {

constexpr int kIdleProcesses = 700;

// Children to kill, kept in plain storage so the signal handler can reach them.
pid_t g_children[kIdleProcesses];
volatile sig_atomic_t g_childCount = 0;

void killChildren() {
    for (int i = 0; i < g_childCount; ++i) kill(g_children[i], SIGKILL);
    for (int i = 0; i < g_childCount; ++i) waitpid(g_children[i], nullptr, 0);
    g_childCount = 0;
}

void onFatalSignal(int signal) {
    for (int i = 0; i < g_childCount; ++i) kill(g_children[i], SIGKILL);
    _exit(128 + signal);
}

struct IdleProcesses {
    IdleProcesses() {
        for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGSEGV, SIGABRT}) signal(sig, onFatalSignal);
        const pid_t parent = getpid();
        for (int i = 0; i < kIdleProcesses; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);  // also gone if this program dies
                if (getppid() != parent) _exit(0);
                execl("/bin/sleep", "sleep", "3600", static_cast<char*>(nullptr));
                _exit(127);
            }
            if (child < 0) break;
            g_children[g_childCount] = child;
            g_childCount = g_childCount + 1;
        }
        // Wait until every child runs sleep, so the scan sees its own memory and command line.
        for (int i = 0; i < g_childCount; ++i) {
            char path[64], comm[32] = {};
            snprintf(path, sizeof(path), "/proc/%d/comm", g_children[i]);
            for (int tries = 0; tries < 2000; ++tries) {
                FILE* f = fopen(path, "re");
                const bool ready = f != nullptr && fgets(comm, sizeof(comm), f) != nullptr &&
                                   strncmp(comm, "sleep", 5) == 0;
                if (f != nullptr) fclose(f);
                if (ready) break;
                usleep(1000);
            }
        }
    }
    ~IdleProcesses() { killChildren(); }
};

class NullClock : public Vistrel::IClockReader {
public:
    int64_t elapsedNs() override { return 0; }
    int64_t readTimestamp() override { return 0; }
    int64_t nowNs() override { return 0; }
};

void BM_Sample(benchmark::State& state) {
    Vistrel::ProcessMemoryStats stats;
    NullClock clock;
    for (auto _ : state) benchmark::DoNotOptimize(stats.sample(clock));
    state.counters["processes"] = static_cast<double>(stats.snapshots.size());
}

void readOnce(const char* path, char* buffer, size_t size) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    benchmark::DoNotOptimize(read(fd, buffer, size));
    close(fd);
}

void BM_Floor(benchmark::State& state) {
    static char buffer[4096];
    for (auto _ : state) {
        DIR* proc = opendir("/proc");
        while (const dirent* e = readdir(proc)) {
            if (!isdigit(static_cast<unsigned char>(e->d_name[0]))) continue;
            char path[300];
            for (const char* file : {"cmdline", "status", "oom_score_adj", "stat"}) {
                snprintf(path, sizeof(path), "/proc/%s/%s", e->d_name, file);
                readOnce(path, buffer, sizeof(buffer));
            }
        }
        closedir(proc);
    }
}

// Runs argv with stdout (and stderr) on /dev/null; returns its wait status and, in *cpuSeconds,
// the CPU time (user + system) it used.
int runQuiet(const std::vector<const char*>& argv, double* cpuSeconds) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> args;
    for (const char* a : argv) args.push_back(const_cast<char*>(a));
    args.push_back(nullptr);
    pid_t pid = 0;
    int status = -1;
    struct rusage usage {};
    if (posix_spawn(&pid, argv[0], &actions, nullptr, args.data(), environ) == 0) {
        wait4(pid, &status, 0, &usage);
    }
    *cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                  static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    posix_spawn_file_actions_destroy(&actions);
    return status;
}

void BM_Ps(benchmark::State& state) {
    for (auto _ : state) {
        double cpuSeconds = 0;
        if (runQuiet({"/usr/bin/ps", "-e", "-o", "pid,rss,vsz,comm,args"}, &cpuSeconds) != 0) {
            state.SkipWithError("ps failed");
            break;
        }
        state.SetIterationTime(cpuSeconds);
    }
}

// Mean CPU seconds of one psutil pass, timed inside python after two warm-up passes.
double psutilPassSeconds(int passes) {
    const std::string script =
            "import time, psutil\n"
            "attrs = ['pid', 'name', 'cmdline', 'memory_info', 'cpu_times']\n"
            "def scan(): return [p.info for p in psutil.process_iter(attrs)]\n"
            "scan(); scan()\n"
            "t = time.process_time()\n"
            "for _ in range(" +
            std::to_string(passes) +
            "): scan()\n"
            "print((time.process_time() - t) / " +
            std::to_string(passes) + ")\n";
    const std::string command = "/usr/bin/python3 -c \"" + script + "\"";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return -1;
    double seconds = -1;
    if (fscanf(pipe, "%lf", &seconds) != 1) seconds = -1;
    pclose(pipe);
    return seconds;
}

void BM_Psutil(benchmark::State& state) {
    for (auto _ : state) {
        const double seconds = psutilPassSeconds(5);
        if (seconds <= 0) {
            state.SkipWithError("python3 with psutil failed");
            break;
        }
        state.SetIterationTime(seconds);
    }
}

constexpr int kRepetitions = 5;
BENCHMARK(BM_Floor)
        ->Unit(benchmark::kMillisecond)
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly(true);
BENCHMARK(BM_Sample)
        ->Unit(benchmark::kMillisecond)
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly(true);
BENCHMARK(BM_Ps)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(10)
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly(true);
BENCHMARK(BM_Psutil)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(1)
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly(true);

// Console output plus the median times of each benchmark, for the ratio summary.
class MedianCollector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name != "median" || run.error_occurred) continue;
            const std::string& name = run.run_name.function_name;
            // Manual time already is the work's CPU time; otherwise take the thread's.
            const bool manual = !run.run_name.time_type.empty();
            cpu[name] = manual ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
            wall[name] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> cpu;   // ms per pass
    std::map<std::string, double> wall;  // ms per pass
};

}  // namespace

int main(int argc, char** argv) {
    // Interleave repetitions unless the command line says otherwise.
    std::vector<char*> args(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    hostplatform::setFsRoot("");   // the live /proc
    sim::installTriggerService();  // over-budget processes of this machine are reported to it
    IdleProcesses idle;
    printf("spawned %d idle processes\n", static_cast<int>(g_childCount));

    MedianCollector reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    killChildren();
    sim::removeTriggerService();

    const auto ratio = [](std::map<std::string, double>& m, const char* kind, const char* baseline) {
        if (!m.count("BM_Sample") || !m.count(baseline) || m[baseline] <= 0) return;
        printf("RATIO %s sample/%-7s %.3f  (%.3f ms vs %.3f ms)\n", kind, baseline + 3,
               m["BM_Sample"] / m[baseline], m["BM_Sample"], m[baseline]);
    };
    ratio(reporter.cpu, "cpu ", "BM_Floor");
    ratio(reporter.cpu, "cpu ", "BM_Ps");
    ratio(reporter.cpu, "cpu ", "BM_Psutil");
    ratio(reporter.wall, "wall", "BM_Floor");
    benchmark::Shutdown();
    return 0;
}
