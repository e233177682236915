#include "Providers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <type_traits>

#include "BatteryStats.h"
#include "BatteryStatsStates.h"
#include "CpuStats.h"
#include "ProcessMemoryStats.h"
#include "StorageStats.h"
#include "SwapWriteStats.h"
#include "SystemMemoryStats.h"
#include "SystemStateStats.h"
#include "ThermalStats.h"
#include "VrFocusProviderStats.h"
#include "ZramStats.h"

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kNsPerSecond = 1000 * kNsPerMs;

// Owns a provider and renders its record fields as the host reads them after a snapshot: as
// JSON, and as metric families by the provider's table in export/ProviderMetrics.cc.
template <typename P>
HostedProvider hostedWith(std::unique_ptr<P> provider, std::function<json(P&)> render,
                          const metrics::RenderOptions& options) {
    P* p = provider.get();
    HostedProvider hosted;
    hosted.record = [p, render] { return render(*p); };
    // SystemStateStats' families come from the batch its `follow` fetches.
    if constexpr (!std::is_same_v<P, Vistrel::SystemStateStats>) {
        hosted.metrics = [p, options]() -> std::optional<metrics::Families> {
            return metrics::render(*p, options);
        };
    }
    hosted.provider = std::move(provider);
    return hosted;
}

std::string hexWord(int64_t word) {
    char text[24];
    snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(word));
    return text;
}

HostedProvider systemState(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::SystemStateStats>(
            std::make_unique<Vistrel::SystemStateStats>(o.donBitsPerState, o.donStatesPerAggregate,
                                                        o.donSamplePeriodMs),
            // The words themselves are printed by `follow`; fetching them here would log them twice.
            [](Vistrel::SystemStateStats& s) {
                return json{{"eventStartMs", s.getEventStartTime()}};
            },
            o.metrics);
    auto* p = static_cast<Vistrel::SystemStateStats*>(hosted.provider.get());
    auto batch = std::make_shared<metrics::DonBatch>();
    batch->bitsPerState = o.donBitsPerState;
    batch->statesPerBatch = o.donStatesPerAggregate;
    hosted.follow = [p, batch](const Vistrel::Notification& n) -> std::optional<json> {
        if (n.detail != "AggregatedDonStates") return std::nullopt;
        batch->words = p->getDonStates();
        json words = json::array();
        for (int64_t w : batch->words) words.push_back(hexWord(w));
        return json{{"eventStartMs", p->getEventStartTime()}, {"donStates", words}};
    };
    hosted.metrics = [batch, options = o.metrics]() -> std::optional<metrics::Families> {
        return metrics::render(*batch, options);
    };
    hosted.tracks = {};  // packed bit words: the fetch lines show them
    int64_t batchNs;
    if (__builtin_mul_overflow(o.donSamplePeriodMs * kNsPerMs, o.donStatesPerAggregate, &batchNs)) {
        batchNs = std::numeric_limits<int64_t>::max();
    }
    hosted.firstRecord = {batchNs, "its first batch of don states ends"};
    return hosted;
}

// Says once for each new write position of a ring whether it holds a reading not yet printed:
// the position moves with every successful sample (forced ones included).
class NewSlot {
public:
    bool operator()(int32_t filled, int32_t next) {
        if (filled == 0 || next == seen_) return false;
        seen_ = next;
        return true;
    }

private:
    int32_t seen_ = -1;
};

// The slot before `next` in a ring of `size`.
int32_t newestSlot(int32_t next, int32_t size) {
    return (next + size - 1) % size;
}

// Last, maximum, minimum and average of a ring.
json statistics(float last, float max, float min, float average) {
    return json{{"last", last}, {"max", max}, {"min", min}, {"average", average}};
}

// The level (%) and charging state the health HAL gives now, which the library reads only when
// it snapshots: the host asks through the provider's HAL connection, outside its calls. Left
// out when the HAL fails.
void addHalBattery(json& reading, const android::sp<android::hardware::health::V2_1::IHealth>& hal) {
    namespace health = android::hardware::health;
    if (hal == nullptr) return;
    const auto take = [&reading](health::V2_0::Result result, const health::V2_1::HealthInfo& info) {
        if (result != health::V2_0::Result::SUCCESS) return;
        const auto status = info.legacy.legacy.batteryStatus;
        reading["level"] = info.legacy.legacy.batteryLevel;
        reading["isCharging"] = status == health::V1_0::BatteryStatus::CHARGING ||
                                status == health::V1_0::BatteryStatus::FULL;
    };
    // A transport error leaves them out too (its status is checked, so that it does not abort).
    const bool answered = hal->getHealthInfo_2_1(take).isOk();
    static_cast<void>(answered);
}

