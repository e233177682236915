#include "RunMetrics.h"

#include <iterator>
#include <string>

namespace metrics {
namespace {

using Counts = host::RunSummary::Counts;

constexpr double kNsPerSecond = 1e9;

const char* priorityName(char letter) {
    switch (letter) {
        case 'V':
            return "verbose";
        case 'D':
            return "debug";
        case 'I':
            return "info";
        case 'W':
            return "warn";
        case 'E':
            return "error";
        case 'F':
            return "fatal";
    }
    return "unknown";
}

Family counter(const char* name, const char* help) {
    return Family{name, help, Kind::Counter, {}};
}

void append(Family& family, const Counts& row, double value, std::vector<Label> more = {}) {
    std::vector<Label> labels{{"provider", labelValue(row.provider)}};
    labels.insert(labels.end(), more.begin(), more.end());
    family.series.push_back({std::move(labels), value});
}

}  // namespace

Families runMetrics(const std::vector<Counts>& rows) {
    Family samples = counter("vistrel_provider_samples_total", "Calls of the provider's sample.");
    Family snapshots = counter("vistrel_provider_snapshots_total",
                               "Snapshots of the provider that refreshed its record (ok) or not "
                               "(failed).");
    Family pushes = counter("vistrel_provider_pushes_total",
                            "Notifications the provider pushed through the host's router.");
    Family notifications = counter("vistrel_provider_notifications_total",
                                   "Notifications the provider's sample returned, by name.");
    Family logs = counter("vistrel_provider_log_lines_total",
                          "Log lines made during the provider's calls, by priority.");
    Family cpu = counter("vistrel_provider_cpu_seconds_total",
                         "CPU time the provider spent in its own calls on the host's thread.");
    for (const Counts& row : rows) {
        for (const auto& [priority, count] : row.logs) {
            append(logs, row, static_cast<double>(count), {{"priority", priorityName(priority)}});
        }
        if (row.calls == 0) continue;  // the row of log lines made outside provider calls
        append(samples, row, static_cast<double>(row.samples));
        append(snapshots, row, static_cast<double>(row.snapshotsOk), {{"result", "ok"}});
        append(snapshots, row, static_cast<double>(row.snapshotsFailed), {{"result", "failed"}});
        append(pushes, row, static_cast<double>(row.pushes));
        for (const auto& [name, count] : row.notifications) {
            append(notifications, row, static_cast<double>(count),
                   {{"notification", labelValue(name)}});
        }
        append(cpu, row, static_cast<double>(row.cpuNs) / kNsPerSecond);
    }
    Families all;
    for (Family* family : {&samples, &snapshots, &pushes, &notifications, &logs, &cpu}) {
        if (!family->series.empty()) all.push_back(std::move(*family));
    }
    return all;
}

Families hostMetrics(host::Host& host) {
    Families all;
    for (size_t i = 0; i < host.providerCount(); ++i) {
        Families record = host.exportedRecord(i);
        std::move(record.begin(), record.end(), std::back_inserter(all));
    }
    Families own = runMetrics(host.summary().rows());
    std::move(own.begin(), own.end(), std::back_inserter(all));
    return all;
}

}  // namespace metrics
