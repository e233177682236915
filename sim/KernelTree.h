// The simulated headset's /proc and /sys as files: a temporary directory (mkdtemp in /dev/shm,
// else $TMPDIR or /tmp) installed as the file-system root while the tree lives, so the providers
// read the headset's kernel files instead of the workstation's. Removed, and the previous root
// restored, when the tree goes (a host stopped by SIGINT or SIGTERM ends its run normally, so this
// runs); the directory's name holds the pid of its process, and a tree whose process was killed
// outright is removed by the next one made.
//
// What it holds, everything the providers and scripts/capture-tree.sh read, from KernelModel:
//   proc/<pid>/{status,cmdline,stat,oom_score_adj}, proc/<pid>/task/<tid>/comm of every process
//   proc/meminfo, proc/pressure/memory, proc/vmstat
//   sys/block/zram0 -> ../devices/virtual/block/zram0: stat, mm_stat and the idle statistics
//     (idlehisto, idle_cluster_sz, simulated_bd_stat, and the control file
//     calculate_idle_pg_stats, written by SystemMemoryStats and left alone here)
//   sys/block/sda/stat: the storage that holds /data (and the swap file)
//   data/: the mount point whose statvfs() the headset's DataPartition answers (filling as the
//     system-wide files move)
// Formats and units: KernelText.h.
//
// refresh() writes only what changed, no more often than the providers read it: a process's
// directory when it starts or ends and its oom_score_adj when that changes, at once (at the
// model's step); the system-wide files (and what /data holds) at most once in every five device
// minutes, the system memory collector's period; a process's status and stat (memory and CPU
// times) when they changed, at most once in every 15, the process memory collector's period.
// The spans are whole multiples of device time, so a collector acquired at boot reads figures of
// the instant it samples. Files
// are rewritten in place (not atomically), so refresh on the thread that drives the providers,
// between their calls. Not thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "DataPartition.h"
#include "KernelModel.h"

namespace sim {

class KernelTree {
public:
    // Writes the tree of the model's state and installs it as the file-system root. When the
    // directory cannot be made, says so on stderr and installs nothing. `data` follows the
    // tree's storage (it fills as the headset writes).
    KernelTree(const KernelModel& model, DataPartition& data);
    ~KernelTree();
    KernelTree(const KernelTree&) = delete;
    KernelTree& operator=(const KernelTree&) = delete;

    // Writes what changed in the model since the last refresh.
    void refresh();
    // The tree's directory; "" when none could be made.
    const std::string& directory() const { return root_; }

    // The whole figures a process's status and stat show, to tell when they change.
    using Figures = std::array<int64_t, 10>;

private:
    // What the tree shows of a process.
    struct Shown {
        Figures figures{};
        int32_t oomScoreAdj = 0;
        size_t statusLength = 0, statLength = 0;  // bytes in its files
        std::vector<int32_t> tids;                // its task directories
    };

    void writeSystem(const MemoryModel& memory);
    // Starts and ends processes' directories and writes changed oom_score_adj files; the
    // processes' figures only when `figuresDue` (and for new processes).
    void writeProcesses(const ProcessTable& table, bool figuresDue);
    // Makes a new process's directory with its fixed files.
    Shown startProcess(const SimProcess& p);
    void endProcess(int32_t pid, const Shown& shown) const;
    // Writes `text` to the device path when it differs from what the last call wrote there.
    void writeChanged(const std::string& devicePath, const std::string& text);
    // Writes the whole file, whose length was `previousLength`; returns its length now.
    size_t write(const std::string& devicePath, const std::string& text,
                 size_t previousLength) const;
    void makeDirectory(const std::string& devicePath) const;

    const KernelModel& model_;
    DataPartition& data_;
    std::string root_;
    std::string previousRoot_;
    int64_t writtenAtNs_ = -1;
    int64_t systemWrittenAtNs_ = -1;
    int64_t figuresWrittenAtNs_ = -1;
    std::map<std::string, std::string> systemText_;  // by device path
    std::map<int32_t, Shown> shown_;                 // by pid
};

}  // namespace sim
