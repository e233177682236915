#include "HostExport.h"

#include <chrono>
#include <cstdio>

#include "RunMetrics.h"

namespace metrics {
namespace {

constexpr int64_t kNsPerMs = 1000000;

int64_t nowUnixMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
}

}  // namespace

std::unique_ptr<HostExport> HostExport::start(const ExportConfig& config, host::Host& host,
                                              int64_t runNs, bool realTime, std::string* error) {
    auto exporting = std::make_unique<HostExport>();
    if (!config.openMetricsPath.empty()) {
        const int64_t startUnixMs =
                config.startUnixMs.value_or(nowUnixMs() - (realTime ? 0 : runNs / kNsPerMs));
        exporting->file_ =
                OpenMetricsWriter::open(config.openMetricsPath, config.device, startUnixMs, error);
        if (!exporting->file_) {
            *error = "--openmetrics: " + *error;
            return nullptr;
        }
    }
    if (config.listen) {
        exporting->endpoint_ = MetricsEndpoint::start(
                *config.listen, config.credentials, [&host] { return hostMetrics(host); }, error);
        if (!exporting->endpoint_) {
            *error = "--metrics-listen: " + *error;
            return nullptr;
        }
        fprintf(stderr, "vistrel-host: serving metrics at %s\n",
                exporting->endpoint_->url().c_str());
    }
    host::Host::RenderedRecord toFile;
    if (OpenMetricsWriter* file = exporting->file_.get()) {
        toFile = [file, &host](size_t provider, int64_t deviceNs, const Families& families) {
            file->add(deviceNs, families);
            file->add(deviceNs, runMetrics({host.summary().rows()[provider]}));
        };
    }
    if (exporting->file_ || exporting->endpoint_) host.exportRecords(std::move(toFile));
    return exporting;
}

bool HostExport::finish(std::string* error) {
    return !file_ || file_->finish(error);
}

}  // namespace metrics
