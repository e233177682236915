#include "ProviderCall.h"

#include <algorithm>
#include <limits>

#include "RunSummary.h"

namespace host {
namespace {

thread_local size_t t_current = ProviderCall::npos;

}  // namespace

int64_t ProviderCall::clockReadCostNs() {
    static const int64_t cost = [] {
        int64_t fastest = std::numeric_limits<int64_t>::max();
        for (int i = 0; i < 300; ++i) {
            const int64_t start = sim::threadCpuNs();
            fastest = std::min(fastest, sim::threadCpuNs() - start);
        }
        return std::max<int64_t>(0, fastest);
    }();
    return cost;
}

size_t ProviderCall::current() {
    return t_current;
}

ProviderCall::ProviderCall(RunSummary& summary, size_t provider, Cost cost)
    : summary_(summary),
      provider_(provider),
      cost_(cost),
      outer_(t_current),
      startNs_(sim::threadCpuNs()),
      hostSideAtStart_(sim::hostSideTotals()) {
    t_current = provider;
}

ProviderCall::~ProviderCall() {
    const int64_t spentNs = sim::threadCpuNs() - startNs_;
    t_current = outer_;
    const sim::HostSideTotals hostSide = sim::hostSideTotals();
    // The clock reads of this span and of every host-side scope inside it.
    const int64_t reads = 1 + (hostSide.scopes - hostSideAtStart_.scopes);
    const int64_t ownNs =
            spentNs - (hostSide.cpuNs - hostSideAtStart_.cpuNs) - reads * clockReadCostNs();
    summary_.addCall(provider_, std::max<int64_t>(0, ownNs), cost_ == Cost::OneOff);
}

}  // namespace host
