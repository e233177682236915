// The providers the reference host runs, and how the host reads each one's record.
// To host a new provider: add its options (if any) to ProviderOptions, then one entry to the
// table in Providers.cc that constructs it and renders its record fields as JSON.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "MetricFamilies.h"
#include "Provider.h"
#include "ProviderMetrics.h"

namespace host {

struct ProviderOptions {
    // SystemStateStats: bits per state, states per batch, sampling period.
    uint32_t donBitsPerState = 1;
    int32_t donStatesPerAggregate = 60;
    int64_t donSamplePeriodMs = 60000;
    // How records are rendered as metric families (HostedProvider::metrics).
    metrics::RenderOptions metrics;
};

struct HostedProvider {
    std::unique_ptr<Vistrel::Provider> provider;
    // The provider's record as the host reads it after a successful snapshot.
    std::function<nlohmann::ordered_json()> record;
    // The same record as metric families (export/ProviderMetrics.h); empty when this snapshot
    // brought no new readings and the previous families stay current.
    std::function<std::optional<metrics::Families>()> metrics;
    // What the host fetches after routing one of the provider's own notifications (for
    // example the packed don states after "AggregatedDonStates"); empty when nothing.
    std::function<std::optional<nlohmann::ordered_json>(const Vistrel::Notification&)> follow;
    // What the provider's last sample read, from the state it keeps between snapshots (the
    // newest slot of its rings, or the reading a snapshot only publishes); empty when that
    // sample read nothing. Printed as a "sample" line with --samples; empty: never.
    std::function<std::optional<nlohmann::ordered_json>()> reading;
    // The record fields that become counter tracks of a trace (Trace.h: recordCounters). The
    // default, "**", takes every number in the record; empty: none.
    std::vector<std::string> tracks = {"**"};
    // Test hooks the host can call by name at a scripted device time, on the driving thread
    // (for example ThermalStats' "fireThrottlingNotification").
    std::map<std::string, std::function<void()>> hooks;
    // Whether the host snapshots the provider (and prints its record) right after routing one of
    // its own notifications, e.g. CpuStats' "ProcessCpuHeartbeat"; empty: never.
    std::function<bool(const Vistrel::Notification&)> snapshotAfter;
    // Whether its snapshot only publishes what its samples read, so that one before its first
    // sample fails (ProcessMemoryStats logs an error then): the host's periodic snapshots wait
    // for that sample.
    bool readsInSample = false;
    // When its own rules first let it give a record (a complete batch of states, two readings of
    // a heartbeat's last minute): `afterNs` of device time after it was acquired, and what it
    // waits for, completed with " at <device time>" ("its first batch of don states ends");
    // afterNs 0: at once. A record waiting for a batch is never forced.
    struct FirstRecord {
        int64_t afterNs = 0;
        std::string waitsFor;
    } firstRecord;
};

// Every provider the host knows, by class name, in the order the host drives them.
const std::vector<std::string>& providerNames();
// The names of every notification and push those providers make and of their hooks.
const std::vector<std::string>& providerLineNames();

// Constructs the named providers (all when `names` is empty). Unknown names are the caller's
// to reject beforehand (see providerNames()).
std::vector<HostedProvider> makeProviders(const ProviderOptions& options,
                                          const std::vector<std::string>& names);

}  // namespace host
