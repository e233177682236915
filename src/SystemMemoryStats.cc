#include "SystemMemoryStats.h"

#include <meminfo/sysmeminfo.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ProviderSupport.h"
#include "SharedOsServicesProperties.sysprop.h"
#include "Timing.h"
#include "procfsutils/KernelFiles.h"
#include "procfsutils/SystemMemoryFiles.h"
#include "vistrelcore/Uptime.h"

namespace Vistrel {
namespace {

namespace props = halden::sysprop::SharedOsServicesProperties;
namespace systemmemoryfiles = procfsutils::systemmemoryfiles;
using procfsutils::readText;

constexpr int32_t kDefaultIdleSecs = 300;
constexpr int32_t kDefaultHistBucketSz = 60;

constexpr const char kPressurePath[] = "/proc/pressure/memory";
constexpr const char kIdleControlPath[] =
        "/sys/devices/virtual/block/zram0/calculate_idle_pg_stats";
constexpr const char kIdleClusterPath[] = "/sys/devices/virtual/block/zram0/idle_cluster_sz";
constexpr const char kSimulatedBdStatPath[] = "/sys/devices/virtual/block/zram0/simulated_bd_stat";
constexpr const char kIdleHistoPath[] = "/sys/devices/virtual/block/zram0/idlehisto";

}  // namespace

SystemMemoryStats::SystemMemoryStats() = default;
SystemMemoryStats::~SystemMemoryStats() = default;

const char* SystemMemoryStats::name() const {
    return "SystemMemoryStats";
}

SamplePeriod SystemMemoryStats::sampleRate() const {
    return std::chrono::milliseconds(300000);
}

std::optional<Notification> SystemMemoryStats::sample(IClockReader& clock) {
    sampleValid = false;
    const int64_t elapsedNs = clock.elapsedNs();
    const int64_t startNs = bootTimeNs();

    // /proc/meminfo through libmeminfo; a failed read leaves every figure 0.
    android::meminfo::SysMemInfo memInfo;
    memInfo.ReadMemInfo();
    static const uint64_t totalKb = memInfo.mem_total_kb();  // assumed constant for the process
    const uint64_t availableKb = memInfo.mem_available_kb();

    readPsi();
    uptimeMs = android_uptimeMillis();
    const int64_t endNs = bootTimeNs();

    memAvailableKb = availableKb;
    memUsedKb = totalKb - availableKb;
    sampleValid = true;
    readDurationMs = difference(endNs, startNs) / kNsPerMs;
    timestampMs = elapsedNs / kNsPerMs;
    return Notification{"SystemMemoryInfo", "Memory snapshot"};
}

void SystemMemoryStats::readPsi() {
    char text[systemmemoryfiles::kFileBytes + 1];
    const procfsutils::FileRead read = readText(kPressurePath, text);
    if (!read.opened) logError("Failed to open memory pressure file: %s", strerror(errno));
    const systemmemoryfiles::PressureAverages psi =
            read.opened ? systemmemoryfiles::pressureAverages(text, read.bytes())
                        : systemmemoryfiles::PressureAverages{};
    psiFullAvg10 = psi.fullAvg10;
    psiFullAvg60 = psi.fullAvg60;
    psiFullAvg300 = psi.fullAvg300;
    psiSomeAvg10 = psi.someAvg10;
    psiSomeAvg60 = psi.someAvg60;
    psiSomeAvg300 = psi.someAvg300;
}

bool SystemMemoryStats::snapshot(IClockReader& clock, bool force) {
    if (force) forceSample(*this, clock, "SystemMemoryStats: force sampled in snapshot");
    if (sampleValid) return true;
    logError("SystemMemoryStats snapshot failed because last sample failed");
    return false;
}

bool SystemMemoryStats::getZramIdleMemStatsEnabled() {
    const bool enabled = props::mobile_vistrel_zram_idle_collector().value_or(false);
    logVerbose("mobile_vistrel_zram_idle_collector returned %d", enabled ? 1 : 0);
    return enabled;
}

// Files under /sys/devices/virtual/block/zram0/:
//   calculate_idle_pg_stats  (written) "<bucket seconds> <idle seconds>", e.g. "60 300"
//   idle_cluster_sz          idle pages per cluster size, e.g. "812 301 77 20 4 1 0 0"
//   simulated_bd_stat        four counters, e.g. "1024 4096 52 0"
//   idlehisto                idle pages per age bucket, e.g. "4081 1203 ... 17"
ZramIdleStats* SystemMemoryStats::getZramIdleMemStats() {
    memset(&zramIdle, 0xff, sizeof(zramIdle));
    if (!getZramIdleMemStatsEnabled()) return &zramIdle;

    const int32_t idleSecs = props::mobile_vistrel_zram_idle_threshold().value_or(kDefaultIdleSecs);
    const int32_t histBucketSz =
            props::mobile_vistrel_zram_idle_histo_bucket().value_or(kDefaultHistBucketSz);

    struct stat controlStat {};
    if (procfsutils::statPath(kIdleControlPath, &controlStat) != 0) {
        const char* reason = strerror(errno);
        logVerbose("stat failed %s: %s", kIdleControlPath, reason);
        logVerbose("zram0 histBucketSz %d idleSecs %d", histBucketSz, idleSecs);
        logError("fopen %s: %s", kIdleControlPath, reason);
        return &zramIdle;
    }

    // Closed, and so flushed, only when the function returns: the request written below reaches
    // the kernel after the reads, which therefore see the figures of the previous call's
    // request. Readers of zramIdle pair every set of figures with the call before, as all
    // records from the device do; flushing first would change what each record means.
    const procfsutils::UniqueStream control = procfsutils::openStream(kIdleControlPath, "w");
    const int openErrno = errno;
    logVerbose("zram0 histBucketSz %d idleSecs %d", histBucketSz, idleSecs);
    if (control == nullptr) {
        logError("fopen %s: %s", kIdleControlPath, strerror(openErrno));
        return &zramIdle;
    }
    if (fprintf(control.get(), "%d %d", histBucketSz, idleSecs) < 0) {
        logError("write %s: %s", kIdleControlPath, strerror(errno));
        return &zramIdle;
    }

    char text[systemmemoryfiles::kFileBytes + 1];
    if (readText(kIdleClusterPath, text).opened) {
        systemmemoryfiles::summedValues(text, zramIdle.idleClusterSizes, 8);
    } else {
        logError("fopen %s: %s", kIdleClusterPath, strerror(errno));
    }
    if (readText(kSimulatedBdStatPath, text).opened) {
        systemmemoryfiles::leadingValues(text, zramIdle.simulatedBdStat, 4);
    } else {
        logError("Failed to open %s : %s", kSimulatedBdStatPath, strerror(errno));
    }
    if (readText(kIdleHistoPath, text).opened) {
        systemmemoryfiles::summedValues(text, zramIdle.idleHistogram, 16);
    } else {
        logError("Failed to open %s : %s", kIdleHistoPath, strerror(errno));
    }
    return &zramIdle;
}

}  // namespace Vistrel
