#include <dirent.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "SamplerSources.h"

namespace sim::sdk {
namespace {

constexpr const char* kModes[] = {"user", "nice", "system", "idle", "iowait", "irq", "softirq"};
constexpr size_t kModeCount = sizeof(kModes) / sizeof(kModes[0]);

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Per CPU, the ticks of each mode from the "cpuN ..." lines of /proc/stat.
std::vector<std::vector<uint64_t>> cpuModeTicks() {
    std::vector<std::vector<uint64_t>> cpus;
    std::istringstream lines(readFile("/proc/stat"));
    for (std::string line; std::getline(lines, line);) {
        unsigned index = 0;
        if (sscanf(line.c_str(), "cpu%u ", &index) != 1 || index >= 255) continue;
        std::istringstream fields(line.substr(line.find(' ')));
        std::vector<uint64_t> ticks(kModeCount, 0);
        for (auto& t : ticks) fields >> t;
        if (cpus.size() <= index) cpus.resize(index + 1, std::vector<uint64_t>(kModeCount, 0));
        cpus[index] = ticks;
    }
    return cpus;
}

struct TaskStat {
    uint64_t ticks;  // utime + stime
    unsigned cpu;    // field 39, the CPU it last ran on
};

std::string taskPath(const LiveProcess::TaskId& task, const char* file) {
    return "/proc/" + std::to_string(task.pid) + "/task/" + std::to_string(task.tid) + "/" + file;
}

// Fields of /proc/<pid>/task/<tid>/stat after the command name, which may hold spaces.
bool readTaskStat(const LiveProcess::TaskId& task, TaskStat* stat) {
    const std::string text = readFile(taskPath(task, "stat"));
    const size_t close = text.rfind(')');
    if (close == std::string::npos) return false;
    std::istringstream fields(text.substr(close + 1));
    std::vector<std::string> f;  // f[0] is field 3 (state)
    for (std::string word; fields >> word;) f.push_back(word);
    if (f.size() < 37) return false;
    stat->ticks = strtoull(f[11].c_str(), nullptr, 10) + strtoull(f[12].c_str(), nullptr, 10);
    stat->cpu = static_cast<unsigned>(strtoul(f[36].c_str(), nullptr, 10));
    return true;
}

// The numeric entries of a /proc directory.
std::vector<int32_t> numericEntries(const std::string& path) {
    std::vector<int32_t> ids;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) return ids;
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') ids.push_back(atoi(entry->d_name));
    }
    closedir(dir);
    return ids;
}

// Every thread of every process; processes and threads that end while listed are skipped.
std::vector<LiveProcess::TaskId> allTasks() {
    std::vector<LiveProcess::TaskId> tasks;
    for (const int32_t pid : numericEntries("/proc")) {
        for (const int32_t tid : numericEntries("/proc/" + std::to_string(pid) + "/task")) {
            tasks.push_back({pid, tid});
        }
    }
    return tasks;
}

}  // namespace

Reading LiveProcess::next() {
    const auto modes = cpuModeTicks();
    const auto cpus = static_cast<uint8_t>(modes.size());
    ProfileDescription d;
    d.cpuCount = cpus;
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    d.timestampUs = static_cast<uint64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;

    std::map<int32_t, Thread> present;
    for (const TaskId& task : allTasks()) {
        TaskStat stat{};
        if (!readTaskStat(task, &stat)) continue;
        Thread thread = threads_.count(task.tid) ? threads_[task.tid] : Thread{};
        thread.pid = task.pid;
        thread.perCpu.resize(cpus, 0);
        if (stat.cpu < cpus) thread.perCpu[stat.cpu] += stat.ticks - thread.lastTicks;
        thread.lastTicks = stat.ticks;
        d.threads.push_back({task.tid, thread.perCpu});
        present[task.tid] = std::move(thread);
    }
    threads_ = std::move(present);

    NamedSection features{"features", {}};
    NamedSection ids{"feature-ids", {}};
    for (size_t m = 0; m < kModeCount; ++m) {
        std::vector<uint64_t> perCpu;
        for (const auto& cpu : modes) perCpu.push_back(cpu[m]);
        features.entries.push_back({kModes[m], perCpu});
        ids.entries.push_back({std::to_string(m), perCpu});
    }
    d.sections = {features, ids};
    return writeProfileBuffer(d);
}

std::string LiveProcess::threadName(int32_t tid) const {
    const auto thread = threads_.find(tid);
    if (thread == threads_.end()) return std::string();
    std::string name = readFile(taskPath({thread->second.pid, tid}, "comm"));
    while (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

}  // namespace sim::sdk
