// The reference host's command line, parsed into a typed run configuration.
//
// parseOptions() is the one place a command line is judged: every usage error (a bad duration,
// an empty value, an unknown provider or name, a property the store rejects, a root that is not a
// directory or holds a special file where the providers read, values a provider does not
// accept...) is raised there, so the wiring in main.cc only builds and runs.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>
#include "ExportOptions.h"

#include "Headset.h"
#include "Output.h"
#include "Providers.h"

namespace host {

// Exit statuses of vistrel-host, besides 0 and 128 + the signal that stopped a run.
inline constexpr int kUsageErrorStatus = 2;
// EX_IOERR: a write error on stdout, the JSON lines, the trace, the summary or the OpenMetrics file.
inline constexpr int kWriteErrorStatus = 74;

struct RunConfig {
    enum class Timing { Simulated, Real };
    Timing timing = Timing::Simulated;
    int64_t durationNs = 0;
    int64_t snapshotEveryNs = 0;
    bool json = false;
    TimelineFilter filter;
    int logPriority = 0;        // lowest liblog priority shown
    std::string tracePath;      // empty: no trace
    std::string summaryPath;    // empty: no summary file
    bool printSamples = false;  // a "sample" line with what each sample read (HostedProvider)
    // The run as given, for the summary file and the first JSON line: "mode", "durationNs",
    // "snapshotEveryNs", "sampler", "properties" (every property set) and "options" (each option
    // on the command line with its values, left out those that only say where output goes:
    // --trace, --summary, --openmetrics, --metrics-listen, --metrics-auth).
    nlohmann::ordered_json description;

    // Provider class names to run, in the host's order; empty runs every provider.
    std::vector<std::string> providers;
    ProviderOptions providerOptions;
    // Device times (ns) at which ThermalStats' fireThrottlingNotification hook is called.
    std::vector<int64_t> fireThrottlingAtNs;

    // System properties to set, in order: the environment's VISTREL_PROP_* first, then --prop.
    // Each was checked against the property store.
    std::vector<std::pair<std::string, std::string>> properties;
    std::string fsRoot;  // --root, else VISTREL_FS_ROOT: an existing directory, or empty for none
    std::string sdkDir;  // absolute path of an existing directory without ':'
    sim::HeadsetConfig headset;
    // The live metrics endpoint and the OpenMetrics file (export/); the families' top N is in
    // providerOptions.metrics.
    metrics::ExportConfig exporting;
};

// How parsing ended when it yields no configuration: the text to print (on stdout when the
// status is 0, as for --help; else on stderr) and the process exit status (2 for usage errors).
struct ParseExit {
    int status;
    std::string text;
};

// Parses `argv` with the environment `envp` (VISTREL_PROP_*, VISTREL_SDK_DIR, VISTREL_FS_ROOT).
std::variant<RunConfig, ParseExit> parseOptions(int argc, const char* const* argv,
                                                const char* const* envp);

}  // namespace host
