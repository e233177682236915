// Metric families as the exporter hands them around: what the provider tables render from a
// record (ProviderMetrics.h), what the live endpoint serves and what the OpenMetrics writer
// writes. Plain values without timestamps; family names, help texts and label names are static
// strings of the tables, so copies are cheap.
#pragma once

#include <string>
#include <vector>

namespace metrics {

enum class Kind {
    Gauge,
    Counter,  // the name ends in _total
};

struct Label {
    const char* name;
    std::string value;  // valid UTF-8 (labelValue), not escaped
};

struct Series {
    std::vector<Label> labels;  // in the family's label order
    double value;
};

struct Family {
    const char* name;
    const char* help;
    Kind kind;
    std::vector<Series> series;
};

using Families = std::vector<Family>;

// `text` with every byte that is not part of well-formed UTF-8 replaced by U+FFFD, since
// Prometheus refuses a whole scrape over one malformed label value (process and sensor names
// come from the device).
std::string labelValue(const std::string& text);

}  // namespace metrics