HostedProvider battery(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::BatteryStats>(
            std::make_unique<Vistrel::BatteryStats>(),
            [](Vistrel::BatteryStats& b) {
                return json{{"isCharging", b.isCharging},
                            {"powerSource", b.powerSource},
                            {"status", b.statusText},
                            {"health", b.healthText},
                            {"level", b.level},
                            {"previousLevel", b.previousLevel},
                            {"chargeTimeToFullSeconds", b.chargeTimeToFullSeconds},
                            {"fullChargeMah", b.fullChargeMah},
                            {"previousFullChargeMah", b.previousFullChargeMah},
                            {"chargeCounterMah", b.chargeCounterMah},
                            {"previousChargeCounterMah", b.previousChargeCounterMah},
                            {"cycleCount", b.cycleCount},
                            {"currentMa", statistics(b.currentLastMa, b.currentMaxMa,
                                                     b.currentMinMa, b.currentAvgMa)},
                            {"voltageMv", statistics(b.voltageLastMv, b.voltageMaxMv,
                                                     b.voltageMinMv, b.voltageAvgMv)}};
            },
            o.metrics);
    hosted.tracks = {"level", "isCharging", "currentMa/last", "voltageMv/last", "chargeCounterMah"};
    hosted.readsInSample = true;  // its current and voltage rings
    auto* p = static_cast<Vistrel::BatteryStats*>(hosted.provider.get());
    hosted.reading = [p, isNew = NewSlot()]() mutable -> std::optional<json> {
        if (!isNew(p->ringCount, p->ringIndex)) return std::nullopt;
        const int32_t slot = newestSlot(p->ringIndex, Vistrel::BatteryStats::kRingSize);
        json reading{{"currentMa", p->currentRingMa[slot]}, {"voltageMv", p->voltageRingMv[slot]}};
        addHalBattery(reading, p->healthService);
        return reading;
    };
    return hosted;
}

const char* batteryStateName(Vistrel::BatteryState state) {
    switch (state) {
        case Vistrel::BatteryState::ActiveDischarging:
            return "ActiveDischarging";
        case Vistrel::BatteryState::ActiveCharging:
            return "ActiveCharging";
        case Vistrel::BatteryState::InactiveDischarging:
            return "InactiveDischarging";
        case Vistrel::BatteryState::InactiveCharging:
            return "InactiveCharging";
    }
    return "?";
}

HostedProvider batteryStates(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::BatteryStatsStates>(
            std::make_unique<Vistrel::BatteryStatsStates>(),
            [](Vistrel::BatteryStatsStates& s) {
                return json{{"state", batteryStateName(s.currentState)},
                            {"previousState", batteryStateName(s.previousState)},
                            {"stateStartStamp", s.stateStartStamp},
                            {"previousStateStartStamp", s.previousStateStartStamp},
                            {"powerSource", s.powerSource},
                            {"statePowerSource", s.statePowerSource},
                            {"previousStatePowerSource", s.previousStatePowerSource},
                            {"levelAtEvent", s.levelAtEvent},
                            {"previousLevelAtEvent", s.previousLevelAtEvent},
                            {"isChargingNow", s.isChargingNow},
                            {"chargeTimeToFullSeconds", s.chargeTimeToFullSeconds},
                            {"fullChargeMah", s.fullChargeMah},
                            {"previousFullChargeMah", s.previousFullChargeMah},
                            {"chargeCounterMah", s.chargeCounterMah},
                            {"previousChargeCounterMah", s.previousChargeCounterMah}};
            },
            o.metrics);
    hosted.tracks = {};  // states and stamps: its notifications mark the changes
    return hosted;
}

