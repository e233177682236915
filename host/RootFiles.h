// The files the providers and the sysfs HALs read under a file-system root (--root,
// VISTREL_FS_ROOT), checked before a run: a FIFO, socket or device in their place would block a
// reader for good or feed it endless bytes, where a kernel file answers at once.
//
// The paths are those scripts/capture-tree.sh copies: /proc/{meminfo,vmstat,pressure/memory};
// status, cmdline, stat and oom_score_adj of every /proc/<pid>; stat and mm_stat of every
// /sys/block device; zram0's idle statistics and control file; the power supplies' attributes;
// the thermal zones' and cooling devices' type, temp, cur_state and trip points. Entries are
// followed through symbolic links, as a reader opening them would.
#pragma once

#include <optional>
#include <string>

namespace host {

// The first special file among those paths under `root`, as "/proc/meminfo is a FIFO", or
// empty when there is none. Looks at no more than kMaxRootFilesChecked paths.
std::optional<std::string> findSpecialFile(const std::string& root);

inline constexpr size_t kMaxRootFilesChecked = 200000;

}  // namespace host
