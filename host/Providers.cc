#include "Providers.h"

#include <algorithm>

#include "StorageStats.h"
#include "SwapWriteStats.h"
#include "SystemMemoryStats.h"
#include "SystemStateStats.h"
#include "ZramStats.h"

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

// Memory and storage counters: the record fields as the host reads them after a snapshot.
template <typename P>
HostedProvider hostedWith(std::function<json(P&)> render) {
    auto provider = std::make_unique<P>();
    P* p = provider.get();
    HostedProvider hosted;
    hosted.record = [p, render] { return render(*p); };
    hosted.provider = std::move(provider);
    return hosted;
}

HostedProvider zram(const ProviderOptions&) {
    return hostedWith<Vistrel::ZramStats>([](Vistrel::ZramStats& z) {
        return json{{"origDataSize", z.origDataSize},     {"comprDataSize", z.comprDataSize},
                    {"memUsedTotal", z.memUsedTotal},     {"memLimit", z.memLimit},
                    {"memUsedMax", z.memUsedMax},         {"samePages", z.samePages},
                    {"pagesCompacted", z.pagesCompacted}, {"hugePages", z.hugePages},
                    {"hugePagesSince", z.hugePagesSince}, {"column10", z.column10}};
    });
}

HostedProvider swapWrite(const ProviderOptions&) {
    return hostedWith<Vistrel::SwapWriteStats>([](Vistrel::SwapWriteStats& s) {
        return json{{"timestamp", s.timestamp}, {"swapWriteBytes", s.swapWriteBytes}};
    });
}

HostedProvider storage(const ProviderOptions&) {
    return hostedWith<Vistrel::StorageStats>([](Vistrel::StorageStats& s) {
        return json{{"totalBytes", s.totalBytes},   {"availableBytes", s.availableBytes},
                    {"freeBytes", s.freeBytes},     {"lowStorage", s.lowStorage},
                    {"lastSnapshotNs", s.lastSnapshotNs}};
    });
}

// The zram idle statistics have no caller inside the library; the host gathers them with each
// record when mobile_vistrel_zram_idle_collector is set (this writes zram0's control file).
HostedProvider systemMemory(const ProviderOptions&) {
    return hostedWith<Vistrel::SystemMemoryStats>([](Vistrel::SystemMemoryStats& m) {
        json record = {{"timestampMs", m.timestampMs},     {"readDurationMs", m.readDurationMs},
                       {"memAvailableKb", m.memAvailableKb}, {"memUsedKb", m.memUsedKb},
                       {"psiSomeAvg10", m.psiSomeAvg10},   {"psiSomeAvg60", m.psiSomeAvg60},
                       {"psiSomeAvg300", m.psiSomeAvg300}, {"psiFullAvg10", m.psiFullAvg10},
                       {"psiFullAvg60", m.psiFullAvg60},   {"psiFullAvg300", m.psiFullAvg300},
                       {"uptimeMs", m.uptimeMs}};
        if (m.getZramIdleMemStatsEnabled()) {
            const Vistrel::ZramIdleStats* idle = m.getZramIdleMemStats();
            record["zramIdle"] = {{"idleHistogram", idle->idleHistogram},
                                  {"idleClusterSizes", idle->idleClusterSizes},
                                  {"simulatedBdStat", idle->simulatedBdStat}};
        }
        return record;
    });
}

struct Entry {
    const char* name;
    HostedProvider (*make)(const ProviderOptions&);
};

const Entry kProviders[] = {
    {"SystemStateStats", systemState},
    {"SystemMemoryStats", systemMemory},
    {"ZramStats", zram},
    {"SwapWriteStats", swapWrite},
    {"StorageStats", storage},
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
