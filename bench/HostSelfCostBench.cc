// The providers' own CPU time per hour of device time in the reference host's default
// configuration (every provider, the simulated headset, this machine's /proc and /sys), against
// the budget of a device health library: all providers together below 0.01 % of one core, 360 ms
// per device hour. Each run is four simulated hours; the host measures each provider's calls on
// the thread CPU clock, less the simulated HALs and its own printing (host/ProviderCall.h). The
// baseline beside it is the whole run on the same thread (host, simulated headset, providers).
//
// Two conditions: this machine's processes as they are, and about 700 processes (idle children
// are spawned), the count of a headset, which is what the process memory scan costs with. The
// program puts the build's simulated SDK modules on the library search path and re-executes
// itself, as the host does, and enables the foreground-application reports as the host does.
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

void runHostOnce(Costs& costs) {
    FILE* sink = fopen("/dev/null", "w");
    host::HostClock clock(host::HostClock::Mode::Simulated);
    host::Output output(sink, false, [&clock] { return clock.deviceNs(); });
    host::TriggerReportPrinter reports(output);
    sim::Headset headset(sim::HeadsetConfig{}, [&clock] { return clock.deviceNs(); });
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
}

void selfCost(benchmark::State& state, const char* condition, int processes) {
    benchsupport::IdleProcesses idle(processes);
    for (auto _ : state) runHostOnce(g_costs[condition]);
    state.counters["processes"] = benchsupport::countProcesses();
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
    benchmark::RegisterBenchmark("SelfCost/this machine", selfCost, "this machine", 0)
            ->Iterations(3)
            ->Repetitions(5)
            ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("SelfCost/700 processes", selfCost, "700 processes", 700)
            ->Iterations(3)
            ->Repetitions(5)
            ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    for (const char* condition : {"this machine", "700 processes"}) {
        if (g_costs.count(condition)) printCosts(condition, g_costs[condition]);
    }
    benchmark::Shutdown();
    return 0;
}
