#include "KernelTree.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "KernelText.h"
#include "hostplatform/FsRoot.h"

namespace sim {
namespace {

constexpr const char kZramDir[] = "/sys/devices/virtual/block/zram0";
// System-wide files are written at most once in each span of five device minutes (the system
// memory collector's period), processes' figures (status, stat) once in each span of 15 (the
// process memory collector's).
constexpr int64_t kSystemFilesNs = INT64_C(300000000000);
constexpr int64_t kProcessFiguresNs = INT64_C(900000000000);

// Whether `atNs` lies in another span of `spanNs` than `lastNs` (none before the first); if so,
// `lastNs` becomes `atNs`.
bool dueAgain(int64_t& lastNs, int64_t atNs, int64_t spanNs) {
    if (lastNs >= 0 && atNs / spanNs == lastNs / spanNs) return false;
    lastNs = atNs;
    return true;
}

std::string processPath(int32_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

// The figures of a process that its status and stat show, as whole numbers.
KernelTree::Figures shownFigures(const SimProcess& p) {
    const double busy = p.busy();
    const double figures[] = {p.anonKb,
                              p.fileKb,
                              p.shmemKb,
                              p.swapKb,
                              p.peakRssKb,
                              p.userTicks,
                              p.systemTicks,
                              p.majorFaults,
                              busy >= 0.3 ? 1.0 : 0.0,
                              busy == 0 ? 1.0 : 0.0};
    KernelTree::Figures whole{};
    for (size_t i = 0; i < whole.size(); ++i) {
        whole[i] = static_cast<int64_t>(std::floor(figures[i]));
    }
    return whole;
}

// Where the tree goes: memory (/dev/shm), as /proc is, where rewriting a file in place costs a
// few microseconds; else $TMPDIR or /tmp, where a journaling file system may make every rewrite
// that shortens a file wait for the disk.
std::string treeParent() {
    if (access("/dev/shm", W_OK | X_OK) == 0) return "/dev/shm";
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
}

constexpr const char kTreePrefix[] = "vistrel-headset-";

// Removes the trees under `parent` that processes killed outright (SIGKILL, a crash) left: those
// named after a pid that no longer runs.
void removeTreesOfEndedProcesses(const std::string& parent) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(parent, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(kTreePrefix, 0) != 0) continue;
        const long pid = strtol(name.c_str() + strlen(kTreePrefix), nullptr, 10);
        if (pid <= 0 || kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
        std::error_code ignored;
        std::filesystem::remove_all(entry.path(), ignored);
    }
}

}  // namespace

KernelTree::KernelTree(const KernelModel& model, DataPartition& data) : model_(model), data_(data) {
    const std::string parent = treeParent();
    removeTreesOfEndedProcesses(parent);
    std::string pattern = parent + "/" + kTreePrefix + std::to_string(getpid()) + "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        fprintf(stderr, "simulated headset: cannot make its kernel tree %s: %s\n", pattern.c_str(),
                strerror(errno));
        return;
    }
    root_ = pattern;
    for (const char* dir : {"/proc/pressure", kZramDir, "/sys/block/sda", "/data"})
        makeDirectory(dir);
    std::error_code ignored;
    std::filesystem::create_directory_symlink("../devices/virtual/block/zram0",
                                              root_ + "/sys/block/zram0", ignored);
    write(std::string(kZramDir) + "/calculate_idle_pg_stats", "", 0);
    previousRoot_ = hostplatform::fsRoot();
    refresh();
    hostplatform::setFsRoot(root_);
}

