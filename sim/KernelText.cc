#include "KernelText.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace sim {
namespace kerneltext {
namespace {

constexpr double kNsPerTick = 1e7;  // clock ticks of 10 ms

// printf into a string.
__attribute__((format(printf, 2, 3))) void append(std::string& out, const char* format, ...) {
    char line[512];
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    if (n > 0) out.append(line, std::min<size_t>(static_cast<size_t>(n), sizeof(line) - 1));
}

uint64_t whole(double value) {
    return value > 0 ? static_cast<uint64_t>(value) : 0;
}

double cpuTicks(const SimProcess& p) {
    return std::floor(p.userTicks) + std::floor(p.systemTicks);
}

const char* state(const SimProcess& p) {
    if (p.busy() >= 0.3) return "R (running)";
    if (p.kind == ProcessKind::Kernel && p.busy() == 0) return "I (idle)";
    return "S (sleeping)";
}

void kb(std::string& out, const char* name, double value) {
    append(out, "%s:\t%8" PRIu64 " kB\n", name, whole(value));
}

void memoryLines(std::string& out, const SimProcess& p) {
    const double data = p.anonKb + p.swapKb + 8192;
    kb(out, "VmPeak", p.vmSizeKb + 10240);
    kb(out, "VmSize", p.vmSizeKb);
    kb(out, "VmLck", 0);
    kb(out, "VmPin", 0);
    kb(out, "VmHWM", p.peakRssKb);
    kb(out, "VmRSS", std::floor(p.anonKb) + std::floor(p.fileKb) + std::floor(p.shmemKb));
    kb(out, "RssAnon", p.anonKb);
    kb(out, "RssFile", p.fileKb);
    kb(out, "RssShmem", p.shmemKb);
    kb(out, "VmData", data);
    kb(out, "VmStk", 132);
    kb(out, "VmExe", p.vmExeKb);
    kb(out, "VmLib", p.vmLibKb);
    kb(out, "VmPTE", std::floor((p.rssKb() + p.swapKb) / 400) + 24);
    kb(out, "VmSwap", p.swapKb);
    out += "CoreDumping:\t0\nTHP_enabled:\t1\n";
}

}  // namespace

std::string status(const SimProcess& p) {
    const bool kernel = p.kind == ProcessKind::Kernel;
    std::string out;
    append(out, "Name:\t%s\nUmask:\t%s\nState:\t%s\n", p.comm.c_str(), kernel ? "0000" : "0077",
           state(p));
    append(out, "Tgid:\t%d\nNgid:\t0\nPid:\t%d\nPPid:\t%d\nTracerPid:\t0\n", p.pid, p.pid, p.ppid);
    append(out, "Uid:\t%u\t%u\t%u\t%u\nGid:\t%u\t%u\t%u\t%u\n", p.uid, p.uid, p.uid, p.uid, p.uid,
           p.uid, p.uid, p.uid);
    append(out, "FDSize:\t%d\nGroups:\t%s\n", kernel ? 64 : 128,
           kernel ? "" : "1065 3001 3002 3003 3009 3011");
    append(out, "NStgid:\t%d\nNSpid:\t%d\nNSpgid:\t%d\nNSsid:\t0\n", p.pid, p.pid, p.pid);
    if (!kernel) memoryLines(out, p);
    const double ticks = cpuTicks(p);
    append(out, "Threads:\t%zu\nSigQ:\t0/22344\nSigPnd:\t0000000000000000\n", p.threads.size());
    append(out, "Cpus_allowed:\tff\nCpus_allowed_list:\t0-7\nMems_allowed:\t1\n");
    append(out, "voluntary_ctxt_switches:\t%" PRIu64 "\nnonvoluntary_ctxt_switches:\t%" PRIu64 "\n",
           whole(40 + 9 * ticks), whole(3 + 0.4 * ticks));
    return out;
}

std::string stat(const SimProcess& p) {
    const bool kernel = p.kind == ProcessKind::Kernel;
    // The CPU it last ran on: the main thread's first.
    const int cpu =
            p.threads.empty() || p.threads[0].cpus == 0 ? 0 : __builtin_ctz(p.threads[0].cpus);
    std::string out;
    append(out, "%d (%s) %c %d %d 0 0 -1 %u ", p.pid, p.comm.c_str(), state(p)[0], p.ppid, p.pid,
           kernel ? 2129984u : 4194560u);
    append(out, "%" PRIu64 " 0 %" PRIu64 " 0 %" PRIu64 " %" PRIu64 " 0 0 20 0 %zu 0 %" PRIu64 " ",
           whole(900 + 120 * cpuTicks(p)), whole(p.majorFaults), whole(p.userTicks),
           whole(p.systemTicks), p.threads.size(),
           whole(static_cast<double>(p.startNs) / kNsPerTick));
    append(out, "%" PRIu64 " %" PRIu64 " 18446744073709551615 ",
           whole(kernel ? 0 : p.vmSizeKb * 1024), whole(kernel ? 0 : p.rssKb() / 4));
    // Code and stack addresses, signals, wchan, exit signal, CPU, policy and the rest.
    append(out, "%s 0 0 0 0 0 0 0 17 %d 0 0 0 0 0 %s 0\n", kernel ? "0 0 0 0 0" : "1 1 0 0 0", cpu,
           kernel ? "0 0 0 0 0 0 0" : "1 1 1 1 1 1 1");
    return out;
}

std::string oomScoreAdj(const SimProcess& p) {
    return std::to_string(p.oomScoreAdj) + "\n";
}

std::string meminfo(const MemInfo& m) {
    std::string out;
    const auto line = [&out](const char* name, double value) {
        append(out, "%-16s%8" PRIu64 " kB\n", (std::string(name) + ":").c_str(), whole(value));
    };
    const double fileCache = m.cachedKb - m.shmemKb;
    line("MemTotal", m.totalKb);
    line("MemFree", m.freeKb);
    line("MemAvailable", m.availableKb);
    line("Buffers", 4120);
    line("Cached", m.cachedKb);
    line("SwapCached", m.swapCachedKb);
    line("Active", m.anonKb * 0.48 + fileCache * 0.45);
    line("Inactive", m.anonKb * 0.52 + fileCache * 0.55);
    line("Active(anon)", m.anonKb * 0.48);
    line("Inactive(anon)", m.anonKb * 0.52);
    line("Active(file)", fileCache * 0.45);
    line("Inactive(file)", fileCache * 0.55);
    line("Unevictable", 180944);
    line("Mlocked", 180944);
    line("SwapTotal", m.swapTotalKb);
    line("SwapFree", m.swapFreeKb);
    line("Dirty", 812);
    line("Writeback", 0);
    line("AnonPages", m.anonKb);
    line("Mapped", m.mappedKb);
    line("Shmem", m.shmemKb);
    line("KReclaimable", m.slabReclaimableKb + 112 * 1024);
    line("Slab", m.slabReclaimableKb + m.slabUnreclaimableKb);
    line("SReclaimable", m.slabReclaimableKb);
    line("SUnreclaim", m.slabUnreclaimableKb);
    line("KernelStack", m.kernelStackKb);
    line("ShadowCallStack", m.kernelStackKb / 4);
    line("PageTables", m.pageTablesKb);
    line("CommitLimit", m.totalKb / 2 + m.swapTotalKb);
    line("Committed_AS", 90000000 + m.anonKb * 20);
    line("VmallocTotal", 263061440);
    line("VmallocUsed", 170860);
    line("Percpu", 12864);
    line("CmaTotal", 548864);
    line("CmaFree", 2688);
    return out;
}

std::string pressure(const MemoryPressure& p) {
    std::string out;
    append(out, "some avg10=%.2f avg60=%.2f avg300=%.2f total=%" PRIu64 "\n", p.someAvg10,
           p.someAvg60, p.someAvg300, whole(p.someTotalUs));
    append(out, "full avg10=%.2f avg60=%.2f avg300=%.2f total=%" PRIu64 "\n", p.fullAvg10,
           p.fullAvg60, p.fullAvg300, whole(p.fullTotalUs));
    return out;
}

std::string vmstat(const MemInfo& m, const VmCounters& v) {
    std::string out;
    const auto line = [&out](const char* name, double value) {
        append(out, "%s %" PRIu64 "\n", name, whole(value));
    };
    const double fileCache = m.cachedKb - m.shmemKb;
    line("nr_free_pages", m.freeKb / 4);
    line("nr_zone_inactive_anon", m.anonKb * 0.52 / 4);
    line("nr_zone_active_anon", m.anonKb * 0.48 / 4);
    line("nr_zone_inactive_file", fileCache * 0.55 / 4);
    line("nr_zone_active_file", fileCache * 0.45 / 4);
    line("nr_zone_unevictable", 45236);
    line("nr_mlock", 45236);
    line("nr_zspages", m.swapCachedKb / 4);
    line("nr_anon_pages", m.anonKb / 4);
    line("nr_mapped", m.mappedKb / 4);
    line("nr_file_pages", m.cachedKb / 4);
    line("nr_shmem", m.shmemKb / 4);
    line("nr_swapcached", m.swapCachedKb / 4);
    line("pgpgin", v.pgpginKb);
    line("pgpgout", v.pgpgoutKb);
    line("pswpin", v.pswpin);
    line("pswpout", v.pswpout);
    line("pgfault", v.pgfault);
    line("pgmajfault", v.pgmajfault);
    line("pgsteal_kswapd", v.pgstealKswapd);
    line("pgscan_kswapd", v.pgscanKswapd);
    line("workingset_refault_file", v.workingsetRefault);
    return out;
}

std::string blockStat(const BlockCounters& b) {
    std::string out;
    for (const double column :
         {b.readIos, b.readMerges, b.readSectors, b.readTicks, b.writeIos, b.writeMerges,
          b.writeSectors, b.writeTicks, 0.0, b.ioTicks, b.timeInQueue, b.discardIos, 0.0,
          b.discardSectors, b.discardTicks, b.flushIos, b.flushTicks}) {
        append(out, " %8" PRIu64, whole(column));
    }
    return out.substr(1) + "\n";
}

std::string mmStat(const ZramFigures& z) {
    std::string out;
    append(out,
           "%" PRIu64 " %" PRIu64 " %" PRIu64 " 0 %" PRIu64 " %" PRIu64 " %" PRIu64 " %" PRIu64
           " %" PRIu64 " 0\n",
           whole(z.origBytes), whole(z.comprBytes), whole(z.memUsedBytes), whole(z.memUsedMaxBytes),
           whole(z.samePages), whole(z.pagesCompacted), whole(z.hugePages), whole(z.hugePagesSince));
    return out;
}

// Stored pages spread over `buckets` with each bucket `ratio` times the one before.
std::string spread(double pages, int buckets, double ratio) {
    double weights = 0;
    for (int i = 0; i < buckets; ++i) weights += std::pow(ratio, i);
    std::string out;
    for (int i = 0; i < buckets; ++i) {
        append(out, i == 0 ? "%" PRIu64 : " %" PRIu64, whole(pages * std::pow(ratio, i) / weights));
    }
    return out + "\n";
}

std::string idleHistogram(const ZramFigures& z) {
    return spread(z.storedKb / 4, 20, 0.8);
}

std::string idleClusterSizes(const ZramFigures& z) {
    return spread(z.storedKb / 4 / 16, 8, 0.5);
}

std::string simulatedBdStat(const ZramFigures& z) {
    std::string out;
    append(out, "%" PRIu64 " 0 %" PRIu64 " 0\n", whole(z.storedKb / 4 * 0.35),
           whole(z.idleWrittenPages));
    return out;
}

}  // namespace kerneltext
}  // namespace sim
