#include "SystemMemoryStats.h"

#include <meminfo/sysmeminfo.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ProviderSupport.h"
#include "SharedOsServicesProperties.sysprop.h"
#include "Timing.h"
#include "seams/FsRoot.h"
#include "vistrelcore/Uptime.h"

namespace Vistrel {
namespace {

namespace props = halden::sysprop::SharedOsServicesProperties;

constexpr float kPsiUnread = -1.0f;
constexpr int32_t kDefaultIdleSecs = 300;
constexpr int32_t kDefaultHistBucketSz = 60;

constexpr const char kPressurePath[] = "/proc/pressure/memory";
constexpr const char kIdleControlPath[] =
        "/sys/devices/virtual/block/zram0/calculate_idle_pg_stats";
constexpr const char kIdleClusterPath[] = "/sys/devices/virtual/block/zram0/idle_cluster_sz";
constexpr const char kSimulatedBdStatPath[] = "/sys/devices/virtual/block/zram0/simulated_bd_stat";
constexpr const char kIdleHistoPath[] = "/sys/devices/virtual/block/zram0/idlehisto";

FILE* openFile(const char* absolutePath, const char* mode) {
    seam::PathBuffer resolved;
    return fopen(seam::path(absolutePath, resolved), mode);
}

// Reads "%u" values into entries[0..count); once all are filled, every further value is added
// into the last entry (unsigned, wrapping).
//   idlehisto:        12 0 3 ...      one count per bucket
//   idle_cluster_sz:  4 1 0 ...       one count per cluster size
void readSummedInto(FILE* file, uint32_t* entries, size_t count) {
    size_t filled = 0;
    unsigned value = 0;
    while (fscanf(file, "%u", &value) == 1) {
        if (filled < count) {
            entries[filled++] = value;
        } else {
            entries[count - 1] += value;
        }
    }
}

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

// /proc/pressure/memory, stall percentages over 10, 60 and 300 s and the total stall in us:
//   some avg10=0.00 avg60=0.12 avg300=0.05 total=8324753
//   full avg10=0.00 avg60=0.03 avg300=0.01 total=4102261
void SystemMemoryStats::readPsi() {
    psiFullAvg10 = psiFullAvg60 = psiFullAvg300 = kPsiUnread;
    psiSomeAvg10 = psiSomeAvg60 = psiSomeAvg300 = kPsiUnread;
    FILE* file = openFile(kPressurePath, "r");
    if (file == nullptr) {
        logError("Failed to open memory pressure file: %s", strerror(errno));
        return;
    }
    char kind[5];
    float avg10 = 0, avg60 = 0, avg300 = 0;
    unsigned long total = 0;
    while (fscanf(file, "%4s avg10=%f avg60=%f avg300=%f total=%lu", kind, &avg10, &avg60, &avg300,
                  &total) == 5) {
        if (strcmp(kind, "some") == 0) {
            psiSomeAvg10 = avg10;
            psiSomeAvg60 = avg60;
            psiSomeAvg300 = avg300;
        } else if (strcmp(kind, "full") == 0) {
            psiFullAvg10 = avg10;
            psiFullAvg60 = avg60;
            psiFullAvg300 = avg300;
        }
    }
    fclose(file);
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

    seam::PathBuffer resolved;
    struct stat controlStat {};
    if (stat(seam::path(kIdleControlPath, resolved), &controlStat) != 0) {
        const char* reason = strerror(errno);
        logVerbose("stat failed %s: %s", kIdleControlPath, reason);
        logVerbose("zram0 histBucketSz %d idleSecs %d", histBucketSz, idleSecs);
        logError("fopen %s: %s", kIdleControlPath, reason);
        return &zramIdle;
    }

    FILE* control = openFile(kIdleControlPath, "w");
    const int openErrno = errno;
    logVerbose("zram0 histBucketSz %d idleSecs %d", histBucketSz, idleSecs);
    if (control == nullptr) {
        logError("fopen %s: %s", kIdleControlPath, strerror(openErrno));
        return &zramIdle;
    }
    // Left buffered on purpose: the request reaches the kernel when `control` is closed after
    // the reads below, which therefore see the figures of the previous request.
    if (fprintf(control, "%d %d", histBucketSz, idleSecs) < 0) {
        const int writeErrno = errno;
        fclose(control);
        logError("write %s: %s", kIdleControlPath, strerror(writeErrno));
        return &zramIdle;
    }

    if (FILE* clusters = openFile(kIdleClusterPath, "r")) {
        readSummedInto(clusters, zramIdle.idleClusterSizes, 8);
        fclose(clusters);
    } else {
        logError("fopen %s: %s", kIdleClusterPath, strerror(errno));
    }

    if (FILE* bdStat = openFile(kSimulatedBdStatPath, "r")) {
        unsigned long long value = 0;
        for (size_t i = 0; i < 4 && fscanf(bdStat, "%llu", &value) == 1; ++i) {
            zramIdle.simulatedBdStat[i] = value;
        }
        fclose(bdStat);
    } else {
        logError("Failed to open %s : %s", kSimulatedBdStatPath, strerror(errno));
    }

    if (FILE* histogram = openFile(kIdleHistoPath, "r")) {
        readSummedInto(histogram, zramIdle.idleHistogram, 16);
        fclose(histogram);
    } else {
        logError("Failed to open %s : %s", kIdleHistoPath, strerror(errno));
    }

    fclose(control);
    return &zramIdle;
}

}  // namespace Vistrel