// The process count and the heaviest few processes by resident memory.
HostedProvider processMemory(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::ProcessMemoryStats>(
            std::make_unique<Vistrel::ProcessMemoryStats>(),
            [](Vistrel::ProcessMemoryStats& p) {
                constexpr size_t kShown = 3;
                std::vector<const std::pair<const std::string, Vistrel::ProcessMemorySnapshot>*> byRss;
                for (const auto& entry : p.snapshots) byRss.push_back(&entry);
                const size_t shown = std::min(kShown, byRss.size());
                std::partial_sort(byRss.begin(), byRss.begin() + shown, byRss.end(),
                                  [](const auto* a, const auto* b) {
                                      return a->second.vmRssKb > b->second.vmRssKb;
                                  });
                json top = json::array();
                for (size_t i = 0; i < shown; ++i) {
                    const auto& [name, s] = *byRss[i];
                    top.push_back(json{{"name", name},
                                       {"vmRssKb", s.vmRssKb},
                                       {"rssAnonKb", s.rssAnonKb},
                                       {"vmSwapKb", s.vmSwapKb},
                                       {"vmLibKb", s.vmLibKb},
                                       {"memtrackPssKb", s.memtrackPssKb},
                                       {"oomScoreAdj", s.oomScoreAdj},
                                       {"userTimeSec", s.userTimeSec},
                                       {"systemTimeSec", s.systemTimeSec}});
                }
                return json{{"timestampMs", p.timestampMs},
                            {"sampleDurationMs", p.sampleDurationMs},
                            {"processNames", p.snapshots.size()},
                            {"topByRss", top}};
            },
            o.metrics);
    hosted.tracks = {"processNames", "topByRss/*/vmRssKb"};
    hosted.readsInSample = true;  // its scan of the processes
    return hosted;
}

HostedProvider zram(const ProviderOptions& o) {
    return hostedWith<Vistrel::ZramStats>(
            std::make_unique<Vistrel::ZramStats>(),
            [](Vistrel::ZramStats& z) {
                return json{
                        {"origDataSize", z.origDataSize},     {"comprDataSize", z.comprDataSize},
                        {"memUsedTotal", z.memUsedTotal},     {"memLimit", z.memLimit},
                        {"memUsedMax", z.memUsedMax},         {"samePages", z.samePages},
                        {"pagesCompacted", z.pagesCompacted}, {"hugePages", z.hugePages},
                        {"hugePagesSince", z.hugePagesSince}, {"column10", z.column10}};
            },
            o.metrics);
}

HostedProvider swapWrite(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::SwapWriteStats>(
            std::make_unique<Vistrel::SwapWriteStats>(),
            [](Vistrel::SwapWriteStats& s) {
                return json{{"timestamp", s.timestamp}, {"swapWriteBytes", s.swapWriteBytes}};
            },
            o.metrics);
    hosted.tracks = {"swapWriteBytes"};
    return hosted;
}

HostedProvider storage(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::StorageStats>(
            std::make_unique<Vistrel::StorageStats>(),
            [](Vistrel::StorageStats& s) {
                return json{{"totalBytes", s.totalBytes},
                            {"availableBytes", s.availableBytes},
                            {"freeBytes", s.freeBytes},
                            {"lowStorage", s.lowStorage},
                            {"lastSnapshotNs", s.lastSnapshotNs}};
            },
            o.metrics);
    hosted.tracks = {"availableBytes", "lowStorage"};
    return hosted;
}

// The figures every sample reads (meminfo, PSI), as the record holds them.
json memoryReading(const Vistrel::SystemMemoryStats& m) {
    return json{{"timestampMs", m.timestampMs},
                {"readDurationMs", m.readDurationMs},
                {"memAvailableKb", m.memAvailableKb},
                {"memUsedKb", m.memUsedKb},
                {"psiSomeAvg10", m.psiSomeAvg10},
                {"psiSomeAvg60", m.psiSomeAvg60},
                {"psiSomeAvg300", m.psiSomeAvg300},
                {"psiFullAvg10", m.psiFullAvg10},
                {"psiFullAvg60", m.psiFullAvg60},
                {"psiFullAvg300", m.psiFullAvg300},
                {"uptimeMs", m.uptimeMs}};
}

