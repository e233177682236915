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

// CPU milliseconds per device hour, or null when the run is too short to say.
json perHour(int64_t cpuNs, int64_t deviceNs, bool shortRun) {
    return shortRun ? json(nullptr) : json(msPerDeviceHour(cpuNs, deviceNs));
}

json rowJson(const RunSummary::Counts& c, int64_t deviceNs, bool shortRun) {
    json logs = json::object();
    for (const auto& [priority, count] : c.logs) logs[std::string(1, priority)] = count;
    json row = {{"samples", c.samples},
                {"notifications", c.notifications},
                {"pushes", c.pushes},
                {"snapshotsOk", c.snapshotsOk},
                {"snapshotsFailed", c.snapshotsFailed},
                {"logs", logs},
                {"calls", c.calls},
                {"cpuMs", c.cpuNs / kNsPerMs},
                {"oneOffCpuMs", c.oneOffCpuNs / kNsPerMs},
                {"steadyCpuMs", (c.cpuNs - c.oneOffCpuNs) / kNsPerMs},
                {"cpuMsPerDeviceHour", perHour(c.cpuNs - c.oneOffCpuNs, deviceNs, shortRun)}};
    if (!c.noRecord.empty()) row["noRecord"] = c.noRecord;
    return row;
}

// The CPU of all providers together: total, one-off, steady, steady per device hour and its share
// of the budget (null for a short run).
json totalJson(int64_t cpuNs, int64_t oneOffNs, int64_t deviceNs, int64_t longestPeriodNs) {
    const bool shortRun = deviceNs < longestPeriodNs;
    const int64_t steadyNs = cpuNs - oneOffNs;
    const double ofBudget = msPerDeviceHour(steadyNs, deviceNs) / kBudgetMsPerDeviceHour * 100.0;
    return json{{"cpuMs", cpuNs / kNsPerMs},
                {"oneOffCpuMs", oneOffNs / kNsPerMs},
                {"steadyCpuMs", steadyNs / kNsPerMs},
                {"cpuMsPerDeviceHour", perHour(steadyNs, deviceNs, shortRun)},
                {"longestPeriodNs", longestPeriodNs},
                {"budgetMsPerDeviceHour", kBudgetMsPerDeviceHour},
                {"percentOfBudget", shortRun ? json(nullptr) : json(ofBudget)}};
}

// "12.34" with two decimals, or "-" when the run is too short to say.
std::string perHourText(int64_t cpuNs, int64_t deviceNs, bool shortRun) {
    if (shortRun) return "-";
    char text[32];
    snprintf(text, sizeof(text), "%.2f", msPerDeviceHour(cpuNs, deviceNs));
    return text;
}

// What the last line of the table says about the budget.
std::string budgetText(double percent, bool shortRun, int64_t longestPeriodNs) {
    char text[192];
    if (shortRun) {
        snprintf(text, sizeof(text),
                 "no share of the budget: the run is shorter than its longest period (%s)",
                 formatDeviceTime(longestPeriodNs).c_str());
    } else {
        snprintf(text, sizeof(text),
                 "%.2f %% of the budget of %.0f ms per device hour (0.01 %% of one core)", percent,
                 kBudgetMsPerDeviceHour);
    }
    return text;
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

void RunSummary::addCall(size_t provider, int64_t cpuNs, bool oneOff) {
    threadsafety::MutexLock lock(mutex_);
    ++counts_[provider].calls;
    counts_[provider].cpuNs += cpuNs;
    if (oneOff) counts_[provider].oneOffCpuNs += cpuNs;
}

void RunSummary::setNoRecord(size_t provider, const std::string& reason) {
    threadsafety::MutexLock lock(mutex_);
    counts_[provider].noRecord = reason;
}

std::vector<RunSummary::Counts> RunSummary::rows() const {
    threadsafety::MutexLock lock(mutex_);
    std::vector<Counts> all = counts_;
    if (!elsewhere_.logs.empty()) all.push_back(elsewhere_);
    return all;
}

json RunSummary::toJson(int64_t deviceNs, int64_t longestPeriodNs) const {
    const std::vector<Counts> all = rows();
    const bool shortRun = deviceNs < longestPeriodNs;
    json byProvider = json::object();
    int64_t cpuNs = 0, oneOffNs = 0;
    for (const auto& c : all) {
        byProvider[c.provider] = rowJson(c, deviceNs, shortRun);
        cpuNs += c.cpuNs;
        oneOffNs += c.oneOffCpuNs;
    }
    return json{{"deviceNs", deviceNs},
                {"providers", byProvider},
                {"allProviders", totalJson(cpuNs, oneOffNs, deviceNs, longestPeriodNs)}};
}

void RunSummary::print(Output& output, int64_t deviceNs, int64_t longestPeriodNs) const {
    const std::vector<Counts> all = rows();
    Counts total;
    for (const auto& c : all) {
        total.cpuNs += c.cpuNs;
        total.oneOffCpuNs += c.oneOffCpuNs;
    }
    const bool shortRun = deviceNs < longestPeriodNs;
    const int64_t steadyNs = total.cpuNs - total.oneOffCpuNs;
    const double ofBudget = msPerDeviceHour(steadyNs, deviceNs) / kBudgetMsPerDeviceHour * 100.0;

    if (output.isJson()) {
        for (const auto& c : all)
            output.writeUnfiltered(c.provider, "summary", rowJson(c, deviceNs, shortRun));
        output.writeUnfiltered("all providers", "summary",
                               totalJson(total.cpuNs, total.oneOffCpuNs, deviceNs, longestPeriodNs));
        return;
    }
    std::string table = "\nRun summary after " + formatDeviceTime(deviceNs) +
                        " of device time (CPU: the providers' own, on their calling thread; once: "
                        "acquire, release, destruction; steady: the rest)\n";
    char line[512];
    snprintf(line, sizeof(line), "%-21s %8s %6s %10s %-14s %9s %9s %9s  %s\n", "provider", "samples",
             "pushes", "snapshots", "logs", "once ms", "steady ms", "ms/dev h", "notifications");
    table += line;
    for (const auto& c : all) {
        const std::string snapshots =
                std::to_string(c.snapshotsOk) + " / " + std::to_string(c.snapshotsFailed);
        snprintf(line, sizeof(line), "%-21s %8lld %6lld %10s %-14s %9.2f %9.2f %9s  %s\n",
                 c.provider.c_str(), static_cast<long long>(c.samples),
                 static_cast<long long>(c.pushes), snapshots.c_str(), logText(c.logs).c_str(),
                 c.oneOffCpuNs / kNsPerMs, (c.cpuNs - c.oneOffCpuNs) / kNsPerMs,
                 perHourText(c.cpuNs - c.oneOffCpuNs, deviceNs, shortRun).c_str(),
                 notificationText(c.notifications).c_str());
        table += line;
    }
    snprintf(line, sizeof(line), "%-21s %8s %6s %10s %-14s %9.2f %9.2f %9s  %s\n", "all providers",
             "", "", "", "", total.oneOffCpuNs / kNsPerMs, steadyNs / kNsPerMs,
             perHourText(steadyNs, deviceNs, shortRun).c_str(),
             budgetText(ofBudget, shortRun, longestPeriodNs).c_str());
    table += line;
    output.writeRaw(table);
}

}  // namespace host
