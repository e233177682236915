#include "Duration.h"

#include <cctype>
#include <cstdio>
#include <limits>

namespace sim {
namespace {

std::optional<int64_t> unitNs(const std::string& unit) {
    if (unit == "ms") return INT64_C(1000000);
    if (unit == "s") return INT64_C(1000000000);
    if (unit == "m") return INT64_C(60000000000);
    if (unit == "h") return INT64_C(3600000000000);
    if (unit == "d") return INT64_C(86400000000000);
    return std::nullopt;
}

}  // namespace

std::optional<int64_t> parseDuration(const std::string& text) {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    int64_t total = 0;
    size_t i = 0;
    if (text.empty()) return std::nullopt;
    while (i < text.size()) {
        if (!isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
        int64_t count = 0;
        for (; i < text.size() && isdigit(static_cast<unsigned char>(text[i])); ++i) {
            const int digit = text[i] - '0';
            if (count > (kMax - digit) / 10) return std::nullopt;
            count = count * 10 + digit;
        }
        const size_t unitStart = i;
        while (i < text.size() && isalpha(static_cast<unsigned char>(text[i]))) ++i;
        const auto unit = unitNs(text.substr(unitStart, i - unitStart));
        if (!unit || count > kMax / *unit) return std::nullopt;
        if (total > kMax - count * *unit) return std::nullopt;
        total += count * *unit;
    }
    if (total <= 0) return std::nullopt;
    return total;
}

std::string formatDeviceTime(int64_t ns) {
    const bool negative = ns < 0;
    const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(ns) : static_cast<uint64_t>(ns);
    const uint64_t ms = magnitude / 1000000;
    char text[48];
    snprintf(text, sizeof(text), "%s%llu:%02llu:%02llu.%03llu", negative ? "-" : "",
             static_cast<unsigned long long>(ms / 3600000),
             static_cast<unsigned long long>(ms / 60000 % 60),
             static_cast<unsigned long long>(ms / 1000 % 60),
             static_cast<unsigned long long>(ms % 1000));
    return text;
}

}  // namespace sim
