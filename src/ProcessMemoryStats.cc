#include "ProcessMemoryStats.h"

#include <binder/IServiceManager.h>
#include <dirent.h>
#include <memoryfootprint/memory_footprint.h>
#include <utils/String16.h>
#include <vendor/norvik/tarnet/ITrigger.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <SharedOsServicesProperties.sysprop.h>

#include "ProviderSupport.h"
#include "Timing.h"
#include "procfsutils/ProcFsParser.h"
#include "seams/FsRoot.h"
#include "seams/Libc.h"

namespace Vistrel {
namespace {

using vendor::norvik::tarnet::ITrigger;
using vendor::norvik::tarnet::TriggerContext;

constexpr const char kTriggerServiceName[] = "vendor.norvik.tarnet.ITrigger/default";
constexpr int32_t kOomScoreAdjNotRead = 9999;
// Bytes read from /proc/<pid>/cmdline and from the tail of /proc/<pid>/stat.
constexpr size_t kLineBytes = 256;
// Stream buffers supplied to stdio, so a stream neither allocates one nor asks the kernel for
// a block size. Sized so the small files below are normally taken in by a single read.
constexpr size_t kStreamBufferBytes = 1024;

// Formats "/proc/<pid>/<file>" into `logical` and returns it resolved under the file-system root.
const char* procPath(int pid, const char* file, char (&logical)[64], seam::PathBuffer& resolved) {
    snprintf(logical, sizeof(logical), "/proc/%d/%s", pid, file);
    return seam::path(logical, resolved);
}

// Opens `path` for stream reads through `buffer`; null when it cannot be opened.
FILE* openStream(const char* path, char (&buffer)[kStreamBufferBytes]) {
    FILE* stream = fopen(path, "re");
    if (stream != nullptr) setvbuf(stream, buffer, _IOFBF, sizeof(buffer));
    return stream;
}

// The pid a /proc entry name stands for: names made only of decimal digits that fit an int.
std::optional<int> pidOf(const char* name) {
    const char* end = name + strlen(name);
    if (name == end || !std::all_of(name, end, [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    int pid = 0;
    const auto result = std::from_chars(name, end, pid, 10);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return pid;
}

// Names of the process directories of /proc, in directory order; false when /proc cannot be
// opened. Entries are not stat'ed: a numeric name is taken as a process.
bool listProcessDirectories(std::vector<std::string>& names) {
    seam::PathBuffer resolved;
    DIR* proc = opendir(seam::path("/proc", resolved));
    if (proc == nullptr) return false;
    while (const struct dirent* entry = readdir(proc)) {
        if (pidOf(entry->d_name)) names.emplace_back(entry->d_name);
    }
    closedir(proc);
    return true;
}

android::String16 toString16(const std::string& text) {
    return android::String16(text.data(), text.size());
}

template <typename... Args>
std::optional<android::String16> annotation(const char* format, Args... args) {
    char text[96];
    snprintf(text, sizeof(text), format, args...);
    return android::String16(text);
}

}  // namespace

ProcessMemoryStats::ProcessMemoryStats() = default;
ProcessMemoryStats::~ProcessMemoryStats() = default;

const char* ProcessMemoryStats::name() const {
    return "ProcessMemoryStats";
}

SamplePeriod ProcessMemoryStats::sampleRate() const {
    return std::chrono::milliseconds(900000);
}

std::optional<Notification> ProcessMemoryStats::sample(IClockReader& clock) {
    sampleValid = false;
    const int64_t elapsedNs = clock.elapsedNs();
    const int64_t startNs = bootTimeNs();
    const bool memtrackOn =
            halden::sysprop::SharedOsServicesProperties::mobile_vistrel_memory_extended_collector()
                    .value_or(false);

    std::vector<std::string> pidNames;
    pidNames.reserve(1024);
    if (!listProcessDirectories(pidNames)) {
        logError("Cannot open /proc");
        return std::nullopt;
    }

    std::map<std::string, ProcessMemorySnapshot> scanned;
    for (const std::string& pidName : pidNames) {
        scanProcess(pidName, *pidOf(pidName.c_str()), memtrackOn, scanned);
    }

    const int64_t endNs = bootTimeNs();
    timestampMs = elapsedNs / kNsPerMs;
    sampleDurationMs = static_cast<uint32_t>((endNs - startNs) / kNsPerMs);
    snapshots.swap(scanned);
    sampleValid = true;
    return Notification{"ProcessMemoryInfo", "Memory snapshot"};
}

void ProcessMemoryStats::scanProcess(const std::string& pidName, int pid, bool memtrackOn,
                                     std::map<std::string, ProcessMemorySnapshot>& scanned) {
    procfsutils::ProcFsParser parser;  // one per process, with its own read buffer
    std::optional<std::string> processName = getProcessName(pid);
    std::string key = processName ? std::move(*processName) : std::string();
    // Every process gets an entry (at the latest from the oom/time steps below), so it is
    // looked up once here; std::map references stay valid while other entries are added.
    ProcessMemorySnapshot& entry = scanned[key];

    procfsutils::ProcessStatusData status{};
    if (parser.getProcessStatusData(pid, &status) && status.vmSize != 0) {
        int32_t memtrackKb = -1;
        if (memtrackOn) {
            memory_footprint_data footprint{};
            get_memory_footprint(pid, &footprint, MEMORY_FOOTPRINT_MEMTRACK);
            memtrackKb = footprint.memtrack_pss_kb;
        }
        entry.vmRssKb = status.vmRss;
        entry.vmLibKb = status.vmLib;
        entry.vmSwapKb = status.vmSwap;
        entry.rssAnonKb = status.rssAnon;
        entry.timeStatsValid = false;
        entry.startTimeSec = 0;
        entry.userTimeSec = 0;
        entry.systemTimeSec = 0;
        entry.memtrackPssKb = memtrackKb;
        entry.oomScoreAdj = kOomScoreAdjNotRead;
        // 32-bit sum with wrap-around, as the figures are kept.
        reportToTarnet(key, static_cast<int32_t>(status.rssAnon + status.vmSwap), memtrackKb);
    }

    if (!getOomScoreAdj(pid, entry)) {
        logError("ProcessMemoryStats fail to get oom_score_adj for pid %s.", pidName.c_str());
    }
    if (!getProcessTimeStat(pid, entry)) {
        logError("ProcessMemoryStats fail to get process time stats for pid %s.", pidName.c_str());
    }
}

// /proc/<pid>/cmdline: the arguments, each followed by a NUL, e.g.
//   "/system/bin/surfaceflinger\0--flag\0"
// Empty for kernel threads and zombies. Programs that rewrite their arguments may use blanks.
std::optional<std::string> ProcessMemoryStats::getProcessName(int pid) {
    char logical[64];
    seam::PathBuffer resolved;
    char streamBuffer[kStreamBufferBytes];
    FILE* stream = openStream(procPath(pid, "cmdline", logical, resolved), streamBuffer);
    if (stream == nullptr) return std::nullopt;
    char line[kLineBytes + 1] = {};  // the spare zero byte terminates a full read
    const size_t count = fread(line, 1, kLineBytes, stream);
    fclose(stream);
    if (count < 1) return std::nullopt;
    char* save = nullptr;
    const char* first = strtok_r(line, " ", &save);  // splits exactly as strtok does
    if (first == nullptr) return std::nullopt;
    return std::string(first);
}

// /proc/<pid>/oom_score_adj: one decimal integer in -1000..1000, e.g. "-800\n".
bool ProcessMemoryStats::getOomScoreAdj(int pid, ProcessMemorySnapshot& out) {
    char logical[64];
    seam::PathBuffer resolved;
    char streamBuffer[kStreamBufferBytes];
    FILE* stream = openStream(procPath(pid, "oom_score_adj", logical, resolved), streamBuffer);
    if (stream == nullptr) {
        logError("ProcessMemoryStats fail to open %s", logical);
        return false;
    }
    int value = 0;
    const bool read = fscanf(stream, "%d", &value) == 1;
    fclose(stream);
    if (!read) {
        logError("ProcessMemoryStats failed to read oom_score_adj");
        return false;
    }
    out.oomScoreAdj = value;
    return true;
}

// /proc/<pid>/stat: one line of blank-separated fields, times in clock ticks, e.g.
//   "1234 (surfaceflinger) S 1 1234 0 0 -1 4210944 9000 0 12 0 310 95 0 0 ... 412 ..."
// Field 3 is the state, 14 utime, 15 stime, 22 starttime (ticks after boot). The command (field
// 2) is read as one blank-delimited word; a blank inside it shifts the later fields by one.
bool ProcessMemoryStats::getProcessTimeStat(int pid, ProcessMemorySnapshot& out) {
    char logical[64];
    seam::PathBuffer resolved;
    char streamBuffer[kStreamBufferBytes];
    FILE* stream = openStream(procPath(pid, "stat", logical, resolved), streamBuffer);
    char rest[kLineBytes + 1] = {};  // the spare zero byte terminates a full read
    size_t count = 0;
    if (stream != nullptr) {
        int statPid = 0;
        char command[kLineBytes];
        if (fscanf(stream, "%d %255s", &statPid, command) >= 0) {
            count = fread(rest, 1, kLineBytes, stream);
        }
        fclose(stream);
    }
    if (count < 1) {
        logError("ProcessMemoryStats fail to read stats");
        return false;
    }

    unsigned long utime = 0, stime = 0;
    unsigned long long starttime = 0;
    char* save = nullptr;
    int field = 3;
    for (char* token = strtok_r(rest, " ", &save); token != nullptr;
         token = strtok_r(nullptr, " ", &save), ++field) {
        if (field == 14) {
            utime = strtoul(token, nullptr, 10);
        } else if (field == 15) {
            stime = strtoul(token, nullptr, 10);
        } else if (field == 22) {
            starttime = strtoull(token, nullptr, 10);
            break;
        }
    }

    const long ticks = seam::sysconf(_SC_CLK_TCK);
    if (ticks == 0) return false;
    const auto ticksPerSec = static_cast<float>(ticks);
    out.timeStatsValid = true;
    out.startTimeSec = static_cast<float>(starttime) / ticksPerSec;
    out.userTimeSec = static_cast<float>(utime) / ticksPerSec;
    out.systemTimeSec = static_cast<float>(stime) / ticksPerSec;
    return true;
}

void ProcessMemoryStats::reportToTarnet(std::string& processName, int32_t rssAnonPlusSwapKb,
                                        int32_t memtrackKb) {
    // 32-bit sum with wrap-around (figures near the 32-bit limit must not be undefined).
    const auto value = static_cast<int32_t>(static_cast<uint32_t>(rssAnonPlusSwapKb) +
                                            static_cast<uint32_t>(std::max(memtrackKb, 0)));
    if (value < kOverBudgetKb) return;

    android::sp<ITrigger> triggerService;
    const android::status_t status =
            android::getService<ITrigger>(android::String16(kTriggerServiceName), &triggerService);
    if (status != android::OK || triggerService == nullptr) {
        logError("Error while getting the service proxy: %d %s", status,
                 triggerService == nullptr ? ", triggerService is null!" : "");
        return;
    }

    const bool withMemtrack = memtrackKb >= 0;
    TriggerContext context;
    context.triggerName = toString16("memory_heartbeat_over_budget:" + processName);
    context.processName = toString16(processName);
    context.annotations.emplace();
    auto& annotations = *context.annotations;
    annotations.reserve(5);
    annotations.push_back(annotation("threshold_current_value:%d", value));
    annotations.push_back(annotation("includes_memtrack:%s", withMemtrack ? "true" : "false"));
    annotations.push_back(annotation("rss_anon_plus_swap_kib:%d", rssAnonPlusSwapKb));
    annotations.push_back(annotation("memtrack_pss_kib:%d", memtrackKb));
    annotations.push_back(
            annotation("%s", withMemtrack ? "threshold_units:RSS_anon_plus_swap_plus_memtrack_KB"
                                          : "threshold_units:RSS_anon_plus_swap_KB"));
    triggerService->trigger(context);  // the service's answer changes nothing here
}

bool ProcessMemoryStats::snapshot(IClockReader& clock, bool force) {
    if (force) forceSample(*this, clock, "ProcessMemoryStats: force sampled in snapshot");
    if (!sampleValid) {
        logError("ProcessMemoryStats snapshot failed because last sample failed");
        return false;
    }
    return true;
}

}  // namespace Vistrel