KernelTree::~KernelTree() {
    if (root_.empty()) return;
    hostplatform::setFsRoot(previousRoot_);
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

void KernelTree::refresh() {
    if (root_.empty()) return;
    model_.read([this](const ProcessTable& table, const MemoryModel& memory, int64_t atNs) {
        if (atNs == writtenAtNs_) return;
        writtenAtNs_ = atNs;
        if (dueAgain(systemWrittenAtNs_, atNs, kSystemFilesNs)) {
            writeSystem(memory);
            data_.setFilled(memory.dataFilledBytes());
        }
        writeProcesses(table, dueAgain(figuresWrittenAtNs_, atNs, kProcessFiguresNs));
    });
}

void KernelTree::writeSystem(const MemoryModel& memory) {
    namespace text = kerneltext;
    const std::string zram = kZramDir;
    writeChanged("/proc/meminfo", text::meminfo(memory.memInfo()));
    writeChanged("/proc/pressure/memory", text::pressure(memory.pressure()));
    writeChanged("/proc/vmstat", text::vmstat(memory.memInfo(), memory.vm()));
    writeChanged(zram + "/stat", text::blockStat(memory.zramBlock()));
    writeChanged(zram + "/mm_stat", text::mmStat(memory.zram()));
    writeChanged(zram + "/idlehisto", text::idleHistogram(memory.zram()));
    writeChanged(zram + "/idle_cluster_sz", text::idleClusterSizes(memory.zram()));
    writeChanged(zram + "/simulated_bd_stat", text::simulatedBdStat(memory.zram()));
    writeChanged("/sys/block/sda/stat", text::blockStat(memory.dataBlock()));
}

KernelTree::Shown KernelTree::startProcess(const SimProcess& p) {
    Shown shown;
    makeDirectory(processPath(p.pid, "task"));
    write(processPath(p.pid, "cmdline"), p.cmdline, 0);
    for (const SimThread& t : p.threads) {
        const std::string task = processPath(p.pid, "task/") + std::to_string(t.tid);
        mkdir((root_ + task).c_str(), 0755);
        write(task + "/comm", t.name + "\n", 0);
        shown.tids.push_back(t.tid);
    }
    shown.oomScoreAdj = p.oomScoreAdj;
    write(processPath(p.pid, "oom_score_adj"), kerneltext::oomScoreAdj(p), 0);
    return shown;
}

void KernelTree::endProcess(int32_t pid, const Shown& shown) const {
    const auto remove = [this](const std::string& devicePath) {
        ::remove((root_ + devicePath).c_str());  // a file, or an empty directory
    };
    for (const int32_t tid : shown.tids) {
        const std::string task = processPath(pid, "task/") + std::to_string(tid);
        remove(task + "/comm");
        remove(task);
    }
    for (const char* entry : {"task", "cmdline", "oom_score_adj", "status", "stat"}) {
        remove(processPath(pid, entry));
    }
    remove("/proc/" + std::to_string(pid));
}

void KernelTree::writeProcesses(const ProcessTable& table, bool figuresDue) {
    for (auto it = shown_.begin(); it != shown_.end();) {
        if (table.processes().count(it->first) != 0) {
            ++it;
            continue;
        }
        endProcess(it->first, it->second);
        it = shown_.erase(it);
    }
    for (const auto& [pid, p] : table.processes()) {
        auto found = shown_.find(pid);
        const bool started = found == shown_.end();
        if (started) found = shown_.emplace(pid, startProcess(p)).first;
        Shown& shown = found->second;
        if (shown.oomScoreAdj != p.oomScoreAdj) {
            shown.oomScoreAdj = p.oomScoreAdj;
            write(processPath(pid, "oom_score_adj"), kerneltext::oomScoreAdj(p), 0);
        }
        if (!figuresDue && !started) continue;
        const Figures figures = shownFigures(p);
        if (!started && figures == shown.figures) continue;
        shown.figures = figures;
        shown.statusLength =
                write(processPath(pid, "status"), kerneltext::status(p), shown.statusLength);
        shown.statLength = write(processPath(pid, "stat"), kerneltext::stat(p), shown.statLength);
    }
}

void KernelTree::writeChanged(const std::string& devicePath, const std::string& text) {
    std::string& last = systemText_[devicePath];
    if (last == text) return;
    write(devicePath, text, last.size());
    last = text;
}

size_t KernelTree::write(const std::string& devicePath, const std::string& text,
                         size_t previousLength) const {
    // Overwritten in place, and cut only when it got shorter: truncating to nothing first would
    // make some file systems flush the file on close, at a hundred times the cost.
    const int fd = open((root_ + devicePath).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return previousLength;
    const bool whole = pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
    if (whole && text.size() < previousLength) {
        [[maybe_unused]] const int cut = ftruncate(fd, static_cast<off_t>(text.size()));
    }
    close(fd);
    return whole ? text.size() : previousLength;
}

void KernelTree::makeDirectory(const std::string& devicePath) const {
    std::error_code ignored;
    std::filesystem::create_directories(root_ + devicePath, ignored);
}

}  // namespace sim
