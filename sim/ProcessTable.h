// The processes of the simulated headset and their figures over device time: kernel threads,
// native daemons, HAL services and system applications that run from boot, and the applications
// of the focus script, each started (with a new pid) when it first comes to the front and
// killed a while after it has left it.
//
// What moves the figures (each step of device time, under the scene at the step's start):
//   - CPU: every thread uses its busy fraction of one CPU (ThreadLoad); the process's user and
//     system times, context switches and minor faults follow its CPU time.
//   - an application in front while the headset is in use grows its anonymous memory up to a
//     cap; one in front pages its file working set in and its swapped memory back (swap-in);
//   - a cached application (out of front for two minutes) is compacted: its anonymous memory
//     goes to swap until 70 % of it is there, and its file pages are dropped; its
//     oom_score_adj goes 0 (top) / 100 (behind the top) -> 700 (the previous application) ->
//     900 + its place among the cached ones;
//   - page reclaim and the low-memory killer (MemoryModel) swap out and kill by oom_score_adj.
//
// Units: memory in KiB, CPU time in clock ticks (100 per second), device times in ns since boot.
// Not thread-safe: KernelModel owns it and guards it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

enum class ProcessKind { Kernel, Native, System, App };

// What decides a thread's CPU use.
enum class ThreadLoad {
    Fixed,        // busyInUse while the headset is in use, else busyIdle
    App,          // busyInUse scaled by its application's place (front, behind, paused, cached)
    Reclaim,      // the kernel's page reclaim (kswapd): as busy as MemoryModel makes it
    Passthrough,  // camera frames: busyInUse while in use with an application named *passthrough*
                  // in front
};

struct SimThread {
    int32_t tid = 0;
    std::string name;  // comm, at most 15 characters
    ThreadLoad load = ThreadLoad::Fixed;
    double busyInUse = 0;  // fraction of one CPU
    double busyIdle = 0;
    uint32_t cpus = 0;    // bit i set: it runs on CPU i
    std::string feature;  // the instruction sampler's feature it works for, or ""
    double busy = 0;      // now
};

// An application's own figures, drawn from the seed and its name.
struct AppProfile {
    double baseAnonKb = 0;         // at start
    double capAnonKb = 0;          // most it grows to
    double growthKbPerMin = 0;     // while in front and in use
    double workingSetKb = 0;       // file pages it maps while in front
    double writesKbPerMin = 0;     // to /data while in front and in use
    int64_t cachedLifetimeNs = 0;  // killed after this long cached (0: only by low memory)
};

struct SimApp {
    std::string name;  // as the focus script names it; also its command line
    AppProfile profile;
    int rank = -1;                  // 0 top of the front, 1 behind it, -1 not in front
    int64_t backgroundSinceNs = 0;  // when it last left the front (or started, if never in it)
};

struct SimProcess {
    int32_t pid = 0;
    int32_t ppid = 0;
    ProcessKind kind = ProcessKind::Native;
    std::string cmdline;  // argv, each argument followed by a NUL; "" for a kernel thread
    std::string comm;     // status Name: at most 15 characters
    uint32_t uid = 0;
    int64_t startNs = 0;
    int32_t oomScoreAdj = 0;
    double anonKb = 0, fileKb = 0, shmemKb = 0, swapKb = 0, peakRssKb = 0;
    double vmSizeKb = 0, vmLibKb = 0, vmExeKb = 0;
    double userTicks = 0, systemTicks = 0, majorFaults = 0;
    std::vector<SimThread> threads;
    std::optional<SimApp> app;

    double rssKb() const { return anonKb + fileKb + shmemKb; }
    double busy() const;
};

// What a step moved, for the system-wide accounting.
struct ProcessFlows {
    double swapInKb = 0;      // paged back in from swap
    double swapOutKb = 0;     // compacted or reclaimed to swap
    double freedSwapKb = 0;   // swap of processes that ended
    double launchReadKb = 0;  // files read from /data by starting applications
    double dataWriteKb = 0;   // written to /data by applications in use
    int launches = 0;
    int kills = 0;
};

class ProcessTable {
public:
    // The processes running at boot (device time 0), their figures varied by `seed` (0: the
    // defaults), padded with dormant services and kernel workers up to `minimumProcesses`.
    ProcessTable(uint64_t seed, size_t minimumProcesses);

    // Sets the scene of the step that starts at `nowNs`: starts the applications newly in front
    // (top first), moves the others in or out of the front, ages the cached ones (killing those
    // past their lifetime) and sets every thread's busy fraction.
    void setScene(const std::vector<std::string>& front, bool inUse, int64_t nowNs);
    // CPU time and each application's memory over the step [nowNs, nowNs + lengthNs).
    void advance(int64_t lengthNs);
    // Moves up to `kb` of anonymous memory to swap from the processes whose oom_score_adj is at
    // least `minOomScoreAdj`, the highest first, at most half of each one's. Returns KiB moved.
    double swapOut(double kb, int32_t minOomScoreAdj);
    // Kills the process with the highest oom_score_adj of at least `minOomScoreAdj`; false when
    // there is none.
    bool killHighest(int32_t minOomScoreAdj);
    // The kernel's reclaim threads' busy fraction for the steps to come.
    void setReclaimBusy(double busy);

    // What the steps moved since the last call.
    ProcessFlows takeFlows();
    const std::map<int32_t, SimProcess>& processes() const { return processes_; }
    double sum(double SimProcess::*figure) const;
    size_t threadCount() const;

private:
    void start(const std::string& app, int64_t nowNs);
    void end(std::map<int32_t, SimProcess>::iterator process);
    void placeApps(const std::vector<std::string>& front, int64_t nowNs);
    void rankCached(int64_t nowNs);
    void setBusy(SimProcess& process, bool inUse, bool passthrough);
    void advanceApp(SimProcess& process, double minutes);
    // The first pid from which `span` consecutive ids are free (an application's tids); 0 when
    // none is.
    int32_t freePid(int32_t span);

    uint64_t seed_;
    std::map<int32_t, SimProcess> processes_;
    int32_t zygotePid_ = 0;
    int32_t nextPid_;
    uint64_t launches_ = 0;
    int64_t nowNs_ = 0;
    bool inUse_ = false;
    double reclaimBusy_ = 0;
    ProcessFlows flows_;
};

}  // namespace sim
