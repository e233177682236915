// ProcessMemoryStats: every 15 minutes, a memory snapshot of every process on the device, keyed
// by the program path (argv[0]) of its command line, and a report to the trigger service for
// every process over its memory budget.
//
// sample() scans /proc: for each process it reads the status memory figures (resident,
// anonymous, swapped, library code), optionally the memtrack (graphics) figure of the platform
// memory-footprint library (system property mobile_vistrel_memory_extended_collector), the
// OOM adjustment and the CPU times. Processes without a readable command line (kernel threads,
// zombies, processes that already exited) all share the entry of the empty name; within one
// name, the process scanned last wins. A process whose anonymous plus swapped memory (plus
// memtrack, when known) reaches kOverBudgetKb is reported on every scan as
// "memory_heartbeat_over_budget:<name>". snapshot() only tells whether a scan completed.
//
// Host obligations: calls are not synchronised; the record fields are read after a
// successful snapshot() and stay valid until the next sample().
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Provider.h"

namespace Vistrel {

// One process's figures. Entries of processes without memory figures (kernel threads,
// zombies) keep the zero memory fields and memtrackPssKb 0.
struct ProcessMemorySnapshot {
    uint32_t vmRssKb = 0;         // "VmRSS", KiB
    uint32_t vmLibKb = 0;         // "VmLib" (shared-library code), KiB
    uint32_t vmSwapKb = 0;        // "VmSwap", KiB
    uint32_t rssAnonKb = 0;       // "RssAnon", KiB
    bool timeStatsValid = false;  // the three times below were read
    float startTimeSec = 0;       // process start, seconds after boot
    float userTimeSec = 0;        // user CPU time, seconds
    float systemTimeSec = 0;      // system CPU time, seconds
    int32_t memtrackPssKb = 0;    // memtrack PSS, KiB; -1 when the extended collector is off
    // /proc/<pid>/oom_score_adj. An entry given memory figures starts at 9999 until it is read;
    // one created only by the oom/time steps (no memory figures) starts at 0.
    int32_t oomScoreAdj = 0;
};

class ProcessMemoryStats : public Provider {
public:
    // A process is over budget from this many KiB of anonymous + swapped (+ memtrack) memory.
    static constexpr int32_t kOverBudgetKb = 10240;

    ProcessMemoryStats();
    ~ProcessMemoryStats() override;

    const char* name() const override;
    // With force, samples first (the notification is dropped). True when a scan completed;
    // false (logged) when the last sample could not open /proc or none ran yet.
    bool snapshot(IClockReader& clock, bool force) override;
    // Scans every process and returns ("ProcessMemoryInfo", "Memory snapshot"); empty when
    // /proc cannot be opened (the previous record stays, but sampleValid is cleared).
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // argv[0] of the process: the first blank-separated token of the first 256 bytes of
    // /proc/<pid>/cmdline, up to its first NUL. Empty when the file cannot be opened or is empty.
    std::optional<std::string> getProcessName(int pid);
    // Stores /proc/<pid>/oom_score_adj in out.oomScoreAdj; false (logged) when unreadable.
    bool getOomScoreAdj(int pid, ProcessMemorySnapshot& out);
    // Stores start, user and system times (seconds) from /proc/<pid>/stat and sets
    // timeStatsValid. Fields are counted from the blank-separated word after the command, so a
    // command containing a blank shifts them by one. False when nothing could be read (logged)
    // or the clock tick rate is 0.
    bool getProcessTimeStat(int pid, ProcessMemorySnapshot& out);
    // Reports the process to the trigger service when rssAnonPlusSwapKb plus the positive part of
    // memtrackKb (memtrack PSS, negative when unknown) reaches kOverBudgetKb. A missing service is
    // logged and the report dropped.
    void reportToTarnet(std::string& processName, int32_t rssAnonPlusSwapKb, int32_t memtrackKb);

    // The record, read by the host after a successful snapshot().
    int64_t timestampMs = 0;        // the clock's elapsedNs() at the start of the scan, in ms
    uint32_t sampleDurationMs = 0;  // boot-clock ms the scan took
    std::map<std::string, ProcessMemorySnapshot> snapshots;  // by argv[0]; "" for no cmdline
    bool sampleValid = false;  // a scan completed since the last failed one

private:
    // Adds (or overwrites) the entry of one process; `pidName` is its /proc directory name.
    void scanProcess(const std::string& pidName, int pid, bool memtrackOn,
                     std::map<std::string, ProcessMemorySnapshot>& scanned);
};

}  // namespace Vistrel
