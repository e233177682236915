#include "Providers.h"

#include <algorithm>

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
