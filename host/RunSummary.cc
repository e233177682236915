#include "RunSummary.h"

#include <cstdio>

#include "ProviderCall.h"
#include "TextValues.h"

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr double kNsPerMs = 1e6;
constexpr double kNsPerHour = 3600e9;

std::string logText(const std::map<char, int64_t>& logs) {
    std::string text;
    for (const auto& [priority, count] : logs) {
        text += (text.empty() ? "" : " ") + std::string(1, priority) + " " + std::to_string(count);
    }
    return text.empty() ? "-" : text;
}

std::string notificationText(const std::map<std::string, int64_t>& notifications) {
    std::string text;
    for (const auto& [name, count] : notifications) {
        text += (text.empty() ? "" : ", ") + name + " " + std::to_string(count);
    }
    return text.empty() ? "-" : text;
}

json rowJson(const RunSummary::Counts& c, int64_t deviceNs) {
    json logs = json::object();
    for (const auto& [priority, count] : c.logs) logs[std::string(1, priority)] = count;
    return json{{"samples", c.samples},
                {"notifications", c.notifications},
                {"pushes", c.pushes},
                {"snapshotsOk", c.snapshotsOk},
                {"snapshotsFailed", c.snapshotsFailed},
                {"logs", logs},
                {"calls", c.calls},
                {"cpuMs", c.cpuNs / kNsPerMs},
                {"cpuMsPerDeviceHour", msPerDeviceHour(c.cpuNs, deviceNs)}};
}

json totalJson(int64_t totalNs, int64_t deviceNs) {
    const double perHour = msPerDeviceHour(totalNs, deviceNs);
    return json{{"cpuMs", totalNs / kNsPerMs},
                {"cpuMsPerDeviceHour", perHour},
                {"budgetMsPerDeviceHour", kBudgetMsPerDeviceHour},
                {"percentOfBudget", perHour / kBudgetMsPerDeviceHour * 100.0}};
}

int64_t totalCpuNs(const std::vector<RunSummary::Counts>& rows) {
    int64_t totalNs = 0;
    for (const auto& c : rows) totalNs += c.cpuNs;
    return totalNs;
}

}  // namespace

double msPerDeviceHour(int64_t cpuNs, int64_t deviceNs) {
    if (deviceNs <= 0) return 0;
    return static_cast<double>(cpuNs) / kNsPerMs / (static_cast<double>(deviceNs) / kNsPerHour);
}

RunSummary::RunSummary(const std::vector<std::string>& providers) {
    counts_.resize(providers.size());
    for (size_t i = 0; i < providers.size(); ++i) counts_[i].provider = providers[i];
    elsewhere_.provider = "(other threads)";
}

void RunSummary::countSample(size_t provider) {
    threadsafety::MutexLock lock(mutex_);
    ++counts_[provider].samples;
}

void RunSummary::countNotification(size_t provider, const std::string& name) {
    threadsafety::MutexLock lock(mutex_);
    ++counts_[provider].notifications[name];
}

void RunSummary::countPush(size_t provider) {
    threadsafety::MutexLock lock(mutex_);
    ++counts_[provider].pushes;
}

void RunSummary::countSnapshot(size_t provider, bool refreshed) {
    threadsafety::MutexLock lock(mutex_);
    ++(refreshed ? counts_[provider].snapshotsOk : counts_[provider].snapshotsFailed);
}

void RunSummary::countLog(size_t provider, char priority) {
    threadsafety::MutexLock lock(mutex_);
    ++(provider < counts_.size() ? counts_[provider] : elsewhere_).logs[priority];
}

void RunSummary::addCall(size_t provider, int64_t cpuNs) {
    threadsafety::MutexLock lock(mutex_);
    ++counts_[provider].calls;
    counts_[provider].cpuNs += cpuNs;
}

std::vector<RunSummary::Counts> RunSummary::rows() const {
    threadsafety::MutexLock lock(mutex_);
    std::vector<Counts> all = counts_;
    if (!elsewhere_.logs.empty()) all.push_back(elsewhere_);
    return all;
}

json RunSummary::toJson(int64_t deviceNs) const {
    const std::vector<Counts> all = rows();
    json byProvider = json::object();
    for (const auto& c : all) byProvider[c.provider] = rowJson(c, deviceNs);
    return json{{"deviceNs", deviceNs},
                {"providers", byProvider},
                {"allProviders", totalJson(totalCpuNs(all), deviceNs)}};
}

void RunSummary::print(Output& output, int64_t deviceNs) const {
    const std::vector<Counts> all = rows();
    const int64_t totalNs = totalCpuNs(all);
    const double perHour = msPerDeviceHour(totalNs, deviceNs);
    const double ofBudget = perHour / kBudgetMsPerDeviceHour * 100.0;

    if (output.isJson()) {
        for (const auto& c : all)
            output.writeUnfiltered(deviceNs, c.provider, "summary", rowJson(c, deviceNs));
        output.writeUnfiltered(deviceNs, "all providers", "summary", totalJson(totalNs, deviceNs));
        return;
    }
    std::string table = "\nRun summary after " + formatDeviceTime(deviceNs) +
                        " of device time (CPU: the providers' own, on their calling thread)\n";
    char line[512];
    snprintf(line, sizeof(line), "%-21s %8s %6s %10s %-14s %9s %9s  %s\n", "provider", "samples",
             "pushes", "snapshots", "logs", "CPU ms", "ms/dev h", "notifications");
    table += line;
    for (const auto& c : all) {
        const std::string snapshots =
                std::to_string(c.snapshotsOk) + " / " + std::to_string(c.snapshotsFailed);
        snprintf(line, sizeof(line), "%-21s %8lld %6lld %10s %-14s %9.2f %9.2f  %s\n",
                 c.provider.c_str(), static_cast<long long>(c.samples),
                 static_cast<long long>(c.pushes), snapshots.c_str(), logText(c.logs).c_str(),
                 c.cpuNs / kNsPerMs, msPerDeviceHour(c.cpuNs, deviceNs),
                 notificationText(c.notifications).c_str());
        table += line;
    }
    snprintf(line, sizeof(line),
             "%-21s %8s %6s %10s %-14s %9.2f %9.2f  %.2f %% of the budget of %.0f ms per device "
             "hour (0.01 %% of one core)\n",
             "all providers", "", "", "", "", totalNs / kNsPerMs, perHour, ofBudget,
             kBudgetMsPerDeviceHour);
    table += line;
    output.writeRaw(table);
}

}  // namespace host
