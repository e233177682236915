#include "MemoryModel.h"

#include <algorithm>
#include <cmath>

#include "Seed.h"

namespace sim {
namespace {

constexpr double kMiB = 1024;  // in KiB
constexpr double kMemTotalKb = 5735408;
// Memory the processes never see: graphics and camera buffers, slab, kernel stacks, per-CPU.
constexpr double kGraphicsKb = 1200 * kMiB;
constexpr double kSlabReclaimableKb = 150 * kMiB;
constexpr double kSlabUnreclaimableKb = 370 * kMiB;
constexpr double kKernelStackKb = 58 * kMiB;
// The page allocator keeps about this much free while page cache can give way.
constexpr double kFreeTargetKb = 180 * kMiB;
constexpr double kLowWatermarkKb = 35 * kMiB;
constexpr double kReclaimBelowKb = 1400 * kMiB;
constexpr double kKillBelowKb = 450 * kMiB;
constexpr double kReclaimMaxKbPerMinute = 160 * kMiB;
constexpr int32_t kReclaimMinAdj = 100;  // visible applications and those behind them
constexpr int32_t kKillMinAdj = 200;     // perceptible and less important
constexpr double kZramDisksizeKb = 1024 * kMiB;
constexpr double kSwapFileKb = 1024 * kMiB;
constexpr double kSamePageShare = 0.06;   // of zram's pages: one repeated word, no memory
constexpr double kHugePageShare = 0.004;  // of zram's pages: incompressible

constexpr double kPageKb = 4;
constexpr double kSectorsPerPage = 8;  // of 512 bytes

// The whole pages in `kb`.
uint64_t wholePages(double kb) {
    return kb > 0 ? static_cast<uint64_t>(kb / kPageKb) : 0;
}

// The whole pages of a flow of `sinceBootKb` not yet in `counted`.
uint64_t newPages(double sinceBootKb, uint64_t counted) {
    const uint64_t pages = wholePages(sinceBootKb);
    return pages > counted ? pages - counted : 0;
}

void addPages(SwapPages& total, const SwapPages& step) {
    total.in += step.in;
    total.out += step.out;
    total.freed += step.freed;
    total.zramWritten += step.zramWritten;
    total.zramRead += step.zramRead;
    total.zramDiscarded += step.zramDiscarded;
    total.fileWritten += step.fileWritten;
    total.fileRead += step.fileRead;
}

// An exponential average over `windowS` seconds moved through `seconds` towards `value`.
double averaged(double average, double value, double seconds, double windowS) {
    return average + (value - average) * (1 - std::exp(-seconds / windowS));
}

void addIo(BlockCounters& b, double readKb, double writeKb) {
    const double reads = readKb / 48, writes = writeKb / 24;  // KiB per request
    b.readIos += reads;
    b.readMerges += reads * 0.12;
    b.readSectors += readKb * 2;
    b.readTicks += reads * 0.35;
    b.writeIos += writes;
    b.writeMerges += writes * 0.25;
    b.writeSectors += writeKb * 2;
    b.writeTicks += writes * 0.6;
    b.flushIos += writes / 60;
    b.flushTicks += writes / 60 * 0.8;
    b.ioTicks += (reads * 0.35 + writes * 0.6) * 0.8;
    b.timeInQueue += (reads * 0.35 + writes * 0.6) * 1.3;
}

}  // namespace

MemoryModel::MemoryModel(uint64_t seed)
    : compressionRatio_(seed == 0 ? 3.1 : SeededNumbers(seed, "zram").uniform(2.7, 3.5)) {
    zram_.disksizeKb = kZramDisksizeKb;
}

MemInfo MemoryModel::account(const ProcessTable& table) const {
    MemInfo m;
    m.totalKb = kMemTotalKb;
    m.anonKb = table.sum(&SimProcess::anonKb);
    m.mappedKb = table.sum(&SimProcess::fileKb);
    m.shmemKb = table.sum(&SimProcess::shmemKb);
    m.slabReclaimableKb = kSlabReclaimableKb;
    m.slabUnreclaimableKb = kSlabUnreclaimableKb;
    m.kernelStackKb = kKernelStackKb;
    m.pageTablesKb = (m.anonKb + m.mappedKb) / 400 + 24 * kMiB;
    const double rest = kMemTotalKb - kGraphicsKb - kSlabReclaimableKb - kSlabUnreclaimableKb -
                        kKernelStackKb - m.pageTablesKb - m.anonKb - zram_.memUsedBytes / 1024;
    // Page cache fills what is left down to the free target; mapped and shared pages stay.
    const double pinned = m.mappedKb + m.shmemKb;
    m.cachedKb = std::max(pinned, rest - kFreeTargetKb);
    m.freeKb = std::max(8 * kMiB, rest - m.cachedKb);
    const double droppable = m.cachedKb - m.shmemKb - 0.5 * m.mappedKb;
    m.availableKb = std::max(0.0, m.freeKb + droppable + 0.5 * kSlabReclaimableKb - kLowWatermarkKb);
    m.swapTotalKb = kZramDisksizeKb + kSwapFileKb;
    m.swapFreeKb = m.swapTotalKb - zram_.storedKb - swapFileKb_;
    m.swapCachedKb = std::min(zram_.storedKb, 0.03 * (zram_.storedKb + swapFileKb_));
    return m;
}

double MemoryModel::reclaim(ProcessTable& table, double minutes) {
    const double available = account(table).availableKb;
    double moved = 0;
    if (available < kReclaimBelowKb) {
        const double want =
                std::min((kReclaimBelowKb - available) * 1.4, kReclaimMaxKbPerMinute * minutes);
        moved = table.swapOut(want, kReclaimMinAdj);
        if (moved < want) moved += table.swapOut(0.25 * (want - moved), -900);
        vm_.pgstealKswapd += moved / 4;
        vm_.pgscanKswapd += moved / 4 * 1.6;
    }
    const double perMinute = minutes > 0 ? moved / kMiB / minutes : 0;
    table.setReclaimBusy(moved > 0 ? std::min(0.7, 0.02 + perMinute * 0.006) : 0);
    if (account(table).availableKb < kKillBelowKb) table.killHighest(kKillMinAdj);
    return available;
}

void MemoryModel::updateZram(double pagesWritten, double pagesFreed) {
    const double stored = zram_.storedKb / 4;
    zram_.samePages = stored * kSamePageShare;
    zram_.origBytes = (stored - zram_.samePages) * 4096;
    zram_.comprBytes = zram_.origBytes / compressionRatio_;
    zram_.memUsedBytes = stored > 0 ? zram_.comprBytes * 1.06 + 1.5 * kMiB * 1024 : 0;
    zram_.memUsedMaxBytes = std::max(zram_.memUsedMaxBytes, zram_.memUsedBytes);
    zram_.pagesCompacted += pagesFreed * 0.2;
    zram_.hugePages = stored * kHugePageShare;
    zram_.hugePagesSince += pagesWritten * kHugePageShare;
    zram_.idleWrittenPages += pagesWritten * 0.1;
}

SwapPages MemoryModel::moveSwap(const ProcessFlows& flows, double totalSwapKb) {
    swapInKb_ += flows.swapInKb;
    swapOutKb_ += flows.swapOutKb;
    freedSwapKb_ += flows.freedSwapKb;
    SwapPages moved;
    moved.in = newPages(swapInKb_, swapPages_.in);
    moved.out = newPages(swapOutKb_, swapPages_.out);
    moved.freed = newPages(freedSwapKb_, swapPages_.freed);
    // Pages leave the swap file first (the newest), and enter zram0 first.
    const uint64_t leaving = moved.in + moved.freed;
    const uint64_t fromFile = std::min(leaving, wholePages(swapFileKb_));
    const uint64_t fromZram = leaving - fromFile;
    const double zramLeftKb = std::max(0.0, zram_.storedKb - kPageKb * fromZram);
    moved.zramWritten = std::min(moved.out, wholePages(kZramDisksizeKb - zramLeftKb));
    moved.fileWritten = moved.out - moved.zramWritten;
    // Swap-ins take their share from each device (at most fromZram from zram0, as
    // fromFile * in / leaving rounds down by less than a page); freed pages are discarded.
    moved.fileRead = leaving > 0 ? fromFile * moved.in / leaving : 0;
    moved.zramRead = moved.in - moved.fileRead;
    moved.zramDiscarded = fromZram - moved.zramRead;
    addPages(swapPages_, moved);
    // The processes' own sum is the truth; rounding must not make the two drift apart.
    swapFileKb_ += kPageKb * moved.fileWritten - kPageKb * fromFile;
    swapFileKb_ = std::clamp(swapFileKb_, 0.0, kSwapFileKb);
    zram_.storedKb = std::clamp(totalSwapKb - swapFileKb_, 0.0, kZramDisksizeKb);
    const SwapPages& total = swapPages_;
    zramBlock_.readIos = total.zramRead;
    zramBlock_.readSectors = kSectorsPerPage * total.zramRead;
    zramBlock_.writeIos = total.zramWritten;
    zramBlock_.writeSectors = kSectorsPerPage * total.zramWritten;
    zramBlock_.discardIos = total.zramDiscarded;
    zramBlock_.discardSectors = kSectorsPerPage * total.zramDiscarded;
    zramBlock_.ioTicks += (moved.zramRead + moved.zramWritten) * 0.002;
    vm_.pswpin = total.in;
    vm_.pswpout = total.out;
    updateZram(moved.zramWritten, fromZram);
    return moved;
}

void MemoryModel::countStorage(const ProcessFlows& flows, const SwapPages& moved, double minutes,
                               bool inUse) {
    const double logsKb = (inUse ? 120 : 30) * minutes;
    const double backgroundReadKb = (inUse ? 20 : 6) * 60 * minutes;
    const double readKb = flows.launchReadKb + kPageKb * moved.fileRead + backgroundReadKb;
    const double writeKb =
            flows.dataWriteKb + logsKb + kPageKb * moved.fileWritten + 4 * 60 * minutes;
    addIo(dataBlock_, readKb, writeKb);
    dataFilledKb_ += flows.dataWriteKb * 0.35 + logsKb * 0.2;
    vm_.pgpginKb += readKb + kPageKb * moved.zramRead;
    vm_.pgpgoutKb += writeKb + kPageKb * moved.zramWritten;
    vm_.pgmajfault += flows.swapInKb / 4 + flows.launchReadKb / 16;
    vm_.workingsetRefault += flows.launchReadKb / 4 * 0.2;
}

void MemoryModel::countPressure(const ProcessFlows& flows, double availableBeforeKb,
                                double minutes) {
    const double seconds = minutes * 60;
    if (seconds <= 0) return;
    const double shortage = std::max(0.0, (kReclaimBelowKb - availableBeforeKb) / kReclaimBelowKb);
    const double some = std::min(80.0, 0.05 + 30 * std::pow(shortage, 1.5) +
                                               flows.swapInKb / kMiB / minutes * 0.25 +
                                               flows.launches / minutes * 1.5);
    const double full = some * 0.3;
    MemoryPressure& p = pressure_;
    p.someAvg10 = some;
    p.someAvg60 = averaged(p.someAvg60, some, seconds, 60);
    p.someAvg300 = averaged(p.someAvg300, some, seconds, 300);
    p.someTotalUs += some / 100 * seconds * 1e6;
    p.fullAvg10 = full;
    p.fullAvg60 = averaged(p.fullAvg60, full, seconds, 60);
    p.fullAvg300 = averaged(p.fullAvg300, full, seconds, 300);
    p.fullTotalUs += full / 100 * seconds * 1e6;
}

void MemoryModel::step(ProcessTable& table, int64_t lengthNs, bool inUse) {
    const double minutes = static_cast<double>(lengthNs) / 60e9;
    const double availableBefore = reclaim(table, minutes);
    const ProcessFlows flows = table.takeFlows();
    const SwapPages moved = moveSwap(flows, table.sum(&SimProcess::swapKb));
    countStorage(flows, moved, minutes, inUse);
    countPressure(flows, availableBefore, minutes);
    double busySeconds = 0;
    for (const auto& [pid, p] : table.processes()) busySeconds += p.busy() * minutes * 60;
    vm_.pgfault += busySeconds * 900 + flows.launches * 20000.0;
    memInfo_ = account(table);
}

}  // namespace sim
