// What the reference host counts per provider over a run, and the table it prints at the end:
// samples, notifications returned by sample() by name, pushes, snapshots that refreshed the
// record or not, log lines by priority made during the provider's calls, and the provider's own
// CPU time (ProviderCall.h says what it covers): the one-off cost of acquiring, releasing and
// destroying it apart from the steady cost of its samples, notifications and snapshots, which is
// also given per hour of device time. Log lines made on other threads (a listener thread of an
// SDK module) are counted on a row of their own. Thread-safe.
//
// A run shorter than its longest period (the longest of the providers' sampling periods and the
// host's snapshot period) has not seen every provider's work once, so the summary gives no
// figures per hour and no share of the budget for it: it says so instead.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Output.h"
#include "ThreadSafety.h"

namespace host {

// All providers together should stay below 0.01 % of one core: 360 ms of CPU per device hour.
constexpr double kBudgetMsPerDeviceHour = 360.0;

class RunSummary {
public:
    struct Counts {
        std::string provider;
        int64_t samples = 0;
        std::map<std::string, int64_t> notifications;
        int64_t pushes = 0;
        int64_t snapshotsOk = 0;
        int64_t snapshotsFailed = 0;
        std::map<char, int64_t> logs;  // by priority letter: V D I W E F
        int64_t calls = 0;
        int64_t cpuNs = 0;        // every call
        int64_t oneOffCpuNs = 0;  // acquire, release and destruction
        // Why the run gave no record of the provider ("its first batch of don states ends at
        // 1:00:00.000 of device time"); empty when it gave one.
        std::string noRecord;
    };

    explicit RunSummary(const std::vector<std::string>& providers);

    void countSample(size_t provider) EXCLUDES(mutex_);
    void countNotification(size_t provider, const std::string& name) EXCLUDES(mutex_);
    void countPush(size_t provider) EXCLUDES(mutex_);
    void countSnapshot(size_t provider, bool refreshed) EXCLUDES(mutex_);
    // `provider`: ProviderCall::current() of the logging thread (npos: not in a provider call).
    void countLog(size_t provider, char priority) EXCLUDES(mutex_);
    // `oneOff`: an acquire, release or destruction call.
    void addCall(size_t provider, int64_t cpuNs, bool oneOff) EXCLUDES(mutex_);
    void setNoRecord(size_t provider, const std::string& reason) EXCLUDES(mutex_);

    // Every provider's counts, in the host's order, then the row of log lines made outside
    // provider calls when there were any.
    std::vector<Counts> rows() const EXCLUDES(mutex_);

    // Prints the summary of a run of `deviceNs` of device time whose longest period is
    // `longestPeriodNs`: a table in a text timeline; in JSON, one "summary" line per row and a
    // last one for all providers together.
    void print(Output& output, int64_t deviceNs, int64_t longestPeriodNs) const EXCLUDES(mutex_);
    // The same as one object: {"deviceNs", "providers": {row name: counts}, "allProviders": CPU
    // totals and budget}; CPU in ms and ms per device hour.
    nlohmann::ordered_json toJson(int64_t deviceNs, int64_t longestPeriodNs) const EXCLUDES(mutex_);

private:
    mutable threadsafety::Mutex mutex_;
    std::vector<Counts> counts_ GUARDED_BY(mutex_);
    Counts elsewhere_ GUARDED_BY(mutex_);  // log lines outside provider calls
};

// CPU milliseconds per hour of device time.
double msPerDeviceHour(int64_t cpuNs, int64_t deviceNs);

}  // namespace host
