// One call from the reference host into a provider: while it runs, lines that reach the
// timeline on this thread (a log line, a trigger report) belong to that provider, and its CPU
// time is added to the provider's total in the run summary.
//
// CPU time is the thread CPU clock (CLOCK_THREAD_CPUTIME_ID) around the call, less what
// sim::HostSideWork scopes measured on the thread meanwhile (the simulated HALs called
// synchronously, the host printing a line) and less the calibrated cost of the clock reads that
// fall inside the call. Still counted: the host platform's stand-ins the provider calls into
// (HIDL and binder plumbing, the service registry, the statvfs and memory-footprint seams),
// whose device counterparts also run on the provider's thread, and SDK modules loaded by the
// provider. Not counted: threads other than the caller (HAL callback and SDK listener threads)
// and the host's own work between calls (routing, rendering records).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "HostSideWork.h"

namespace host {

class RunSummary;

class ProviderCall {
public:
    // Acquiring, releasing and destroying a provider cost once per run; the rest is steady.
    enum class Cost { Steady, OneOff };

    ProviderCall(RunSummary& summary, size_t provider, Cost cost = Cost::Steady);
    ~ProviderCall();
    ProviderCall(const ProviderCall&) = delete;
    ProviderCall& operator=(const ProviderCall&) = delete;

    // The provider whose call is running on this thread; npos when none.
    static size_t current();
    static constexpr size_t npos = static_cast<size_t>(-1);

    // The CPU time that two back-to-back clock reads leave inside a measured span (the fastest
    // of a few hundred tries), in nanoseconds; measured once per process.
    static int64_t clockReadCostNs();

private:
    RunSummary& summary_;
    size_t provider_;
    Cost cost_;
    size_t outer_;
    int64_t startNs_;
    sim::HostSideTotals hostSideAtStart_;
};

}  // namespace host
