#include "Options.h"

#include <android/log.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sstream>

#include <CLI/CLI.hpp>

#include "RootFiles.h"
#include "TextValues.h"
#include "TimelineLog.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"

namespace host {
namespace {

constexpr const char kDefaultSimulate[] = "4h";
constexpr const char kPropertyEnvPrefix[] = "VISTREL_PROP_";
constexpr const char kDefaultInteractiveScript[] = "40m on, 20m off";
constexpr const char kDefaultFocusScript[] =
        "10m com.halden.shell; 25m com.northpeak.starfall; 10m com.halden.media; "
        "5m com.halden.systemui.dialog,com.halden.media; "
        "5m com.northpeak.starfall,com.halden.passthrough; 5m com.halden.shell";
constexpr const char kSdkDirEnv[] = "VISTREL_SDK_DIR";

// The command line as typed, before any of it is judged.
struct Arguments {
    std::string simulate;
    std::string real;
    bool json = false;
    std::string snapshotEvery = "1h";
    std::vector<std::string> properties;
    std::string root;
    std::string providers;
    std::string interactive = kDefaultInteractiveScript;
    int64_t donBits = 1;  // wide, so that out-of-range values get the range message
    int64_t donStates = 60;
    std::string donPeriod = "1m";
    std::string logLevel = "debug";
    std::string sdkDir;
    std::string sampler;
    std::string focus = kDefaultFocusScript;
    std::string dataTotal;
    std::string dataAvailable;
    std::string thermal = "sim";
    std::string thermalScenario;
    std::vector<std::string> fireThrottling;
    std::string battery = "sim";
    std::vector<std::string> hide;
    std::string only;
    bool fold = false;
    bool noFold = false;
    std::string trace;
    // Given (even empty) or not.
    std::optional<std::string> metricsListen;
    std::optional<std::string> metricsAuth;
    int64_t metricsTop = metrics::RenderOptions{}.top;  // wide, so that any value gets its message
    std::optional<std::string> openMetrics;
    std::optional<std::string> startTime;
    std::optional<std::string> device;
    std::string summary;
    bool samples = false;
    std::string seed = "0";
    std::string kernelFiles;  // empty: as the run's mode, root and HALs choose
};

// What is wrong with a command line, or nothing.
using Problem = std::optional<std::string>;

// The end of --help: the duration grammar and the exit statuses.
std::string helpFooter() {
    return "Durations are sums of <integer><unit> terms, the units ms, s, m, h and d: 250ms, "
           "90s, 15m, 1h30m, 2d.\n\n"
           "Exit status:\n"
           "  0       the run ended on its own (or --help, --version)\n"
           "  " +
           std::to_string(kUsageErrorStatus) +
           "       a command-line error: nothing ran\n"
           "  " +
           std::to_string(kWriteErrorStatus) +
           "      a write error on stdout, the JSON lines, the trace, the summary or the "
           "OpenMetrics file\n"
           "          (a full disk, a closed pipe, a file-size limit)\n"
           "  128+N   stopped by signal N: SIGINT, SIGTERM or SIGHUP end the run in order, a "
           "second one at once\n";
}

// Refuses an empty value (of each item, for lists).
const CLI::Validator kNonEmpty(
        [](const std::string& value) { return value.empty() ? "the value is empty" : ""; }, "", "");

// An option taking a value, which must not be empty.
template <typename T>
CLI::Option* addOption(CLI::App& app, const std::string& name, T& into, const std::string& help) {
    return app.add_option(name, into, help)->check(kNonEmpty);
}

void declareRunOptions(CLI::App& app, Arguments& a) {
    auto* simulate = addOption(app, "--simulate", a.simulate,
                               "Run this much simulated device time as fast as possible "
                               "(default 4h), e.g. 90s, 15m, 2h, 1h30m, 1d");
    auto* real = addOption(app, "--real", a.real, "Run in real time for this long instead");
    simulate->excludes(real);
    app.add_flag("--json", a.json, "Print JSON lines instead of a readable timeline");
    addOption(app, "--snapshot-every", a.snapshotEvery, "Snapshot period of the host (default 1h)");
    addOption(app, "--prop", a.properties,
              "Set a system property NAME=VALUE (repeatable); environment variables " +
                      std::string(kPropertyEnvPrefix) + "NAME do the same");
    addOption(app, "--root", a.root,
              "Resolve every path the library opens under this directory, a captured tree "
              "(default: $VISTREL_FS_ROOT, else none)");
    addOption(app, "--providers", a.providers, "Comma-separated provider class names (default all)");
    addOption(app, "--log-level", a.logLevel,
              "Lowest library log priority shown: verbose, debug (default, shows the SDK loader), "
              "info, warn, error, silent");
    addOption(app, "--sdk-dir", a.sdkDir,
              "Directory of the SDK modules libplatkit.halden.so and libinstsamp.halden.so "
              "(default: $" +
                      std::string(kSdkDirEnv) + ", else the build's own modules)");
    addOption(app, "--trace", a.trace,
              "Also write the run to FILE in the Trace Event Format (Perfetto UI, "
              "chrome://tracing)");
}

void declareHeadsetOptions(CLI::App& app, Arguments& a) {
    addOption(app, "--interactive", a.interactive,
              "Cyclic interactive-state script of the simulated headset (default \"" +
                      std::string(kDefaultInteractiveScript) + "\")");
    addOption(app, "--don-bits", a.donBits, "SystemStateStats bits per state, 0 to 32 (default 1)");
    addOption(app, "--don-states", a.donStates, "SystemStateStats states per batch (default 60)");
    addOption(app, "--don-period", a.donPeriod, "SystemStateStats sampling period (default 1m)");
    addOption(app, "--data-total", a.dataTotal,
              "Size of the simulated headset's /data, e.g. 64G (default 128G)");
    addOption(app, "--data-available", a.dataAvailable,
              "Space available on /data, e.g. 3G (default 71G); below 10 % of the size "
              "StorageStats raises LowStorage");
    addOption(app, "--thermal", a.thermal,
              "Thermal HAL: sim (the simulated sensors, default) or sysfs (the "
              "/sys/class/thermal tree under --root, or the workstation's own)")
            ->check(CLI::IsMember({"sim", "sysfs"}));
    addOption(app, "--thermal-scenario", a.thermalScenario,
              "Scenario of the simulated thermal HAL: default, hot-room or stuck-fan");
    addOption(app, "--fire-throttling", a.fireThrottling,
              "Call ThermalStats' fireThrottlingNotification at this device time, e.g. 30m "
              "(repeatable; within the run)");
    addOption(app, "--focus", a.focus,
              "Cyclic focus script of the simulated headset: \"<duration> <app>[,<app>...]\" "
              "phases (top first, or none) separated by ';' (default \"" +
                      std::string(kDefaultFocusScript) + "\")");
    addOption(app, "--sampler", a.sampler,
              "What the simulated instruction sampler serves: simulated (the threads of the "
              "simulated headset's processes; default with --simulate) or live (every thread of "
              "this machine; default with --real)");
    addOption(app, "--battery", a.battery,
              "Health HAL: sim (the simulated battery, default) or sysfs (the "
              "/sys/class/power_supply tree under --root, or the workstation's own)")
            ->check(CLI::IsMember({"sim", "sysfs"}));
    addOption(app, "--kernel-files", a.kernelFiles,
              "The /proc and /sys the providers read: simulated (the simulated headset's own, "
              "kept in a temporary tree; default with --simulate) or real (those under --root, "
              "else this machine's; default with --real, --root or a sysfs HAL)")
            ->check(CLI::IsMember({"simulated", "real"}));
    addOption(app, "--seed", a.seed,
              "Seed of the simulated headset, a non-negative integer: each varies the battery's "
              "start and drain, the thermal scenario, the focus script's phase and the "
              "processes, the same on every run (default 0: as configured)");
}

void declareTimelineOptions(CLI::App& app, Arguments& a) {
    addOption(app, "--hide", a.hide,
              "Leave out of the timeline the lines whose source, kind or name is NAME, e.g. "
              "HealthInfo, log or ThermalStats (repeatable, or comma-separated)");
    addOption(app, "--only", a.only,
              "Show only the timeline lines of these comma-separated providers (and of "
              "\"host\" for host events); every provider still runs");
    app.add_flag("--fold", a.fold,
                 "Fold a notification repeating its provider's previous one into a count "
                 "(the default in the readable timeline; with --json only when asked)")
            ->excludes(app.add_flag("--no-fold", a.noFold, "Print every notification"));
    addOption(app, "--metrics-listen", a.metricsListen,
              "Serve the latest records at http://HOST:PORT/metrics for Prometheus: "
              "HOST:PORT, or PORT alone for 127.0.0.1 (0: a free port)");
    addOption(app, "--metrics-auth", a.metricsAuth,
              "Ask scrapes for HTTP basic authentication with the user:password line of FILE");
    addOption(app, "--metrics-top", a.metricsTop,
              "Series kept per process, thread, feature or application family (default " +
                      std::to_string(a.metricsTop) + ")");
    addOption(app, "--openmetrics", a.openMetrics,
              "Also write every snapshot's metrics to FILE as OpenMetrics with timestamps, "
              "for promtool tsdb create-blocks-from openmetrics");
    addOption(app, "--start-time", a.startTime,
              "Time of device time 0 in the --openmetrics file, RFC 3339 (default: the run "
              "ends now)");
    addOption(app, "--device", a.device, "Label every series of the --openmetrics file device=NAME");
    addOption(app, "--summary", a.summary,
              "Also write the run summary and every provider's last record to FILE as one "
              "JSON document (scripts/compare-runs compares two)");
    app.add_flag("--samples", a.samples,
                 "Also print what each sample read: battery current and voltage, every "
                 "temperature and cooling device, system memory (\"sample\" lines)");
}

void declareOptions(CLI::App& app, Arguments& a) {
    declareRunOptions(app, a);
    declareHeadsetOptions(app, a);
    declareTimelineOptions(app, a);
    app.set_version_flag("--version", "vistrel-host " VISTREL_VERSION
                                      " (libvistrelprovider " VISTREL_VERSION ")");
    app.footer(helpFooter());
}

std::optional<int> logPriority(const std::string& level) {
    static const std::pair<const char*, int> kLevels[] = {
            {"verbose", ANDROID_LOG_VERBOSE}, {"debug", ANDROID_LOG_DEBUG},
            {"info", ANDROID_LOG_INFO},       {"warn", ANDROID_LOG_WARN},
            {"error", ANDROID_LOG_ERROR},     {"silent", ANDROID_LOG_SILENT},
    };
    for (const auto& [name, priority] : kLevels) {
        if (level == name) return priority;
    }
    return std::nullopt;
}

// The items of a comma-separated list; a problem when one is empty.
Problem splitList(const std::string& option, const std::string& text,
                  std::vector<std::string>* items) {
    size_t start = 0;
    for (size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1) {
        items->push_back(text.substr(start, comma - start));
    }
    items->push_back(text.substr(start));
    for (const auto& item : *items) {
        if (item.empty()) return "empty name in " + option + " '" + text + "'";
    }
    return std::nullopt;
}

// What a --hide name may be: a source (provider, log tag, "host"), a kind of line, or the name
// of a notification, push, hook or host event.
bool isTimelineName(const std::string& name) {
    for (const auto* names : {&providerNames(), &providerLineNames(), &lineKinds(),
                              &sim::hostEventNames(), &logTags()}) {
        if (std::find(names->begin(), names->end(), name) != names->end()) return true;
    }
    return name == "host" || name == "TriggerService";
}

bool isDirectory(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::optional<std::string> absoluteDirectory(const std::string& dir) {
    char resolved[PATH_MAX];
    if (realpath(dir.c_str(), resolved) == nullptr || !isDirectory(resolved)) return std::nullopt;
    return std::string(resolved);
}

bool isKnownProvider(const std::string& name) {
    const auto& known = providerNames();
    return std::find(known.begin(), known.end(), name) != known.end();
}

Problem parseDurationInto(const std::string& text, int64_t* ns) {
    const auto parsed = parseDuration(text);
    if (!parsed) return "bad duration '" + text + "'";
    *ns = *parsed;
    return std::nullopt;
}

Problem checkRun(const Arguments& a, RunConfig& c) {
    c.timing = a.real.empty() ? RunConfig::Timing::Simulated : RunConfig::Timing::Real;
    const std::string& span =
            !a.real.empty() ? a.real : (a.simulate.empty() ? kDefaultSimulate : a.simulate);
    if (auto problem = parseDurationInto(span, &c.durationNs)) return problem;
    if (auto problem = parseDurationInto(a.snapshotEvery, &c.snapshotEveryNs)) return problem;
    c.json = a.json;
    c.tracePath = a.trace;
    c.summaryPath = a.summary;
    c.printSamples = a.samples;
    const auto priority = logPriority(a.logLevel);
    if (!priority) return "bad log level '" + a.logLevel + "'";
    c.logPriority = *priority;
    return std::nullopt;
}

Problem checkDonOptions(const Arguments& a, RunConfig& c) {
    const auto donPeriod = parseDuration(a.donPeriod);
    if (!donPeriod || *donPeriod < 1000000) return "bad duration '" + a.donPeriod + "'";
    if (a.donBits < 0 || a.donBits > 32) {
        return "--don-bits must be 0 to 32 (bits per don state in a 32-bit word), not " +
               std::to_string(a.donBits);
    }
    if (a.donStates < 1 || a.donStates > INT32_MAX) {
        return "--don-states must be 1 to 2147483647 (states per batch), not " +
               std::to_string(a.donStates);
    }
    c.providerOptions.donBitsPerState = static_cast<uint32_t>(a.donBits);
    c.providerOptions.donStatesPerAggregate = static_cast<int32_t>(a.donStates);
    c.providerOptions.donSamplePeriodMs = *donPeriod / 1000000;
    return std::nullopt;
}

// Whether the configuration runs the named provider.
bool runs(const RunConfig& c, const std::string& name) {
    return c.providers.empty() ||
           std::find(c.providers.begin(), c.providers.end(), name) != c.providers.end();
}

Problem checkProviders(const Arguments& a, RunConfig& c) {
    if (!a.providers.empty()) {
        if (auto problem = splitList("--providers", a.providers, &c.providers)) return problem;
    }
    for (const auto& name : c.providers) {
        if (!isKnownProvider(name)) return "unknown provider '" + name + "'";
    }
    for (const auto& text : a.fireThrottling) {
        if (auto problem = parseDurationInto(text, &c.fireThrottlingAtNs.emplace_back())) {
            return problem;
        }
        if (c.fireThrottlingAtNs.back() > c.durationNs) {
            return "--fire-throttling " + text + " is past the end of the run (" +
                   formatDeviceTime(c.durationNs) + ")";
        }
    }
    if (!c.fireThrottlingAtNs.empty() && !runs(c, "ThermalStats")) {
        return "--fire-throttling needs ThermalStats among the providers";
    }
    return std::nullopt;
}

Problem checkTimeline(const Arguments& a, RunConfig& c) {
    std::vector<std::string> only, hide;
    if (!a.only.empty()) {
        if (auto problem = splitList("--only", a.only, &only)) return problem;
    }
    for (const auto& name : only) {
        if (name != "host" && !isKnownProvider(name)) {
            return "unknown provider '" + name + "' in --only";
        }
        if (name != "host" && !runs(c, name)) {
            return "'" + name + "' in --only does not run: it is not in --providers";
        }
    }
    for (const auto& list : a.hide) {
        if (auto problem = splitList("--hide", list, &hide)) return problem;
    }
    for (const auto& name : hide) {
        if (!isTimelineName(name)) {
            return "unknown name '" + name +
                   "' in --hide: not a provider, log tag, kind of line, notification or event";
        }
    }
    c.filter.only.insert(only.begin(), only.end());
    c.filter.hide.insert(hide.begin(), hide.end());
    c.filter.fold = a.fold || (!a.json && !a.noFold);
    return std::nullopt;
}

Problem addProperty(const std::string& assignment, RunConfig& c) {
    const auto eq = assignment.find('=');
    if (eq == std::string::npos) return "property '" + assignment + "' is not NAME=VALUE";
    std::string name = assignment.substr(0, eq), value = assignment.substr(eq + 1);
    if (auto problem = hostplatform::checkProperty(name, value)) return problem;
    c.properties.emplace_back(std::move(name), std::move(value));
    return std::nullopt;
}

// The value of the environment variable `name`, or empty when it is not set.
std::string environmentValue(const char* const* envp, const char* name) {
    const size_t length = strlen(name);
    for (const char* const* env = envp; env != nullptr && *env != nullptr; ++env) {
        if (strncmp(*env, name, length) == 0 && (*env)[length] == '=') return *env + length + 1;
    }
    return "";
}

Problem checkProperties(const Arguments& a, const char* const* envp, RunConfig& c) {
    // The simulated configuration reports foreground applications unless told otherwise.
    c.properties.emplace_back("enable_fg_apps_cpu_events", "true");
    for (const char* const* env = envp; env != nullptr && *env != nullptr; ++env) {
        if (strncmp(*env, kPropertyEnvPrefix, strlen(kPropertyEnvPrefix)) == 0) {
            if (auto problem = addProperty(*env + strlen(kPropertyEnvPrefix), c)) return problem;
        }
    }
    for (const auto& assignment : a.properties) {
        if (auto problem = addProperty(assignment, c)) return problem;
    }
    return std::nullopt;
}

// The file-system root: --root, else VISTREL_FS_ROOT (which the platform library has already
// taken when it loaded).
Problem checkRoot(const Arguments& a, const char* const* envp, RunConfig& c) {
    const std::string fromEnvironment = environmentValue(envp, hostplatform::kFsRootEnv);
    const std::string origin =
            a.root.empty() ? std::string(hostplatform::kFsRootEnv) : std::string("--root");
    c.fsRoot = a.root.empty() ? fromEnvironment : a.root;
    if (c.fsRoot.empty()) return std::nullopt;
    if (!isDirectory(c.fsRoot)) return origin + " '" + c.fsRoot + "' is not a directory";
    if (const auto special = findSpecialFile(c.fsRoot)) {
        return origin + " '" + c.fsRoot + "': " + *special +
               ", where the providers read a kernel file";
    }
    return std::nullopt;
}

Problem checkEnvironment(const Arguments& a, const char* const* envp, RunConfig& c) {
    if (auto problem = checkProperties(a, envp, c)) return problem;
    std::string sdkDir = a.sdkDir.empty() ? environmentValue(envp, kSdkDirEnv) : a.sdkDir;
    if (sdkDir.empty()) sdkDir = VISTREL_DEFAULT_SDK_DIR;
    const auto absolute = absoluteDirectory(sdkDir);
    if (!absolute || absolute->find(':') != std::string::npos) {
        return "SDK module directory '" + sdkDir + "' is not a usable directory";
    }
    c.sdkDir = *absolute;
    return checkRoot(a, envp, c);
}

// Decimal digits that fit 64 bits.
std::optional<uint64_t> parseSeed(const std::string& text) {
    if (text.empty() || text.size() > 20 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    errno = 0;
    const unsigned long long value = strtoull(text.c_str(), nullptr, 10);
    if (errno == ERANGE) return std::nullopt;
    return static_cast<uint64_t>(value);
}

// The simulated headset's own kernel files by default in a simulated run; the real ones under
// a root, with the sysfs HALs (which read real sysfs files) and in real time.
Problem checkKernelFiles(const Arguments& a, const RunConfig& c, sim::HeadsetConfig& h) {
    const bool sysfsHal = a.battery == "sysfs" || a.thermal == "sysfs";
    const bool simulatedByDefault =
            c.timing == RunConfig::Timing::Simulated && c.fsRoot.empty() && !sysfsHal;
    if (a.kernelFiles == "real" || (a.kernelFiles.empty() && !simulatedByDefault)) {
        return std::nullopt;
    }
    if (!c.fsRoot.empty()) {
        return "--kernel-files simulated replaces the file-system root: not with --root or " +
               std::string(hostplatform::kFsRootEnv);
    }
    if (sysfsHal)
        return "--battery sysfs and --thermal sysfs read real sysfs files, not simulated ones";
    h.kernelFiles = sim::HeadsetConfig::KernelFiles::Simulated;
    return std::nullopt;
}

Problem checkHeadset(const Arguments& a, RunConfig& c) {
    sim::HeadsetConfig& h = c.headset;
    std::string scriptError;
    const auto interactive = parseInteractiveScript(a.interactive, &scriptError);
    if (!interactive) return scriptError;
    h.interactive = *interactive;
    const auto focus = parseFocusScript(a.focus, &scriptError);
    if (!focus) return scriptError;
    h.focus = *focus;

    const std::string sampler = !a.sampler.empty()                    ? a.sampler
                                : c.timing == RunConfig::Timing::Real ? "live"
                                                                      : "simulated";
    if (sampler != "simulated" && sampler != "live") {
        return "--sampler must be simulated or live, not '" + sampler + "'";
    }
    h.sampler = sampler == "live" ? sim::sdk::SamplerMode::Live : sim::sdk::SamplerMode::Simulated;

    for (const auto& [text, figure] : {std::pair{&a.dataTotal, &h.data.totalBytes},
                                       std::pair{&a.dataAvailable, &h.data.availableBytes}}) {
        if (text->empty()) continue;
        const auto bytes = parseByteCount(*text);
        if (!bytes) return "bad byte count '" + *text + "'";
        *figure = *bytes;
    }
    if (h.data.totalBytes <= 0) return "--data-total must be more than 0";
    if (h.data.availableBytes > h.data.totalBytes) {
        return "--data-available must not exceed --data-total";
    }

    if (a.battery == "sysfs") h.batteryBackend = sim::HeadsetConfig::BatteryBackend::Sysfs;
    if (a.thermal == "sysfs") {
        if (!a.thermalScenario.empty()) return "--thermal-scenario needs --thermal sim";
        h.thermalBackend = sim::HeadsetConfig::ThermalBackend::Sysfs;
    } else if (!a.thermalScenario.empty()) {
        const auto scenario = sim::ThermalScript::named(a.thermalScenario);
        if (!scenario) return "unknown thermal scenario '" + a.thermalScenario + "'";
        h.thermal = *scenario;
    }
    const auto seed = parseSeed(a.seed);
    if (!seed) return "--seed must be a non-negative integer, not '" + a.seed + "'";
    h.seed = *seed;
    return checkKernelFiles(a, c, h);
}

Problem checkExport(const Arguments& a, RunConfig& c) {
    metrics::ExportConfig& e = c.exporting;
    if (a.metricsTop < 1 || a.metricsTop > INT32_MAX) {
        return "--metrics-top must be 1 to 2147483647 (series per family), not " +
               std::to_string(a.metricsTop);
    }
    c.providerOptions.metrics.top = static_cast<int>(a.metricsTop);
    if ((a.metricsListen || a.openMetrics) && !VISTREL_WITH_EXPORT) {
        return "this vistrel-host was built without the metrics exporter (VISTREL_BUILD_EXPORT)";
    }
    std::string error;
    if (a.metricsListen && !(e.listen = metrics::parseListenAddress(*a.metricsListen, &error))) {
        return "--metrics-listen: " + error;
    }
    if (a.metricsAuth) {
        if (!e.listen) return "--metrics-auth needs --metrics-listen";
        if (!(e.credentials = metrics::readCredentials(*a.metricsAuth, &error))) {
            return "--metrics-auth: " + error;
        }
    }
    if ((a.startTime || a.device) && !a.openMetrics) {
        return "--start-time and --device describe the --openmetrics file: give one";
    }
    e.openMetricsPath = a.openMetrics.value_or("");
    if (a.openMetrics && a.openMetrics->empty()) return "--openmetrics needs a file name";
    if (a.startTime && !(e.startUnixMs = metrics::parseRfc3339(*a.startTime))) {
        return "--start-time must be an RFC 3339 date-time from 1970 on, e.g. "
               "2024-05-01T08:00:00Z, not '" +
               *a.startTime + "'";
    }
    e.device = a.device.value_or("");
    if (a.device && e.device.empty()) return "--device needs a name";
    return std::nullopt;
}

// Options that only say where output goes (files, the metrics endpoint's address and its
// credentials), left out of the run's description.
bool isOutputPath(const std::string& option) {
    static const char* const kOutputs[] = {"--summary", "--trace", "--openmetrics",
                                           "--metrics-listen", "--metrics-auth"};
    return std::find(std::begin(kOutputs), std::end(kOutputs), option) != std::end(kOutputs);
}

nlohmann::ordered_json describeRun(const CLI::App& app, const RunConfig& c) {
    using json = nlohmann::ordered_json;
    json given = json::object();
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();
        if (option->count() == 0 || isOutputPath(name)) continue;
        const auto& values = option->results();
        given[name] = values.size() == 1 ? json(values.front()) : json(values);
    }
    json properties = json::object();
    for (const auto& [name, value] : c.properties) properties[name] = value;
    const bool live = c.headset.sampler == sim::sdk::SamplerMode::Live;
    return json{{"mode", c.timing == RunConfig::Timing::Real ? "real" : "simulated"},
                {"durationNs", c.durationNs},
                {"snapshotEveryNs", c.snapshotEveryNs},
                {"sampler", live ? "live" : "simulated"},
                {"properties", properties},
                {"options", given}};
}

ParseExit usageExit(const std::string& message) {
    return {kUsageErrorStatus,
            "vistrel-host: " + message + "\nRun with --help for more information.\n"};
}

// An option given as "--name=" with nothing after '=' (which the parser would take as "--name"
// followed by the next argument as its value).
Problem emptyInlineValue(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--") break;
        if (argument.rfind("--", 0) == 0 && argument.find('=') == argument.size() - 1) {
            return argument.substr(0, argument.size() - 1) + ": the value is empty";
        }
    }
    return std::nullopt;
}

}  // namespace

std::variant<RunConfig, ParseExit> parseOptions(int argc, const char* const* argv,
                                                const char* const* envp) {
    Arguments a;
    CLI::App app{
            "Reference host for libvistrelprovider: drives every provider against a "
            "simulated headset and prints a timeline."};
    declareOptions(app, a);
    if (const Problem empty = emptyInlineValue(argc, argv)) return usageExit(*empty);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() != 0) return usageExit(e.what());
        std::ostringstream out, err;  // --help
        const int status = app.exit(e, out, err);
        return ParseExit{status, out.str() + err.str()};
    }
    RunConfig c;
    Problem problem = checkRun(a, c);
    if (!problem) problem = checkDonOptions(a, c);
    if (!problem) problem = checkProviders(a, c);
    if (!problem) problem = checkTimeline(a, c);
    if (!problem) problem = checkEnvironment(a, envp, c);
    if (!problem) problem = checkHeadset(a, c);
    if (!problem) problem = checkExport(a, c);
    if (problem) return usageExit(*problem);
    c.description = describeRun(app, c);
    return c;
}

}  // namespace host
