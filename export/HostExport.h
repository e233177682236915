// The exporter wired into a reference host run (ExportConfig): the live endpoint serves the
// families the host keeps of each provider's last record and its run summary; the OpenMetrics
// file gets every rendered record, and the summary row of its provider, at its device time.
#pragma once

#include <memory>
#include <string>

#include "ExportOptions.h"
#include "Host.h"
#include "MetricsEndpoint.h"
#include "OpenMetricsWriter.h"

namespace metrics {

class HostExport {
public:
    // Before host.run(): opens the OpenMetrics file, starts the endpoint (printing
    // "vistrel-host: serving metrics at URL" on stderr) and turns on the host's record export,
    // as far as `config` asks. Empty with *error set when the file cannot be written or the
    // address cannot be bound. `runNs` is the run's device time and `realTime` its timing, which
    // place device time 0 when config.startUnixMs is empty. Destroy before `host`.
    static std::unique_ptr<HostExport> start(const ExportConfig& config, host::Host& host,
                                             int64_t runNs, bool realTime, std::string* error);

    // After host.run(): writes the OpenMetrics file (if any); false with *error when that fails.
    bool finish(std::string* error);

private:
    std::unique_ptr<OpenMetricsWriter> file_;
    std::unique_ptr<MetricsEndpoint> endpoint_;
};

}  // namespace metrics
