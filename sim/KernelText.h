// The text of the kernel files of the simulated headset, in the formats of its 5.10 kernel
// (fs/proc/array.c, fs/proc/meminfo.c, mm/vmstat.c, kernel/sched/psi.c, block/genhd.c,
// drivers/block/zram). Every function returns a whole file's bytes; figures are rounded down.
#pragma once

#include <string>

#include "MemoryModel.h"
#include "ProcessTable.h"

namespace sim {
namespace kerneltext {

// /proc/<pid>/status, e.g. (a kernel thread has no Vm*, Rss* lines):
//   Name:   xrcompositor
//   State:  S (sleeping)
//   Tgid:   520
//   ...
//   VmRSS:    228352 kB
//   RssAnon:   97280 kB
//   ...
//   Threads:        3
//   voluntary_ctxt_switches:        251
std::string status(const SimProcess& p);
// /proc/<pid>/stat, one line of 52 fields; times in clock ticks (100 per second):
//   520 (xrcompositor) S 1 520 0 0 -1 4194560 1034 0 0 0 1210 302 0 0 20 0 3 0 260 ...
std::string stat(const SimProcess& p);
// /proc/<pid>/oom_score_adj: "-1000\n".
std::string oomScoreAdj(const SimProcess& p);

// /proc/meminfo, KiB: "MemTotal:        5735408 kB" and the other lines of a 5.10 kernel.
std::string meminfo(const MemInfo& m);
// /proc/pressure/memory, percent and microseconds:
//   some avg10=0.05 avg60=0.05 avg300=0.05 total=123456
//   full avg10=0.01 avg60=0.01 avg300=0.01 total=37036
std::string pressure(const MemoryPressure& p);
// /proc/vmstat, "name value" per line, pages: "nr_free_pages 47104", ... "pswpin 0",
// "pswpout 2816", ...
std::string vmstat(const MemInfo& m, const VmCounters& v);
// /sys/block/<device>/stat, the 17 columns of a 5.10 kernel (sectors of 512 bytes, ms):
//   "    1228      301    91002      811 ..."
std::string blockStat(const BlockCounters& b);
// /sys/block/zram0/mm_stat, ten columns (bytes, pages; the device kernel's tenth is 0 here):
//   "1811939328 520093696 548405248 0 601292800 182315 20145 1022 3301 0"
std::string mmStat(const ZramFigures& z);
// zram0's idle statistics under /sys/devices/virtual/block/zram0/, one line of numbers each:
// idlehisto (20 buckets of stored pages by idle age, youngest first), idle_cluster_sz (8
// counts of idle clusters by size) and simulated_bd_stat (idle pages past the threshold, reads,
// would-be writebacks, failures).
std::string idleHistogram(const ZramFigures& z);
std::string idleClusterSizes(const ZramFigures& z);
std::string simulatedBdStat(const ZramFigures& z);

}  // namespace kerneltext
}  // namespace sim
