// System-wide memory, swap, pressure and storage of the simulated headset, accounted from its
// processes at every step of device time:
//   - memory: a 6 GB headset; what the processes' anonymous memory, the zram pool, the kernel and
//     the graphics buffers leave is page cache and free memory; MemAvailable is free memory plus
//     the page cache that could be dropped;
//   - reclaim: below 1.4 GiB available, kswapd swaps out the anonymous memory of background
//     processes (the highest oom_score_adj first), busier the more it moves; below 450 MiB the
//     low-memory killer ends the process with the highest oom_score_adj (200 or more), one a step;
//   - swap: zram0 (1 GiB) first, then a 1 GiB swap file on /data (sda): swap-outs beyond what
//     zram0 holds reach storage, which SwapWriteStats counts;
//   - pressure: memory stalls from a lack of available memory, swap-ins and application starts,
//     averaged over 10 s, 60 s and 300 s as the kernel's PSI does;
//   - storage: applications' reads at start and writes in use, logs and swap-file traffic; a part
//     of what is written stays, so /data fills slowly.
//
// Units: KiB unless a name says otherwise; counters are cumulative since boot. Not thread-safe:
// KernelModel owns it and guards it.
#pragma once

#include <cstdint>

#include "ProcessTable.h"

namespace sim {

// The /proc/meminfo figures that move, KiB.
struct MemInfo {
    double totalKb = 0, freeKb = 0, availableKb = 0, cachedKb = 0, anonKb = 0, mappedKb = 0,
           shmemKb = 0, slabReclaimableKb = 0, slabUnreclaimableKb = 0, kernelStackKb = 0,
           pageTablesKb = 0, swapTotalKb = 0, swapFreeKb = 0, swapCachedKb = 0;
};

// Pressure-stall averages (percent) and totals (microseconds) of /proc/pressure/memory.
struct MemoryPressure {
    double someAvg10 = 0, someAvg60 = 0, someAvg300 = 0, someTotalUs = 0;
    double fullAvg10 = 0, fullAvg60 = 0, fullAvg300 = 0, fullTotalUs = 0;
};

// The columns of /sys/block/<device>/stat (sectors of 512 bytes, milliseconds).
struct BlockCounters {
    double readIos = 0, readMerges = 0, readSectors = 0, readTicks = 0;
    double writeIos = 0, writeMerges = 0, writeSectors = 0, writeTicks = 0;
    double ioTicks = 0, timeInQueue = 0;
    double discardIos = 0, discardSectors = 0, discardTicks = 0, flushIos = 0, flushTicks = 0;
};

// zram0: what it stores and its mm_stat columns (bytes, pages).
struct ZramFigures {
    double disksizeKb = 0;
    double storedKb = 0;  // swapped memory it holds
    double origBytes = 0, comprBytes = 0, memUsedBytes = 0, memUsedMaxBytes = 0;
    double samePages = 0, pagesCompacted = 0, hugePages = 0, hugePagesSince = 0;
    double idleWrittenPages = 0;  // would-be writebacks of idle pages (simulated_bd_stat)
};

// Whole pages moved through swap, since boot or in one step. The swap counters of the kernel
// files (vmstat's pswpin and pswpout, zram0's reads, writes and discards) are these counts, so
// that what adds up on a kernel adds up exactly here: pages swapped out are those zram0 wrote
// plus those the swap file got, and each counter only grows.
struct SwapPages {
    uint64_t in = 0, out = 0, freed = 0;  // swapped in, swapped out, of processes that ended
    uint64_t zramWritten = 0, zramRead = 0, zramDiscarded = 0;
    uint64_t fileWritten = 0, fileRead = 0;  // the swap file on /data
};

// The /proc/vmstat counters that move (pages).
struct VmCounters {
    double pswpin = 0, pswpout = 0, pgpginKb = 0, pgpgoutKb = 0, pgfault = 0, pgmajfault = 0,
           pgscanKswapd = 0, pgstealKswapd = 0, workingsetRefault = 0;
};

class MemoryModel {
public:
    // `seed` (0: the defaults) varies the zram compression ratio.
    explicit MemoryModel(uint64_t seed);

    // Accounts the step [nowNs, nowNs + lengthNs) that the table has just advanced through:
    // reclaim and low-memory kills (which act on the table), then swap, storage, counters and
    // pressure.
    void step(ProcessTable& table, int64_t lengthNs, bool inUse);

    const MemInfo& memInfo() const { return memInfo_; }
    const MemoryPressure& pressure() const { return pressure_; }
    const ZramFigures& zram() const { return zram_; }
    const BlockCounters& zramBlock() const { return zramBlock_; }
    const BlockCounters& dataBlock() const { return dataBlock_; }
    const VmCounters& vm() const { return vm_; }
    double swapFileUsedKb() const { return swapFileKb_; }
    // Bytes written to /data since boot that are still there.
    int64_t dataFilledBytes() const { return static_cast<int64_t>(dataFilledKb_ * 1024); }

private:
    MemInfo account(const ProcessTable& table) const;
    double reclaim(ProcessTable& table, double minutes);
    // Moves the step's whole pages in and out of zram0 and the swap file; returns them.
    SwapPages moveSwap(const ProcessFlows& flows, double totalSwapKb);
    void countStorage(const ProcessFlows& flows, const SwapPages& moved, double minutes, bool inUse);
    void countPressure(const ProcessFlows& flows, double availableBeforeKb, double minutes);
    void updateZram(double pagesWritten, double pagesFreed);

    double compressionRatio_;
    MemInfo memInfo_;
    MemoryPressure pressure_;
    ZramFigures zram_;
    BlockCounters zramBlock_, dataBlock_;
    VmCounters vm_;
    double swapFileKb_ = 0;
    double dataFilledKb_ = 0;
    SwapPages swapPages_;  // since boot
    // The processes' swap flows since boot, KiB; whole pages of these are counted in swapPages_.
    double swapInKb_ = 0, swapOutKb_ = 0, freedSwapKb_ = 0;
};

}  // namespace sim
