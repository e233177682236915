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

void MemoryModel::moveSwap(const ProcessFlows& flows, double totalSwapKb) {
    // Pages leave the swap file first (the newest), and enter zram0 first.
    const double leaving = flows.swapInKb + flows.freedSwapKb;
    const double fromFile = std::min(swapFileKb_, leaving);
    swapFileKb_ -= fromFile;
    const double fromZram = std::min(zram_.storedKb, leaving - fromFile);
    zram_.storedKb -= fromZram;
    const double toZram = std::min(flows.swapOutKb, kZramDisksizeKb - zram_.storedKb);
    zram_.storedKb += toZram;
    swapFileKb_ += flows.swapOutKb - toZram;
    // The processes' own sum is the truth; rounding must not make the two drift apart.
    swapFileKb_ = std::clamp(swapFileKb_, 0.0, kSwapFileKb);
    zram_.storedKb = std::clamp(totalSwapKb - swapFileKb_, 0.0, kZramDisksizeKb);
    // Swap-ins take their share from each device; freed pages are discarded in zram0.
    const double inShare = leaving > 0 ? flows.swapInKb / leaving : 0;
    zramReadKb_ = fromZram * inShare;
    zramWriteKb_ = toZram;
    swapFileReadKb_ = fromFile * inShare;
    swapFileWriteKb_ = flows.swapOutKb - toZram;
    zramBlock_.readIos += zramReadKb_ / 4;
    zramBlock_.readSectors += zramReadKb_ * 2;
    zramBlock_.writeIos += zramWriteKb_ / 4;
    zramBlock_.writeSectors += zramWriteKb_ * 2;
    zramBlock_.discardIos += fromZram * (1 - inShare) / 4;
    zramBlock_.discardSectors += fromZram * (1 - inShare) * 2;
    zramBlock_.ioTicks += (zramReadKb_ + zramWriteKb_) / 4 * 0.002;
    vm_.pswpin += flows.swapInKb / 4;
    vm_.pswpout += flows.swapOutKb / 4;
    updateZram(toZram / 4, fromZram / 4);
}

void MemoryModel::countStorage(const ProcessFlows& flows, double minutes, bool inUse) {
    const double logsKb = (inUse ? 120 : 30) * minutes;
    const double backgroundReadKb = (inUse ? 20 : 6) * 60 * minutes;
    const double readKb = flows.launchReadKb + swapFileReadKb_ + backgroundReadKb;
    const double writeKb = flows.dataWriteKb + logsKb + swapFileWriteKb_ + 4 * 60 * minutes;
    addIo(dataBlock_, readKb, writeKb);
    dataFilledKb_ += flows.dataWriteKb * 0.35 + logsKb * 0.2;
    vm_.pgpginKb += readKb + zramReadKb_;
    vm_.pgpgoutKb += writeKb + zramWriteKb_;
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
    moveSwap(flows, table.sum(&SimProcess::swapKb));
    countStorage(flows, minutes, inUse);
    countPressure(flows, availableBefore, minutes);
    double busySeconds = 0;
    for (const auto& [pid, p] : table.processes()) busySeconds += p.busy() * minutes * 60;
    vm_.pgfault += busySeconds * 900 + flows.launches * 20000.0;
    memInfo_ = account(table);
}

}  // namespace sim
