// Accounting of CPU time that runs on a provider's thread but would not be the provider's cost
// on a headset: the simulated HALs a provider calls synchronously (on the device they run in
// their own processes) and the reference host's own printing of the lines a provider causes
// (a log line, a trigger report). The reference host measures each call into a provider with the
// thread CPU clock and subtracts what such scopes measured on the same thread meanwhile.
//
// Each scope costs two reads of the thread CPU clock; nested scopes count only the outermost.
// Per thread, no locking.
#pragma once

#include <cstdint>

namespace sim {

// CPU time of the calling thread (CLOCK_THREAD_CPUTIME_ID), in nanoseconds.
int64_t threadCpuNs();

// What the scopes of this thread have measured since it started.
struct HostSideTotals {
    int64_t cpuNs = 0;
    int64_t scopes = 0;  // outermost scopes entered; each leaves about one clock read unmeasured
};
HostSideTotals hostSideTotals();

class HostSideWork {
public:
    HostSideWork();
    ~HostSideWork();
    HostSideWork(const HostSideWork&) = delete;
    HostSideWork& operator=(const HostSideWork&) = delete;

private:
    int64_t startNs_ = 0;
    bool outermost_;
};

}  // namespace sim
