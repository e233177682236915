#include "OpenMetricsWriter.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

namespace metrics {
namespace {

constexpr int64_t kNsPerMs = 1000000;
constexpr char kTotal[] = "_total";

// Backslash, double quote and newline escaped, as OpenMetrics label values and help texts want.
std::string escaped(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c == '\\' || c == '"') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out;
}

std::string number(double value) {
    if (std::isnan(value)) return "NaN";
    if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
    char text[32];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    return std::string(text, result.ptr);
}

// Seconds since the epoch with the milliseconds, e.g. "1714550400.250".
std::string seconds(int64_t unixMs) {
    char text[32];
    snprintf(text, sizeof(text), "%lld.%03lld", static_cast<long long>(unixMs / 1000),
             static_cast<long long>(unixMs % 1000));
    return text;
}

// The family's name in a `# TYPE` line: a counter's without its `_total`.
std::string familyName(const char* name, Kind kind) {
    const size_t length = strlen(name), suffix = sizeof(kTotal) - 1;
    if (kind == Kind::Counter && length > suffix && strcmp(name + length - suffix, kTotal) == 0) {
        return std::string(name, length - suffix);
    }
    return name;
}

}  // namespace

std::unique_ptr<OpenMetricsWriter> OpenMetricsWriter::open(const std::string& path,
                                                           const std::string& device,
                                                           int64_t startUnixMs, std::string* error) {
    FILE* file = fopen(path.c_str(), "we");
    if (file == nullptr) {
        *error = "cannot write '" + path + "': " + strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<OpenMetricsWriter>(
            new OpenMetricsWriter(file, path, escaped(labelValue(device)), startUnixMs));
}

OpenMetricsWriter::OpenMetricsWriter(FILE* file, std::string path, std::string device,
                                     int64_t startUnixMs)
    : file_(file), path_(std::move(path)), device_(std::move(device)), startUnixMs_(startUnixMs) {}

OpenMetricsWriter::~OpenMetricsWriter() {
    if (file_ != nullptr) fclose(file_);
}

std::string OpenMetricsWriter::labelText(const std::vector<Label>& labels) const {
    std::string text;
    if (!device_.empty()) text += "device=\"" + device_ + "\"";
    for (const Label& label : labels) {
        if (!text.empty()) text += ',';
        // The series' own `device` label (a cooling device) yields to the headset's, renamed as
        // Prometheus renames it on a scrape whose target carries `device`.
        text += device_.empty() || strcmp(label.name, "device") != 0 ? label.name
                                                                     : "exported_device";
        text += "=\"" + escaped(label.value) + "\"";
    }
    return text.empty() ? text : "{" + text + "}";
}

void OpenMetricsWriter::add(int64_t deviceNs, const Families& families) {
    const int64_t unixMs = startUnixMs_ + deviceNs / kNsPerMs;
    for (const Family& family : families) {
        const auto [found, added] = familyIndex_.emplace(family.name, families_.size());
        if (added) families_.push_back({family.name, family.help, family.kind, {}});
        FamilyPoints& points = families_[found->second];
        for (const Series& series : family.series) {
            std::vector<Point>& line = points.series[labelText(series.labels)];
            if (!line.empty() && line.back().unixMs == unixMs) {
                line.back().value = series.value;
            } else {
                line.push_back({unixMs, series.value});
            }
        }
    }
}

void OpenMetricsWriter::writeFamily(const FamilyPoints& family) {
    const std::string name = familyName(family.name, family.kind);
    fprintf(file_, "# TYPE %s %s\n# HELP %s %s\n", name.c_str(),
            family.kind == Kind::Counter ? "counter" : "gauge", name.c_str(),
            escaped(family.help).c_str());
    for (const auto& [labels, points] : family.series) {
        for (const Point& point : points) {
            fprintf(file_, "%s%s %s %s\n", family.name, labels.c_str(), number(point.value).c_str(),
                    seconds(point.unixMs).c_str());
        }
    }
}

bool OpenMetricsWriter::finish(std::string* error) {
    for (const FamilyPoints& family : families_) writeFamily(family);
    fputs("# EOF\n", file_);
    const bool written = ferror(file_) == 0;
    const bool closed = fclose(file_) == 0;
    file_ = nullptr;
    if (written && closed) return true;
    *error = "cannot write '" + path_ + "': " + strerror(errno);
    return false;
}

}  // namespace metrics
