// What the simulated headset runs: the processes started at boot, dormant padding for a headset
// of many processes, and the process of an application of the focus script. Figures in KiB.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ProcessTable.h"

namespace sim {

// Kernel threads (kswapd0 among them), init and native daemons, HAL services, the compositors,
// the tracking daemon, zygotes, system_server and the system applications, with their threads,
// memory and CPU use; `seed` draws the memory within 10 % of the table's and (unless it is 0)
// moves the pids a little.
std::vector<SimProcess> bootProcesses(uint64_t seed);

// `count` processes that use no CPU, from `firstPid` on (every tenth pid): HAL services first,
// then kernel workers.
std::vector<SimProcess> dormantProcesses(size_t count, int32_t firstPid);

// An application started at `nowNs` with pid `pid` (its parent left 0): its main thread named as
// Android names an application's process (the last 15 characters of its name), a render thread,
// binder and runtime threads (tids pid to pid + kAppThreadSpan - 1).
SimProcess appProcess(const std::string& name, int32_t pid, uint64_t seed, int64_t nowNs);
inline constexpr int32_t kAppThreadSpan = 12;

}  // namespace sim
