#include "HostSideWork.h"

#include <time.h>

namespace sim {
namespace {

thread_local HostSideTotals t_totals;
thread_local int t_depth = 0;

}  // namespace

int64_t threadCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

HostSideTotals hostSideTotals() {
    return t_totals;
}

HostSideWork::HostSideWork() : outermost_(t_depth++ == 0) {
    if (outermost_) startNs_ = threadCpuNs();
}

HostSideWork::~HostSideWork() {
    --t_depth;
    if (!outermost_) return;
    t_totals.cpuNs += threadCpuNs() - startNs_;
    ++t_totals.scopes;
}

}  // namespace sim
