#include "ProcessMemoryStats.h"

#include <binder/IServiceManager.h>
#include <memoryfootprint/memory_footprint.h>
#include <utils/String16.h>
#include <vendor/norvik/tarnet/ITrigger.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <SharedOsServicesProperties.sysprop.h>

#include "ProviderSupport.h"
#include "Timing.h"
#include "procfsutils/KernelFiles.h"
#include "procfsutils/ProcFsParser.h"
#include "procfsutils/ProcessFiles.h"
#include "seams/Libc.h"

namespace Vistrel {
namespace {

namespace processfiles = procfsutils::processfiles;
using vendor::norvik::tarnet::ITrigger;
using vendor::norvik::tarnet::TriggerContext;

constexpr const char kTriggerServiceName[] = "vendor.norvik.tarnet.ITrigger/default";
constexpr int32_t kOomScoreAdjNotRead = 9999;

// Formats the device path "/proc/<pid>/<file>" into `path`.
const char* procPath(int pid, const char* file, char (&path)[64]) {
    snprintf(path, sizeof(path), "/proc/%d/%s", pid, file);
    return path;
}

// A process as /proc lists it: its directory name and the id that name stands for.
struct ListedProcess {
    std::string name;
    int pid;
};

// The process entries of /proc, in directory order; false when /proc cannot be opened. The
// directory is closed before the scan starts. Entries are not stat'ed: a process-id name is
// taken as a process.
bool listProcesses(std::vector<ListedProcess>& processes) {
    const procfsutils::UniqueDirectory proc = procfsutils::openDirectory("/proc");
    if (proc == nullptr) return false;
    procfsutils::ProcessEntry entry;
    while (procfsutils::nextProcessEntry(proc.get(), procfsutils::ProcEntries::NamedByPid, &entry)) {
        processes.push_back({entry.name, entry.pid});
    }
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

    std::vector<ListedProcess> processes;
    processes.reserve(1024);
    if (!listProcesses(processes)) {
        logError("Cannot open /proc");
        return std::nullopt;
    }

    std::map<std::string, ProcessMemorySnapshot> scanned;
    for (const ListedProcess& process : processes) {
        scanProcess(process.name, process.pid, memtrackOn, scanned);
    }

    const int64_t endNs = bootTimeNs();
    timestampMs = elapsedNs / kNsPerMs;
    sampleDurationMs = static_cast<uint32_t>(difference(endNs, startNs) / kNsPerMs);
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

std::optional<std::string> ProcessMemoryStats::getProcessName(int pid) {
    char path[64];
    char text[processfiles::kLineBytes + 1];
    const procfsutils::FileRead read = procfsutils::readText(procPath(pid, "cmdline", path), text);
    if (read.count < 1) return std::nullopt;
    const std::optional<std::string_view> program = processfiles::programName(text, read.bytes());
    if (!program) return std::nullopt;
    return std::string(*program);
}

bool ProcessMemoryStats::getOomScoreAdj(int pid, ProcessMemorySnapshot& out) {
    char path[64];
    char text[processfiles::kOomScoreAdjBytes + 1];
    if (!procfsutils::readText(procPath(pid, "oom_score_adj", path), text).opened) {
        logError("ProcessMemoryStats fail to open %s", path);
        return false;
    }
    const std::optional<int> value = processfiles::oomScoreAdj(text);
    if (!value) {
        logError("ProcessMemoryStats failed to read oom_score_adj");
        return false;
    }
    out.oomScoreAdj = *value;
    return true;
}

bool ProcessMemoryStats::getProcessTimeStat(int pid, ProcessMemorySnapshot& out) {
    char path[64];
    char text[processfiles::kStatBytes + 1];
    const procfsutils::FileRead read = procfsutils::readText(procPath(pid, "stat", path), text);
    const std::optional<processfiles::StatTimes> times = processfiles::statTimes(text, read.bytes());
    if (!times) {
        logError("ProcessMemoryStats fail to read stats");
        return false;
    }
    const long ticks = seam::sysconf(_SC_CLK_TCK);
    if (ticks == 0) return false;
    const auto ticksPerSec = static_cast<float>(ticks);
    out.timeStatsValid = true;
    out.startTimeSec = static_cast<float>(times->starttime) / ticksPerSec;
    out.userTimeSec = static_cast<float>(times->utime) / ticksPerSec;
    out.systemTimeSec = static_cast<float>(times->stime) / ticksPerSec;
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
