// vistrel-host: the reference host program. Constructs the library's providers, drives them as
// the device's host service does against the simulated headset, and prints a timeline.
//
//   vistrel-host                      4 hours of simulated device time, readable timeline
//   vistrel-host --simulate 2h --json JSON lines
//   vistrel-host --real 30s           real time
//
// Every run ends with a summary table per provider. Exit status (Options.h lists them for
// --help): 0; 2 for command-line errors (including values the providers do not accept); 128 + the
// signal after SIGINT, SIGTERM or SIGHUP; kWriteErrorStatus after a write error on stdout, the
// JSON lines, the trace, the summary or the OpenMetrics file.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "Headset.h"
#include "Host.h"
#include "HostClock.h"
#include "Options.h"
#include "Output.h"
#include "Providers.h"
#include "StopSignals.h"
#include "SummaryFile.h"
#include "ThreadSafety.h"
#include "TimelineLog.h"
#include "Trace.h"
#include "TriggerReports.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"
#if VISTREL_WITH_EXPORT
#include "HostExport.h"
#endif

namespace {

int usageError(const std::string& message) {
    std::cerr << "vistrel-host: " << message << "\nRun with --help for more information.\n";
    return host::kUsageErrorStatus;
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

// The first write error of a run (the timeline on stdout, the trace, summary or OpenMetrics
// file): one line on stderr, and the run ends with the status kWriteErrorStatus. Thread-safe.
class WriteErrors {
public:
    void report(const std::string& what) EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        if (failed_) return;
        failed_ = true;
        fprintf(stderr, "vistrel-host: %s\n", what.c_str());
        if (host_ != nullptr) host_->requestStop(host::kWriteErrorStatus);
    }
    // Ends `host`'s run on the first error, one already reported included.
    void stop(host::Host& host) EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        host_ = &host;
        if (failed_) host.requestStop(host::kWriteErrorStatus);
    }
    bool failed() EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        return failed_;
    }

private:
    threadsafety::Mutex mutex_;
    bool failed_ GUARDED_BY(mutex_) = false;
    host::Host* host_ GUARDED_BY(mutex_) = nullptr;
};

using TraceTracks = std::vector<std::pair<std::string, std::vector<std::string>>>;

// Each provider's name with the track patterns of its records.
TraceTracks traceTracks(const std::vector<host::HostedProvider>& providers) {
    TraceTracks tracks;
    for (const auto& hosted : providers)
        tracks.emplace_back(hosted.provider->name(), hosted.tracks);
    return tracks;
}

// Opens the trace file and makes it observe every timeline line; null after a usage error.
std::unique_ptr<host::TraceWriter> openTrace(const std::string& path, const TraceTracks& tracks,
                                             host::Output& output, WriteErrors& errors) {
    std::string error;
    auto trace = host::TraceWriter::open(
            path, tracks, [&errors](const std::string& what) { errors.report(what); }, &error);
    if (!trace) {
        usageError(error);
        return nullptr;
    }
    output.observe([writer = trace.get()](const host::Line& line) { writer->add(line); });
    return trace;
}

// Removes the simulated kernel files of a process about to end at once, whose headset cannot
// remove them; tried again while the driving thread may still be adding a file to the tree.
void removeTree(const std::string& directory) {
    if (directory.empty()) return;
    std::error_code error;
    for (int attempt = 0; attempt < 3; ++attempt) {
        std::filesystem::remove_all(directory, error);
        if (!error) return;
    }
}

