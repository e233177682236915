#include "Providers.h"

#include <algorithm>

#include "BatteryStats.h"
#include "BatteryStatsStates.h"
#include "ProcessMemoryStats.h"
#include "SystemStateStats.h"

namespace host {
namespace {

using json = nlohmann::ordered_json;

std::string hexWord(int64_t word) {
    char text[24];
    snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(word));
    return text;
}

HostedProvider systemState(const ProviderOptions& o) {
    auto provider = std::make_unique<Vistrel::SystemStateStats>(
        o.donBitsPerState, o.donStatesPerAggregate, o.donSamplePeriodMs);
    Vistrel::SystemStateStats* p = provider.get();
    HostedProvider hosted;
    // The words themselves are printed by `follow`; fetching them again here would log them twice.
    hosted.record = [p] { return json{{"eventStartMs", p->getEventStartTime()}}; };
    hosted.follow = [p](const Vistrel::Notification& n) -> std::optional<json> {
        if (n.detail != "AggregatedDonStates") return std::nullopt;
        json words = json::array();
        for (int64_t w : p->getDonStates()) words.push_back(hexWord(w));
        return json{{"eventStartMs", p->getEventStartTime()}, {"donStates", words}};
    };
    hosted.provider = std::move(provider);
    return hosted;
}

HostedProvider battery(const ProviderOptions&) {
    auto provider = std::make_unique<Vistrel::BatteryStats>();
    const Vistrel::BatteryStats* p = provider.get();
    HostedProvider hosted;
    hosted.record = [p] {
        return json{{"isCharging", p->isCharging},
                    {"powerSource", p->powerSource},
                    {"status", p->statusText},
                    {"health", p->healthText},
                    {"level", p->level},
                    {"previousLevel", p->previousLevel},
                    {"chargeTimeToFullSeconds", p->chargeTimeToFullSeconds},
                    {"fullChargeMah", p->fullChargeMah},
                    {"previousFullChargeMah", p->previousFullChargeMah},
                    {"chargeCounterMah", p->chargeCounterMah},
                    {"previousChargeCounterMah", p->previousChargeCounterMah},
                    {"cycleCount", p->cycleCount},
                    {"currentMa", {p->currentLastMa, p->currentMaxMa, p->currentMinMa, p->currentAvgMa}},
                    {"voltageMv", {p->voltageLastMv, p->voltageMaxMv, p->voltageMinMv, p->voltageAvgMv}}};
    };
    hosted.provider = std::move(provider);
    return hosted;
}

const char* batteryStateName(Vistrel::BatteryState state) {
    switch (state) {
        case Vistrel::BatteryState::ActiveDischarging: return "ActiveDischarging";
        case Vistrel::BatteryState::ActiveCharging: return "ActiveCharging";
        case Vistrel::BatteryState::InactiveDischarging: return "InactiveDischarging";
        case Vistrel::BatteryState::InactiveCharging: return "InactiveCharging";
    }
    return "?";
}

HostedProvider batteryStates(const ProviderOptions&) {
    auto provider = std::make_unique<Vistrel::BatteryStatsStates>();
    const Vistrel::BatteryStatsStates* p = provider.get();
    HostedProvider hosted;
    hosted.record = [p] {
        return json{{"state", batteryStateName(p->currentState)},
                    {"previousState", batteryStateName(p->previousState)},
                    {"stateStartStamp", p->stateStartStamp},
                    {"previousStateStartStamp", p->previousStateStartStamp},
                    {"powerSource", p->powerSource},
                    {"statePowerSource", p->statePowerSource},
                    {"previousStatePowerSource", p->previousStatePowerSource},
                    {"levelAtEvent", p->levelAtEvent},
                    {"previousLevelAtEvent", p->previousLevelAtEvent},
                    {"isChargingNow", p->isChargingNow},
                    {"chargeTimeToFullSeconds", p->chargeTimeToFullSeconds},
                    {"fullChargeMah", p->fullChargeMah},
                    {"previousFullChargeMah", p->previousFullChargeMah},
                    {"chargeCounterMah", p->chargeCounterMah},
                    {"previousChargeCounterMah", p->previousChargeCounterMah}};
    };
    hosted.provider = std::move(provider);
    return hosted;
}

// The process count and the heaviest few processes by resident memory.
HostedProvider processMemory(const ProviderOptions&) {
    auto provider = std::make_unique<Vistrel::ProcessMemoryStats>();
    Vistrel::ProcessMemoryStats* p = provider.get();
    HostedProvider hosted;
    hosted.record = [p] {
        constexpr size_t kShown = 3;
        std::vector<const std::pair<const std::string, Vistrel::ProcessMemorySnapshot>*> byRss;
        for (const auto& entry : p->snapshots) byRss.push_back(&entry);
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
        return json{{"timestampMs", p->timestampMs},
                    {"sampleDurationMs", p->sampleDurationMs},
                    {"processNames", p->snapshots.size()},
                    {"topByRss", top}};
    };
    hosted.provider = std::move(provider);
    return hosted;
}

struct Entry {
    const char* name;
    HostedProvider (*make)(const ProviderOptions&);
};

const Entry kProviders[] = {
    {"SystemStateStats", systemState},
    {"BatteryStats", battery},
    {"BatteryStatsStates", batteryStates},
    {"ProcessMemoryStats", processMemory},
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