// The zram idle statistics have no caller inside the library; the host gathers them with each
// record when mobile_vistrel_zram_idle_collector is set (this writes zram0's control file).
HostedProvider systemMemory(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::SystemMemoryStats>(
            std::make_unique<Vistrel::SystemMemoryStats>(),
            [](Vistrel::SystemMemoryStats& m) {
                json record = memoryReading(m);
                if (m.getZramIdleMemStatsEnabled()) {
                    const Vistrel::ZramIdleStats* idle = m.getZramIdleMemStats();
                    record["zramIdle"] = {{"idleHistogram", idle->idleHistogram},
                                          {"idleClusterSizes", idle->idleClusterSizes},
                                          {"simulatedBdStat", idle->simulatedBdStat}};
                }
                return record;
            },
            o.metrics);
    hosted.tracks = {"memAvailableKb", "memUsedKb",    "psiSomeAvg10", "psiSomeAvg60",
                     "psiSomeAvg300",  "psiFullAvg10", "psiFullAvg60", "psiFullAvg300"};
    // sample() itself reads meminfo and PSI into these fields; a snapshot only publishes them.
    hosted.readsInSample = true;
    auto* p = static_cast<Vistrel::SystemMemoryStats*>(hosted.provider.get());
    hosted.reading = [p]() -> std::optional<json> {
        if (!p->sampleValid) return std::nullopt;
        return memoryReading(*p);
    };
    return hosted;
}

// Thermal figures are rounded to hundredths (41.27, not 41.27000045776367); NAN prints as null.
double rounded(float value) {
    return std::round(value * 100.0) / 100.0;
}

json thermalStatistics(const std::map<std::string, Vistrel::SampledData>& all) {
    json byName = json::object();
    for (const auto& [name, d] : all) {
        byName[name] = {{"current", rounded(d.current)},
                        {"max", rounded(d.max)},
                        {"min", rounded(d.min)},
                        {"average", rounded(d.average)}};
    }
    return byName;
}

// Slot `slot` of every ring, by sensor or device name.
json ringSlot(const std::map<std::string, Vistrel::ThermalStats::Ring>& rings, int32_t slot) {
    json byName = json::object();
    for (const auto& [name, ring] : rings) byName[name] = rounded(ring[slot]);
    return byName;
}

HostedProvider thermal(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::ThermalStats>(
            std::make_unique<Vistrel::ThermalStats>(),
            [](Vistrel::ThermalStats& t) {
                return json{{"sensorsByType", t.sensorsByType},
                            {"temperatures", thermalStatistics(t.temperatureStats)},
                            {"coolingDevices", thermalStatistics(t.coolingDeviceStats)},
                            {"throttlingStatus", t.throttlingStatus}};
            },
            o.metrics);
    auto* p = static_cast<Vistrel::ThermalStats*>(hosted.provider.get());
    hosted.hooks["fireThrottlingNotification"] = [p] { p->fireThrottlingNotification(); };
    hosted.tracks = {"temperatures/*/current", "coolingDevices/*/current", "throttlingStatus/*"};
    // The newest slot of each ring: what the last sample read, or what the slot kept from twelve
    // samples before for a sensor that sample did not report.
    hosted.reading = [p, isNew = NewSlot()]() mutable -> std::optional<json> {
        if (!isNew(p->sampleCount, p->sampleIndex)) return std::nullopt;
        const int32_t slot = newestSlot(p->sampleIndex, Vistrel::ThermalStats::kRingSize);
        return json{{"temperatures", ringSlot(p->temperatureHistory, slot)},
                    {"coolingDevices", ringSlot(p->coolingDeviceHistory, slot)}};
    };
    return hosted;
}

// The foreground applications as of the snapshot the host takes on each "ForegroundAppsStats".
HostedProvider vrFocus(const ProviderOptions& o) {
    using Vistrel::VrFocusProviderStats;
    auto hosted = hostedWith<VrFocusProviderStats>(
            std::make_unique<VrFocusProviderStats>(),
            [](VrFocusProviderStats& f) {
                return json{{"foregroundApps", f.foregroundApps},
                            {"snapshotTimeNs", f.snapshotTimeNs}};
            },
            o.metrics);
    hosted.tracks = {};  // application names: its pushes mark the changes
    return hosted;
}

json featureTable(const std::optional<Vistrel::FeatureStatsMap>& stats) {
    if (!stats) return nullptr;
    static const char* const kValues[] = {"meanRate",    "maxRate",        "minRate",
                                          "totalTimeMs", "activeMeanRate", "activeMinRate",
                                          "activeTimeMs"};
    std::map<std::string, json> sorted;  // by name, so records read the same every run
    for (const auto& [name, values] : *stats) {
        json row = json::object();
        for (size_t i = 0; i < values.size() && i < 7; ++i) row[kValues[i]] = values[i];
        sorted[name] = row;
    }
    json table = json::object();
    for (auto& [name, row] : sorted) table[name] = std::move(row);
    return table;
}