// Builds the run the configuration describes, runs it and returns the exit status.
int run(const host::RunConfig& config) {
    for (const auto& [name, value] : config.properties) hostplatform::setProperty(name, value);
    if (!config.fsRoot.empty()) hostplatform::setFsRoot(config.fsRoot);

    const bool real = config.timing == host::RunConfig::Timing::Real;
    host::HostClock clock(real ? host::HostClock::Mode::Real : host::HostClock::Mode::Simulated);
    WriteErrors writeErrors;
    host::Output output(
            stdout, config.json, [&clock] { return clock.deviceNs(); }, config.filter);
    output.onWriteError([&writeErrors](const std::string& what) { writeErrors.report(what); });
    host::TriggerReportPrinter triggerReports(output);
    host::StopSignals stopSignals;  // before the headset starts its threads
    sim::Headset headset(config.headset, [&clock] { return clock.deviceNs(); });

    auto providers = host::makeProviders(config.providerOptions, config.providers);
    if (!config.printSamples) {
        for (auto& hosted : providers) hosted.reading = nullptr;
    }
    const TraceTracks tracks = traceTracks(providers);
    // They observe the output: declared before the host, they outlive every line it writes.
    std::unique_ptr<host::TraceWriter> trace;
    std::unique_ptr<host::SummaryFile> summaryFile;
    host::Host host(clock, output, headset, std::move(providers), config.snapshotEveryNs);
#if VISTREL_WITH_EXPORT
    // The endpoint's address and the OpenMetrics file first: when one is refused, nothing else
    // has been made or printed.
    std::string error;
    const auto exporting =
            metrics::HostExport::start(config.exporting, host, config.durationNs, real, &error);
    if (!exporting) {
        std::cerr << "vistrel-host: " << error << "\n";
        return host::kUsageErrorStatus;
    }
#endif
    if (!config.tracePath.empty() &&
        !(trace = openTrace(config.tracePath, tracks, output, writeErrors))) {
        return host::kUsageErrorStatus;
    }
    if (!config.summaryPath.empty()) {
        std::string summaryError;
        if (!(summaryFile = host::SummaryFile::open(config.summaryPath, &summaryError))) {
            return usageError(summaryError);
        }
        summaryFile->follow(output);
    }
    if (config.json) output.writeUnfiltered("host", "run", config.description);
    host::TimelineLog log(output, host.summary(), config.logPriority);
    for (const int64_t at : config.fireThrottlingAtNs) {
        host.callHookAt(at, "ThermalStats", "fireThrottlingNotification");
    }
    writeErrors.stop(host);
    stopSignals.deliverTo([&host](int signal) { host.requestStop(128 + signal); },
                          [&trace, tree = headset.kernelTreeDirectory()](int signal) {
                              // Every timeline line is flushed as it is written: what is left
                              // is the end of the trace, unless a write to it is under way.
                              if (trace) trace->closeIfIdle();
                              removeTree(tree);
                              _exit(128 + signal);
                          });
    const int64_t startNs = clock.deviceNs();
    int status = host.run(config.durationNs);
    stopSignals.finish();
    for (const auto& row : host.summary().rows()) {
        if (row.noRecord.empty()) continue;
        fprintf(stderr, "vistrel-host: %s: no record; %s\n", row.provider.c_str(),
                row.noRecord.c_str());
    }
    if (trace) trace->close();
#if VISTREL_WITH_EXPORT
    if (!exporting->finish(&error)) writeErrors.report(error);
#endif
    std::string summaryError;
    if (summaryFile &&
        !summaryFile->write(config.description, host.summary(), clock.deviceNs() - startNs,
                            host.longestPeriodNs(), &summaryError)) {
        writeErrors.report(summaryError);
    }
    if (status == 0 && writeErrors.failed()) status = host::kWriteErrorStatus;
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    auto parsed = host::parseOptions(argc, argv, environ);
    if (const auto* exit = std::get_if<host::ParseExit>(&parsed)) {
        (exit->status == 0 ? std::cout : std::cerr) << exit->text;
        return exit->status;
    }
    const auto& config = std::get<host::RunConfig>(parsed);
    searchSdkModulesIn(config.sdkDir, argv);
    // A closed pipe and a file-size limit are write errors like any other (EPIPE, EFBIG), not a
    // silent end.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    return run(config);
}
