#include "KernelTree.h"

#include <fcntl.h>
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
// Processes' figures (status, stat) are written at most once in each such span of device time.
constexpr int64_t kProcessFiguresNs = INT64_C(900000000000);

std::string processPath(int32_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

// The figures of a process that its status and stat show, as whole numbers.
std::string shownFigures(const SimProcess& p) {
    std::string key;
    for (const double figure :
         {p.anonKb, p.fileKb, p.shmemKb, p.swapKb, p.peakRssKb, p.userTicks, p.systemTicks,
          p.majorFaults, p.busy() >= 0.3 ? 1.0 : 0.0, p.busy() == 0 ? 1.0 : 0.0}) {
        key += std::to_string(static_cast<int64_t>(std::floor(figure))) + ' ';
    }
    return key;
}

// Where the tree goes: memory (/dev/shm), as /proc is, where rewriting a file in place costs a
// few microseconds; else $TMPDIR or /tmp, where a journaling file system may make every rewrite
// that shortens a file wait for the disk.
std::string treeParent() {
    if (access("/dev/shm", W_OK | X_OK) == 0) return "/dev/shm";
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
}

}  // namespace

KernelTree::KernelTree(const KernelModel& model, DataPartition& data) : model_(model), data_(data) {
    std::string pattern = treeParent() + "/vistrel-headset-XXXXXX";
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
    write(std::string(kZramDir) + "/calculate_idle_pg_stats", "");
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
        writeSystem(memory);
        const bool figuresDue = figuresWrittenAtNs_ < 0 ||
                                atNs / kProcessFiguresNs != figuresWrittenAtNs_ / kProcessFiguresNs;
        if (figuresDue) figuresWrittenAtNs_ = atNs;
        writeProcesses(table, figuresDue);
        data_.setFilled(memory.dataFilledBytes());
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

void KernelTree::startProcess(const SimProcess& p) {
    makeDirectory("/proc/" + std::to_string(p.pid));
    write(processPath(p.pid, "cmdline"), p.cmdline);
    for (const SimThread& t : p.threads) {
        const std::string task = processPath(p.pid, "task/") + std::to_string(t.tid);
        makeDirectory(task);
        write(task + "/comm", t.name + "\n");
    }
}

void KernelTree::writeProcesses(const ProcessTable& table, bool figuresDue) {
    for (auto it = shown_.begin(); it != shown_.end();) {
        if (table.processes().count(it->first) != 0) {
            ++it;
            continue;
        }
        std::error_code ignored;
        std::filesystem::remove_all(root_ + "/proc/" + std::to_string(it->first), ignored);
        it = shown_.erase(it);
    }
    for (const auto& [pid, p] : table.processes()) {
        auto shown = shown_.find(pid);
        if (shown == shown_.end()) {
            startProcess(p);
            shown = shown_.emplace(pid, Shown{"", p.oomScoreAdj}).first;
            write(processPath(pid, "oom_score_adj"), kerneltext::oomScoreAdj(p));
        }
        if (shown->second.oomScoreAdj != p.oomScoreAdj) {
            shown->second.oomScoreAdj = p.oomScoreAdj;
            write(processPath(pid, "oom_score_adj"), kerneltext::oomScoreAdj(p));
        }
        if (!figuresDue && !shown->second.figures.empty()) continue;
        std::string figures = shownFigures(p);
        if (figures == shown->second.figures) continue;
        shown->second.figures = std::move(figures);
        write(processPath(pid, "status"), kerneltext::status(p));
        write(processPath(pid, "stat"), kerneltext::stat(p));
    }
}

void KernelTree::writeChanged(const std::string& devicePath, const std::string& text) {
    std::string& last = systemText_[devicePath];
    if (last == text) return;
    write(devicePath, text);
    last = text;
}

void KernelTree::write(const std::string& devicePath, const std::string& text) const {
    // Overwritten in place and cut to length: truncating to nothing first would make some file
    // systems flush the file on close, at a hundred times the cost.
    const int fd = open((root_ + devicePath).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    const ssize_t written = pwrite(fd, text.data(), text.size(), 0);
    if (written == static_cast<ssize_t>(text.size())) {
        [[maybe_unused]] const int cut = ftruncate(fd, static_cast<off_t>(text.size()));
    }
    close(fd);
}

void KernelTree::makeDirectory(const std::string& devicePath) const {
    std::error_code ignored;
    std::filesystem::create_directories(root_ + devicePath, ignored);
}

}  // namespace sim
