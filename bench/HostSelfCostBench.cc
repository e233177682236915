// The providers' own CPU time per hour of device time in the reference host's default
// configuration (every provider against the simulated headset and its own /proc and /sys),
// against the budget of a device health library: all providers together below 0.01 % of one
// core, 360 ms per device hour. Each run is four simulated hours; the host measures each
// provider's calls on the thread CPU clock, less the simulated HALs and its own printing
// (host/ProviderCall.h). The baseline beside it is the whole run on the same thread (host,
// simulated headset and its kernel files, providers).
//
// Two conditions: the simulated headset as the host runs it, and the same headset with its
// process table padded to 700 processes by dormant services and kernel workers, the count of a
// real headset, which is what the process memory scan costs with. The program puts the build's
// simulated SDK modules on the library search path and re-executes itself, as the host does, and
// enables the foreground-application reports as the host does.
#include <android/log.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "Headset.h"
#include "Host.h"
#include "TimelineLog.h"
#include "TriggerReports.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"

namespace {

constexpr int64_t kHourNs = INT64_C(3600000000000);
constexpr int64_t kRunHours = 4;

struct Costs {
    std::map<std::string, std::vector<double>> providerMsPerHour;  // by provider, per run
    std::vector<double> totalMsPerHour;                            // all providers, per run
    std::vector<double> runMsPerHour;                              // the whole run, per run
};

std::map<std::string, Costs> g_costs;  // by condition
std::vector<std::string> g_order;      // providers in the host's order

// Runs the host once on a simulated headset of at least `processes` processes; returns how many
// its tree held at the start.
int runHostOnce(Costs& costs, size_t processes) {
    FILE* sink = fopen("/dev/null", "w");
    host::HostClock clock(host::HostClock::Mode::Simulated);
    host::Output output(sink, false, [&clock] { return clock.deviceNs(); });
    host::TriggerReportPrinter reports(output);
    sim::HeadsetConfig config;
    config.kernelFiles = sim::HeadsetConfig::KernelFiles::Simulated;
    config.minimumProcesses = processes;
    sim::Headset headset(config, [&clock] { return clock.deviceNs(); });
    const int treeProcesses = benchsupport::countProcesses(hostplatform::fsRoot() + "/proc");
    host::Host host(clock, output, headset, host::makeProviders({}, {}), kHourNs);
    host::TimelineLog log(output, host.summary(), ANDROID_LOG_INFO);

    const double start = benchsupport::threadCpuSeconds();
    host.run(kRunHours * kHourNs);
    const double whole = benchsupport::threadCpuSeconds() - start;

    double total = 0;
    g_order.clear();
    for (const auto& row : host.summary().rows()) {
        if (row.calls == 0) continue;  // the row of log lines made on other threads
        const double ms = host::msPerDeviceHour(row.cpuNs, kRunHours * kHourNs);
        costs.providerMsPerHour[row.provider].push_back(ms);
        g_order.push_back(row.provider);
        total += ms;
    }
    costs.totalMsPerHour.push_back(total);
    costs.runMsPerHour.push_back(whole * 1e3 / kRunHours);
    fclose(sink);
    return treeProcesses;
}

void selfCost(benchmark::State& state, const char* condition, size_t processes) {
    int treeProcesses = 0;
    for (auto _ : state) treeProcesses = runHostOnce(g_costs[condition], processes);
    state.counters["processes"] = treeProcesses;
}

std::string spread(const std::vector<double>& values, double scale, const char* format) {
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    char text[64];
    snprintf(text, sizeof(text), format, *low * scale, *high * scale);
    return text;
}

void printCosts(const std::string& condition, const Costs& costs) {
    const double budget = host::kBudgetMsPerDeviceHour;
    printf("\n%s: CPU ms per device hour (median of %zu runs of %lld h), ratio to the budget of "
           "%.0f ms\n",
           condition.c_str(), costs.totalMsPerHour.size(), static_cast<long long>(kRunHours),
           budget);
    printf("%-22s %10s %-17s %9s\n", "provider", "ms/dev h", "min-max", "of budget");
    for (const auto& provider : g_order) {
        const auto found = costs.providerMsPerHour.find(provider);
        if (found == costs.providerMsPerHour.end()) continue;
        const double ms = benchsupport::median(found->second);
        printf("%-22s %10.3f %-17s %9.4f\n", provider.c_str(), ms,
               spread(found->second, 1, "%.3f-%.3f").c_str(), ms / budget);
    }
    const double total = benchsupport::median(costs.totalMsPerHour);
    printf("%-22s %10.3f %-17s %9.4f   %s\n", "all providers", total,
           spread(costs.totalMsPerHour, 1, "%.3f-%.3f").c_str(), total / budget,
           total < budget ? "within the budget" : "OVER THE BUDGET");
    const double run = benchsupport::median(costs.runMsPerHour);
    printf("%-22s %10.3f %-17s %9s   providers' share of the run: %.2f\n", "whole host run", run,
           spread(costs.runMsPerHour, 1, "%.3f-%.3f").c_str(), "-", total / run);
}

}  // namespace

int main(int argc, char** argv) {
    benchsupport::searchModulesIn(VISTREL_DEFAULT_SDK_DIR, argv);
    hostplatform::setProperty("enable_fg_apps_cpu_events", "true");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    constexpr size_t kHeadsetProcesses = 700;
    benchmark::RegisterBenchmark("SelfCost/simulated headset", selfCost, "simulated headset",
                                 size_t{0})
            ->Iterations(3)
            ->Repetitions(5)
            ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("SelfCost/700 processes", selfCost, "700 processes",
                                 kHeadsetProcesses)
            ->Iterations(3)
            ->Repetitions(5)
            ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    for (const char* condition : {"simulated headset", "700 processes"}) {
        if (g_costs.count(condition)) printCosts(condition, g_costs[condition]);
    }
    benchmark::Shutdown();
    return 0;
}
