// vistrel-host: the reference host program. Constructs the library's providers, drives them as
// the device's host service does against the simulated headset, and prints a timeline.
//
//   vistrel-host                      4 hours of simulated device time, readable timeline
//   vistrel-host --simulate 2h --json JSON lines
//   vistrel-host --real 30s           real time
//
// Every run ends with a summary table per provider. Command-line errors (including values the
// providers do not accept) print a message and exit with status 2.
#include <android/log.h>

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>

#include <pthread.h>
#include <signal.h>

#include <thread>

#include <CLI/CLI.hpp>

#include "Headset.h"
#include "Host.h"
#include "HostClock.h"
#include "Output.h"
#include "Providers.h"
#include "TextValues.h"
#include "TimelineLog.h"
#include "Trace.h"
#include "TriggerReports.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"

namespace {

constexpr const char kDefaultSimulate[] = "4h";
constexpr const char kPropertyEnvPrefix[] = "VISTREL_PROP_";
constexpr const char kDefaultInteractiveScript[] = "40m on, 20m off";
constexpr const char kDefaultFocusScript[] =
        "10m com.halden.shell; 25m com.northpeak.starfall; 10m com.halden.media; "
        "5m com.halden.systemui.dialog,com.halden.media; "
        "5m com.northpeak.starfall,com.halden.passthrough; 5m com.halden.shell";
constexpr const char kSdkDirEnv[] = "VISTREL_SDK_DIR";

struct Options {
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
    // Thermal HAL of the simulated headset, and scripted throttling notifications.
    std::string thermal = "sim";
    std::string thermalScenario;
    std::vector<std::string> fireThrottling;
    std::string battery = "sim";
    // What the timeline shows, and the trace file.
    std::vector<std::string> hide;
    std::string only;
    bool fold = false;
    bool noFold = false;
    std::string trace;
};

int usageError(const std::string& message) {
    std::cerr << "vistrel-host: " << message << "\nRun with --help for more information.\n";
    return 2;
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

std::optional<std::string> applyProperty(const std::string& assignment) {
    const auto eq = assignment.find('=');
    if (eq == std::string::npos) return "property '" + assignment + "' is not NAME=VALUE";
    const std::string name = assignment.substr(0, eq), value = assignment.substr(eq + 1);
    if (auto problem = hostplatform::checkProperty(name, value)) return problem;
    hostplatform::setProperty(name, value);
    return std::nullopt;
}

// The SDK modules are found by bare name through the loader's library search path, which glibc
// reads only at start-up: the host re-executes itself once with `dir` first on LD_LIBRARY_PATH.
// Returns only when the path already starts with `dir`, or when re-executing failed.
void searchSdkModulesIn(const std::string& dir, char** argv) {
    const char* current = getenv("LD_LIBRARY_PATH");
    const std::string path = current == nullptr ? "" : current;
    if (path == dir || path.rfind(dir + ":", 0) == 0) return;
    setenv("LD_LIBRARY_PATH", (path.empty() ? dir : dir + ":" + path).c_str(), 1);
    execv("/proc/self/exe", argv);
    std::cerr << "vistrel-host: cannot re-execute with the SDK module directory " << dir << ": "
              << strerror(errno) << "\n";
}

std::optional<std::string> absoluteDirectory(const std::string& dir) {
    char resolved[PATH_MAX];
    struct stat info {};
    if (realpath(dir.c_str(), resolved) == nullptr || stat(resolved, &info) != 0 ||
        !S_ISDIR(info.st_mode)) {
        return std::nullopt;
    }
    return std::string(resolved);
}

std::vector<std::string> splitList(const std::string& text) {
    std::vector<std::string> items;
    std::stringstream in(text);
    for (std::string item; std::getline(in, item, ',');) {
        if (!item.empty()) items.push_back(item);
    }
    return items;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    CLI::App app{
            "Reference host for libvistrelprovider: drives every provider against a "
            "simulated headset and prints a timeline."};
    auto* simulate = app.add_option("--simulate", o.simulate,
                                    "Run this much simulated device time as fast as possible "
                                    "(default 4h), e.g. 90s, 15m, 2h, 1h30m");
    auto* real = app.add_option("--real", o.real, "Run in real time for this long instead");
    simulate->excludes(real);
    app.add_flag("--json", o.json, "Print JSON lines instead of a readable timeline");
    app.add_option("--snapshot-every", o.snapshotEvery, "Snapshot period of the host (default 1h)");
    app.add_option("--prop", o.properties,
                   "Set a system property NAME=VALUE (repeatable); environment variables " +
                           std::string(kPropertyEnvPrefix) + "NAME do the same");
    app.add_option("--root", o.root, "Resolve every path the library opens under this directory");
    app.add_option("--providers", o.providers, "Comma-separated provider class names (default all)");
    app.add_option("--interactive", o.interactive,
                   "Cyclic interactive-state script of the simulated headset (default \"" +
                           std::string(kDefaultInteractiveScript) + "\")");
    app.add_option("--don-bits", o.donBits, "SystemStateStats bits per state, 0 to 32 (default 1)");
    app.add_option("--don-states", o.donStates, "SystemStateStats states per batch (default 60)");
    app.add_option("--don-period", o.donPeriod, "SystemStateStats sampling period (default 1m)");
    app.add_option("--log-level", o.logLevel,
                   "Lowest library log priority shown: verbose, debug (default, shows the SDK "
                   "loader), info, warn, error, silent");
    app.add_option("--data-total", o.dataTotal,
                   "Size of the simulated headset's /data, e.g. 64G (default 128G)");
    app.add_option("--data-available", o.dataAvailable,
                   "Space available on /data, e.g. 3G (default 71G); below 10 % of the size "
                   "StorageStats raises LowStorage");
    app.add_option("--thermal", o.thermal,
                   "Thermal HAL: sim (the simulated sensors, default) or sysfs (the "
                   "/sys/class/thermal tree under --root, or the workstation's own)")
            ->check(CLI::IsMember({"sim", "sysfs"}));
    app.add_option("--thermal-scenario", o.thermalScenario,
                   "Scenario of the simulated thermal HAL: default, hot-room or stuck-fan");
    app.add_option("--fire-throttling", o.fireThrottling,
                   "Call ThermalStats' fireThrottlingNotification at this device time, e.g. 30m "
                   "(repeatable)");
    app.add_option("--sdk-dir", o.sdkDir,
                   "Directory of the SDK modules libplatkit.halden.so and libinstsamp.halden.so "
                   "(default: $" +
                           std::string(kSdkDirEnv) + ", else the build's own modules)");
    app.add_option("--focus", o.focus,
                   "Cyclic focus script of the simulated headset: \"<duration> <app>[,<app>...]\" "
                   "phases (top first, or none) separated by ';' (default \"" +
                           std::string(kDefaultFocusScript) + "\")");
    app.add_option("--sampler", o.sampler,
                   "What the simulated instruction sampler serves: simulated (headset-like "
                   "threads; default with --simulate) or live (every thread of this machine; "
                   "default with --real)");
    app.add_option("--battery", o.battery,
                   "Health HAL: sim (the simulated battery, default) or sysfs (the "
                   "/sys/class/power_supply tree under --root, or the workstation's own)")
            ->check(CLI::IsMember({"sim", "sysfs"}));
    app.add_option("--hide", o.hide,
                   "Leave out of the timeline the lines whose source, kind or name is NAME, e.g. "
                   "HealthInfo, log or ThermalStats (repeatable, or comma-separated)")
            ->delimiter(',');
    app.add_option("--only", o.only,
                   "Show only the timeline lines of these comma-separated providers (and of "
                   "\"host\" for host events); every provider still runs");
    app.add_flag("--fold", o.fold,
                 "Fold a notification repeating its provider's previous one into a count "
                 "(the default in the readable timeline; with --json only when asked)")
            ->excludes(app.add_flag("--no-fold", o.noFold, "Print every notification"));
    app.add_option("--trace", o.trace,
                   "Also write the run to FILE in the Trace Event Format (Perfetto UI, "
                   "chrome://tracing)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help
        return usageError(e.what());
    }

    const bool realTime = !o.real.empty();
    const std::string span =
            realTime ? o.real : (o.simulate.empty() ? kDefaultSimulate : o.simulate);
    const auto duration = host::parseDuration(span);
    if (!duration) return usageError("bad duration '" + span + "'");
    const auto snapshotEvery = host::parseDuration(o.snapshotEvery);
    if (!snapshotEvery) return usageError("bad duration '" + o.snapshotEvery + "'");
    const auto donPeriod = host::parseDuration(o.donPeriod);
    if (!donPeriod || *donPeriod < 1000000) return usageError("bad duration '" + o.donPeriod + "'");
    if (o.donBits < 0 || o.donBits > 32) {
        return usageError("--don-bits must be 0 to 32 (bits per don state in a 32-bit word), not " +
                          std::to_string(o.donBits));
    }
    if (o.donStates < 1 || o.donStates > INT32_MAX) {
        return usageError("--don-states must be 1 to 2147483647 (states per batch), not " +
                          std::to_string(o.donStates));
    }
    const auto priority = logPriority(o.logLevel);
    if (!priority) return usageError("bad log level '" + o.logLevel + "'");
    std::string scriptError;
    const auto script = host::parseInteractiveScript(o.interactive, &scriptError);
    if (!script) return usageError(scriptError);
    const auto focus = host::parseFocusScript(o.focus, &scriptError);
    if (!focus) return usageError(scriptError);
    if (o.sampler.empty()) o.sampler = realTime ? "live" : "simulated";
    if (o.sampler != "simulated" && o.sampler != "live") {
        return usageError("--sampler must be simulated or live, not '" + o.sampler + "'");
    }

    if (o.sdkDir.empty()) {
        const char* fromEnv = getenv(kSdkDirEnv);
        o.sdkDir = fromEnv != nullptr && *fromEnv != '\0' ? fromEnv : VISTREL_DEFAULT_SDK_DIR;
    }
    const auto sdkDir = absoluteDirectory(o.sdkDir);
    if (!sdkDir || sdkDir->find(':') != std::string::npos) {
        return usageError("SDK module directory '" + o.sdkDir + "' is not a usable directory");
    }
    searchSdkModulesIn(*sdkDir, argv);

    // The simulated configuration reports foreground applications unless told otherwise.
    hostplatform::setProperty("enable_fg_apps_cpu_events", "true");

    for (char** env = environ; *env != nullptr; ++env) {
        if (strncmp(*env, kPropertyEnvPrefix, strlen(kPropertyEnvPrefix)) != 0) continue;
        if (auto problem = applyProperty(*env + strlen(kPropertyEnvPrefix)))
            return usageError(*problem);
    }
    for (const auto& assignment : o.properties) {
        if (auto problem = applyProperty(assignment)) return usageError(*problem);
    }

    const auto& known = host::providerNames();
    const auto names = splitList(o.providers);
    for (const auto& name : names) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            return usageError("unknown provider '" + name + "'");
        }
    }
    host::TimelineFilter filter;
    for (const auto& name : splitList(o.only)) {
        if (name != "host" && std::find(known.begin(), known.end(), name) == known.end()) {
            return usageError("unknown provider '" + name + "' in --only");
        }
        if (name != "host" && !names.empty() &&
            std::find(names.begin(), names.end(), name) == names.end()) {
            return usageError("'" + name + "' in --only does not run: it is not in --providers");
        }
        filter.only.insert(name);
    }
    filter.hide.insert(o.hide.begin(), o.hide.end());
    filter.fold = o.fold || (!o.json && !o.noFold);
    if (!o.root.empty()) {
        struct stat info {};
        if (stat(o.root.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
            return usageError("--root '" + o.root + "' is not a directory");
        }
        hostplatform::setFsRoot(o.root);
    }

    host::HostClock clock(realTime ? host::HostClock::Mode::Real : host::HostClock::Mode::Simulated);
    host::Output output(stdout, o.json, filter);
    host::TriggerReportPrinter triggerReports(output, clock);

    sim::HeadsetConfig config;
    config.interactive = *script;
    config.focus = *focus;
    config.sampler =
            o.sampler == "live" ? sim::sdk::SamplerMode::Live : sim::sdk::SamplerMode::Simulated;
    for (const auto& [text, figure] : {std::pair{&o.dataTotal, &config.data.totalBytes},
                                       std::pair{&o.dataAvailable, &config.data.availableBytes}}) {
        if (text->empty()) continue;
        const auto bytes = host::parseByteCount(*text);
        if (!bytes) return usageError("bad byte count '" + *text + "'");
        *figure = *bytes;
    }
    if (config.data.totalBytes <= 0) return usageError("--data-total must be more than 0");
    if (config.data.availableBytes > config.data.totalBytes) {
        return usageError("--data-available must not exceed --data-total");
    }
    if (o.battery == "sysfs") config.batteryBackend = sim::HeadsetConfig::BatteryBackend::Sysfs;
    if (o.thermal == "sysfs") {
        if (!o.thermalScenario.empty()) return usageError("--thermal-scenario needs --thermal sim");
        config.thermalBackend = sim::HeadsetConfig::ThermalBackend::Sysfs;
    } else if (!o.thermalScenario.empty()) {
        const auto scenario = sim::ThermalScript::named(o.thermalScenario);
        if (!scenario) return usageError("unknown thermal scenario '" + o.thermalScenario + "'");
        config.thermal = *scenario;
    }
    std::vector<int64_t> fireThrottlingAt;
    for (const auto& text : o.fireThrottling) {
        const auto at = host::parseDuration(text);
        if (!at) return usageError("bad duration '" + text + "'");
        fireThrottlingAt.push_back(*at);
    }
    // Ctrl-C or SIGTERM ends the run at its next step, with the providers released, the summary
    // printed and the trace closed. The signals are blocked in every thread (the headset's
    // included, so block them before it starts) and taken by one thread that asks the host to
    // stop, since a signal handler could not.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    sim::Headset headset(config, [&clock] { return clock.deviceNs(); });

    host::ProviderOptions providerOptions;
    providerOptions.donBitsPerState = static_cast<uint32_t>(o.donBits);
    providerOptions.donStatesPerAggregate = static_cast<int32_t>(o.donStates);
    providerOptions.donSamplePeriodMs = *donPeriod / 1000000;

    auto providers = host::makeProviders(providerOptions, names);
    std::unique_ptr<host::TraceWriter> trace;
    if (!o.trace.empty()) {
        std::vector<std::pair<std::string, std::vector<std::string>>> tracks;
        for (const auto& hosted : providers)
            tracks.emplace_back(hosted.provider->name(), hosted.tracks);
        std::string error;
        trace = host::TraceWriter::open(o.trace, tracks, &error);
        if (!trace) return usageError(error);
        output.observe([writer = trace.get()](const host::Line& line) { writer->add(line); });
    }
    host::Host host(clock, output, headset, std::move(providers), *snapshotEvery);
    host::TimelineLog log(output, clock, host.summary(), *priority);
    for (const int64_t at : fireThrottlingAt) {
        if (!host.callHookAt(at, "ThermalStats", "fireThrottlingNotification")) {
            return usageError("--fire-throttling needs ThermalStats among the providers");
        }
    }
    std::thread stopper([&stopSignals, &host] {
        int signal = 0;
        if (sigwait(&stopSignals, &signal) == 0) host.requestStop(signal);
    });
    const int status = host.run(*duration);
    pthread_kill(stopper.native_handle(), SIGTERM);  // the run is over: a late stop is harmless
    stopper.join();
    return status;
}
