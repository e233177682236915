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

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's days_from_civil).
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2;
    const int64_t era = year / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool isLeapYear(int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int64_t daysInMonth(int64_t year, int64_t month) {
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Reads exactly `digits` decimal digits at text[at] into *value.
bool readDigits(const std::string& text, size_t& at, size_t digits, int64_t* value) {
    if (at + digits > text.size()) return false;
    *value = 0;
    for (size_t i = 0; i < digits; ++i, ++at) {
        if (text[at] < '0' || text[at] > '9') return false;
        *value = *value * 10 + (text[at] - '0');
    }
    return true;
}

bool expect(const std::string& text, size_t& at, const char* oneOf) {
    if (at >= text.size() || strchr(oneOf, text[at]) == nullptr || text[at] == '\0') return false;
    ++at;
    return true;
}

}  // namespace

std::optional<int64_t> parseRfc3339(const std::string& text) {
    size_t at = 0;
    int64_t year, month, day, hour, minute, second;
    if (!readDigits(text, at, 4, &year) || !expect(text, at, "-") ||
        !readDigits(text, at, 2, &month) || !expect(text, at, "-") ||
        !readDigits(text, at, 2, &day) || !expect(text, at, "Tt") ||
        !readDigits(text, at, 2, &hour) || !expect(text, at, ":") ||
        !readDigits(text, at, 2, &minute) || !expect(text, at, ":") ||
        !readDigits(text, at, 2, &second)) {
        return std::nullopt;
    }
    int64_t ms = 0;
    if (at < text.size() && text[at] == '.') {
        ++at;
        int64_t scale = 100;
        const size_t first = at;
        for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10) {
            ms += (text[at] - '0') * scale;  // digits past the millisecond add nothing
        }
        if (at == first) return std::nullopt;
    }
    int64_t offsetMinutes = 0;
    if (at < text.size() && (text[at] == 'Z' || text[at] == 'z')) {
        ++at;
    } else {
        const bool east = at < text.size() && text[at] == '+';
        int64_t offsetHours, offsetMins;
        if (!expect(text, at, "+-") || !readDigits(text, at, 2, &offsetHours) ||
            !expect(text, at, ":") || !readDigits(text, at, 2, &offsetMins) || offsetHours > 23 ||
            offsetMins > 59) {
            return std::nullopt;
        }
        offsetMinutes = (east ? 1 : -1) * (offsetHours * 60 + offsetMins);
    }
    if (at != text.size() || year < 1970 || month < 1 || month > 12 || day < 1 ||
        day > daysInMonth(year, month) || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const int64_t unixSeconds = daysFromCivil(year, month, day) * 86400 + hour * 3600 +
                                minute * 60 + second - offsetMinutes * 60;
    if (unixSeconds < 0) return std::nullopt;
    return unixSeconds * 1000 + ms;
}

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
        text += label.name;
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
