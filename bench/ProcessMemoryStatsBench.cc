// ProcessMemoryStats::sample() over the live /proc, with about 700 processes present (idle
// children are spawned for it), paired with baselines:
//   floor   listing /proc plus open + one read + close of cmdline, status, oom_score_adj and
//           stat of every process: the system calls any such scan needs
//   ps      `ps -e -o pid,rss,vsz,comm,args` to /dev/null (whole program run, the child's CPU)
//   psutil  one psutil.process_iter(['pid','name','cmdline','memory_info','cpu_times']) pass,
//           timed inside python with process_time() (interpreter start-up excluded)
// "part:" pairs show what the gap to the floor consists of: the same floor plus the table parse
// of every status text (the per-process work the collector cannot skip).
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ProcessMemoryStats.h"
#include "TriggerService.h"
#include "hostplatform/FsRoot.h"
#include "procfsutils/ProcFsParserInternal.h"

namespace {

class NullClock : public Vistrel::IClockReader {
public:
    int64_t elapsedNs() override { return 0; }
    int64_t readTimestamp() override { return 0; }
    int64_t nowNs() override { return 0; }
};

// open + one read + close; the byte count, or -1.
ssize_t readOnce(const char* path, char* buffer, size_t size) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    const ssize_t count = read(fd, buffer, size);
    close(fd);
    return count;
}

// Every process's four files; with `parseStatus`, the status text is also parsed.
void scanFloor(bool parseStatus) {
    static char buffer[32768];
    DIR* proc = opendir("/proc");
    if (proc == nullptr) return;
    while (const dirent* e = readdir(proc)) {
        if (!isdigit(static_cast<unsigned char>(e->d_name[0]))) continue;
        char path[300];
        for (const char* file : {"cmdline", "status", "oom_score_adj", "stat"}) {
            snprintf(path, sizeof(path), "/proc/%s/%s", e->d_name, file);
            const ssize_t count = readOnce(path, buffer, sizeof(buffer));
            if (parseStatus && count >= 0 && strcmp(file, "status") == 0) {
                procfsutils::ProcessStatusData status;
                memset(&status, 0, sizeof status);
                procfsutils::internal::parseProcessStatusData(buffer, static_cast<int>(count),
                                                              &status);
                benchmark::DoNotOptimize(status);
            }
        }
    }
    closedir(proc);
}

// Runs argv with stdout and stderr on /dev/null; the CPU seconds (user + system) it used, or -1.
double runQuiet(const std::vector<const char*>& argv) {
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
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) return -1;
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU seconds of `passes` psutil passes, timed inside python after two warm-up passes; -1 when
// python3 or psutil is missing.
double psutilSeconds(int passes) {
    const std::string script =
            "import time, psutil\n"
            "attrs = ['pid', 'name', 'cmdline', 'memory_info', 'cpu_times']\n"
            "def scan(): return [p.info for p in psutil.process_iter(attrs)]\n"
            "scan(); scan()\n"
            "t = time.process_time()\n"
            "for _ in range(" +
            std::to_string(passes) +
            "): scan()\n"
            "print(time.process_time() - t)\n";
    const std::string command = "/usr/bin/python3 -c \"" + script + "\" 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return -1;
    double seconds = -1;
    if (fscanf(pipe, "%lf", &seconds) != 1) seconds = -1;
    pclose(pipe);
    return seconds;
}

}  // namespace

int main(int argc, char** argv) {
    hostplatform::setFsRoot("");   // the live /proc
    sim::installTriggerService();  // over-budget processes of this machine are reported to it
    benchsupport::IdleProcesses idle(700);
    printf("processes present for the scan: %d (%d idle children spawned)\n",
           benchsupport::countProcesses(), idle.spawned());

    Vistrel::ProcessMemoryStats stats;
    NullClock clock;
    const benchsupport::Side sample =
            benchsupport::onThisThread([&] { benchmark::DoNotOptimize(stats.sample(clock)); });
    const benchsupport::Side ps = [](int calls) {
        double total = 0;
        for (int i = 0; i < calls; ++i) {
            const double seconds = runQuiet({"/usr/bin/ps", "-e", "-o", "pid,rss,vsz,comm,args"});
            if (seconds < 0) return -1.0;
            total += seconds;
        }
        return total;
    };
    const std::vector<benchsupport::Pair> pairs = {
            {"sample vs floor", sample, benchsupport::onThisThread([] { scanFloor(false); }), 1,
             "<= 1.25"},
            {"sample vs ps", sample, ps, 1, "<= 0.75"},
            {"sample vs psutil", sample, psutilSeconds, 3, "0.5"},
            {"part: sample vs floor + status parse", sample,
             benchsupport::onThisThread([] { scanFloor(true); }), 1, "-"},
    };
    const int status = benchsupport::runPairs(argc, argv, pairs, 10, 1.0);
    sim::removeTriggerService();
    return status;
}