// The names with the highest mean rates, and both feature tables; the host snapshots CpuStats
// right after each "ProcessCpuHeartbeat" (and with every other provider).
HostedProvider cpu(const ProviderOptions& o) {
    auto hosted = hostedWith<Vistrel::CpuStats>(
            std::make_unique<Vistrel::CpuStats>(),
            [](Vistrel::CpuStats& c) {
                constexpr size_t kShown = 5;
                json top = nullptr;
                if (c.processStats) {
                    std::vector<const std::pair<const std::string, Vistrel::ProcessCpuStats>*> all;
                    for (const auto& entry : *c.processStats) all.push_back(&entry);
                    const size_t shown = std::min(kShown, all.size());
                    std::partial_sort(all.begin(), all.begin() + shown, all.end(),
                                      [](const auto* a, const auto* b) {
                                          return a->second.meanRate > b->second.meanRate ||
                                                 (a->second.meanRate == b->second.meanRate &&
                                                  a->first < b->first);
                                      });
                    top = json::array();
                    for (size_t i = 0; i < shown; ++i) {
                        const auto& [name, s] = *all[i];
                        top.push_back(json{{"name", name},
                                           {"meanRate", s.meanRate},
                                           {"maxRate", s.maxRate},
                                           {"minRate", s.minRate},
                                           {"total", s.total},
                                           {"totalTimeMs", s.totalTimeMs}});
                    }
                }
                return json{{"names", c.processStats ? json(c.processStats->size()) : json()},
                            {"topByMeanRate", top},
                            {"features", featureTable(c.featureStats)},
                            {"featureIds", featureTable(c.featureIdStats)}};
            },
            o.metrics);
    hosted.snapshotAfter = [](const Vistrel::Notification& n) {
        return n.name == "ProcessCpuHeartbeat";
    };
    hosted.tracks = {"names", "topByMeanRate/*/meanRate", "features/*/meanRate"};
    // Its first sample comes 240 s after acquiring, the next ones every 10 s: the host asks for a
    // record covering two readings.
    hosted.firstRecord = {250 * kNsPerSecond, "a record needs two readings; its second comes"};
    return hosted;
}

struct Entry {
    const char* name;
    HostedProvider (*make)(const ProviderOptions&);
    std::vector<std::string> lineNames;  // its notifications, pushes and hooks
};

const Entry kProviders[] = {
        {"SystemStateStats", systemState, {"SystemStateStats"}},
        {"BatteryStats", battery, {"HealthInfo"}},
        {"BatteryStatsStates", batteryStates, {"BatteryFull", "BatteryLow"}},
        {"ProcessMemoryStats", processMemory, {"ProcessMemoryInfo"}},
        {"SystemMemoryStats", systemMemory, {"SystemMemoryInfo"}},
        {"ZramStats", zram, {"ZramHeartbeat"}},
        {"SwapWriteStats", swapWrite, {"SwapHeartbeat"}},
        {"StorageStats", storage, {"StorageHeartbeat", "LowStorage"}},
        {"ThermalStats",
         thermal,
         {"ThermalHeartbeat", "ThermalThrottle", "fireThrottlingNotification"}},
        // Collectors of the SDK modules (sim/sdk)
        {"VrFocusProviderStats", vrFocus, {"ForegroundAppsStats"}},
        {"CpuStats", cpu, {"ProcessCpuHeartbeat"}},
};

}  // namespace

const std::vector<std::string>& providerNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const auto& e : kProviders) all.push_back(e.name);
        return all;
    }();
    return names;
}

const std::vector<std::string>& providerLineNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const auto& e : kProviders)
            all.insert(all.end(), e.lineNames.begin(), e.lineNames.end());
        return all;
    }();
    return names;
}

std::vector<HostedProvider> makeProviders(const ProviderOptions& options,
                                          const std::vector<std::string>& names) {
    std::vector<HostedProvider> hosted;
    for (const auto& e : kProviders) {
        if (names.empty() || std::find(names.begin(), names.end(), e.name) != names.end()) {
            hosted.push_back(e.make(options));
        }
    }
    return hosted;
}

}  // namespace host
