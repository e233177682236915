// Writes a run's metric families as OpenMetrics text with a timestamp on every sample, for
// `promtool tsdb create-blocks-from openmetrics FILE DIR`: device time 0 is `startUnixMs`, and
// every family's samples are written together, series by series in time order, after its
// `# TYPE` and `# HELP` lines (a counter's family is named without `_total`, its samples with
// it); the file ends with `# EOF`. Samples are buffered in memory until finish() (about 40 bytes
// each). Not thread-safe: the host's driving thread adds and finishes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "MetricFamilies.h"

namespace metrics {

class OpenMetricsWriter {
public:
    // Opens (truncates) `path` at once, so that an unwritable path fails before the run: nullptr
    // with *error set. A non-empty `device` labels every series device="<device>"; a series'
    // own `device` label becomes `exported_device`, as on a scrape whose target has `device`.
    static std::unique_ptr<OpenMetricsWriter> open(const std::string& path,
                                                   const std::string& device, int64_t startUnixMs,
                                                   std::string* error);
    ~OpenMetricsWriter();
    OpenMetricsWriter(const OpenMetricsWriter&) = delete;
    OpenMetricsWriter& operator=(const OpenMetricsWriter&) = delete;

    // The families as read at device time `deviceNs` (not before the previous call's). A series
    // added twice at one time keeps the later value.
    void add(int64_t deviceNs, const Families& families);
    // Writes everything added and "# EOF", then closes the file; false with *error on a write
    // error. Once only.
    bool finish(std::string* error);

private:
    struct Point {
        int64_t unixMs;
        double value;
    };
    struct FamilyPoints {
        const char* name;
        const char* help;
        Kind kind;
        std::map<std::string, std::vector<Point>> series;  // by label text: {a="b",...}
    };

    OpenMetricsWriter(FILE* file, std::string path, std::string device, int64_t startUnixMs);
    std::string labelText(const std::vector<Label>& labels) const;
    void writeFamily(const FamilyPoints& family);

    FILE* file_;
    std::string path_;
    std::string device_;  // escaped
    int64_t startUnixMs_;
    std::vector<FamilyPoints> families_;  // in the order first added
    std::unordered_map<std::string, size_t> familyIndex_;
};

}  // namespace metrics
