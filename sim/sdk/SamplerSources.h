// What the simulated instruction sampler (libinstsamp.halden.so) serves outside scripted mode.
// Module-internal.
//
// SimulatedHeadset: the threads of the simulated headset's processes (sdk::headsetThreadsAt,
// installed by sim::Headset: the same processes, thread ids and names as its /proc), each using
// from one reading to the next the busy fraction of one CPU it had at the first (a thread new at
// a reading has had no time yet; one that has never been busy is left out). Samples accrue at
// busy fraction x 1e6 / sampling period per second of device time, spread evenly over the
// thread's CPUs (8 CPUs). Sections, in this order: "features.100" (a decoy the collector must
// not take for "features"), "features" (render, tracking, audio, passthrough, input: each the
// samples of the threads working for it) and "feature-ids" (100, 101, 205, 310: render,
// tracking, audio and passthrough again under their ids).
//
// LiveProcess: this machine, an approximation for --real runs on a workstation. Threads are
// every /proc/<pid>/task/<tid> (as the device's sampler sees every thread of the device), the
// ones that end while listed left out; each reading credits the utime + stime ticks a
// thread gained since the previous reading to the CPU it last ran on (field 39 of its stat), so
// per-CPU counts are cumulative but a thread that moved between readings has all of the
// interval's ticks on its latest CPU. Names come from each thread's comm. The "features" section
// holds, per CPU, the /proc/stat time of each mode (user, nice, system, idle, iowait, irq,
// softirq, in ticks) and "feature-ids" the same counts keyed by the mode's index ("0".."6").
// Counts are clock ticks, not samples, so rates read as ticks per millisecond.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ProfileBufferWriter.h"

namespace sim::sdk {

class SimulatedHeadset {
public:
    static constexpr size_t kCpus = 8;
    static constexpr size_t kFeatures = 5;
    static constexpr size_t kDecoyEntries = 2;

    // `samplingPeriodUs` of the session (0 counts as the SDK's default of 5000).
    SimulatedHeadset(uint32_t samplingPeriodUs, int64_t startNs);
    Reading next();
    // The name of a thread of the latest reading, or "" when it has none.
    std::string threadName(int32_t tid) const;
    // The process of a thread of the latest reading, or 0 when it has none.
    int32_t processOf(int32_t tid) const;

private:
    using Accrual = std::array<double, kCpus>;  // cumulative samples per CPU

    void accrue(Accrual& a, uint32_t cpus, double busy, double seconds) const;
    static std::vector<uint64_t> wholeCounts(const Accrual& a);
    // Adds the thread records of the reading at `now` and keeps its threads.
    void accrueThreads(int64_t now, double seconds, ProfileDescription& d);
    const HeadsetThread* find(int32_t tid) const;

    double samplesPerBusySecond_;
    int64_t lastNs_;
    std::vector<HeadsetThread> threads_;  // threads of the latest reading, by thread id
    std::map<int32_t, Accrual> counts_;   // by thread id
    std::array<Accrual, kFeatures> features_{};
    std::array<Accrual, kDecoyEntries> decoys_{};
};

class LiveProcess {
public:
    struct TaskId {
        int32_t pid;
        int32_t tid;
    };
    Reading next();
    // The comm of a thread of the latest reading; empty for others.
    std::string threadName(int32_t tid) const;

private:
    struct Thread {
        int32_t pid = 0;
        uint64_t lastTicks = 0;
        std::vector<uint64_t> perCpu;
    };
    std::map<int32_t, Thread> threads_;
};

}  // namespace sim::sdk
