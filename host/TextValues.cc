#include "TextValues.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <sstream>

namespace host {
namespace {

std::optional<int64_t> unitNs(const std::string& unit) {
    if (unit == "ms") return INT64_C(1000000);
    if (unit == "s") return INT64_C(1000000000);
    if (unit == "m") return INT64_C(60000000000);
    if (unit == "h") return INT64_C(3600000000000);
    if (unit == "d") return INT64_C(86400000000000);
    return std::nullopt;
}

std::string trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && isspace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && isspace(static_cast<unsigned char>(s[e - 1]))) --e;
    return s.substr(b, e - b);
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

std::optional<int64_t> parseByteCount(const std::string& text) {
    if (text.empty() || !isdigit(static_cast<unsigned char>(text[0]))) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const unsigned long long count = strtoull(text.c_str(), &end, 10);
    if (errno != 0) return std::nullopt;
    const std::string suffix = end;
    int shift = 0;
    if (suffix == "K")
        shift = 10;
    else if (suffix == "M")
        shift = 20;
    else if (suffix == "G")
        shift = 30;
    else if (suffix == "T")
        shift = 40;
    else if (!suffix.empty())
        return std::nullopt;
    if (count > (static_cast<unsigned long long>(INT64_MAX) >> shift)) return std::nullopt;
    return static_cast<int64_t>(count << shift);
}

std::optional<sim::InteractiveScript> parseInteractiveScript(const std::string& text,
                                                             std::string* error) {
    auto fail = [&](const std::string& why) -> std::optional<sim::InteractiveScript> {
        if (error) *error = why;
        return std::nullopt;
    };
    std::vector<sim::InteractiveScript::Phase> phases;
    std::stringstream in(text);
    std::string item;
    int64_t cycle = 0;
    while (std::getline(in, item, ',')) {
        std::stringstream words(trim(item));
        std::string length, state, extra;
        words >> length >> state;
        if (words >> extra || state.empty()) {
            return fail("phase '" + trim(item) + "' is not '<duration> on|off'");
        }
        const auto ns = parseDuration(length);
        if (!ns) return fail("bad duration '" + length + "' in interactive script");
        if (state != "on" && state != "off") {
            return fail("phase state must be on or off, not '" + state + "'");
        }
        if (cycle > INT64_MAX - *ns) return fail("interactive script is too long");
        cycle += *ns;
        phases.push_back({*ns, state == "on"});
    }
    if (phases.empty()) return fail("interactive script has no phases");
    return sim::InteractiveScript(std::move(phases));
}

std::optional<sim::sdk::FocusScript> parseFocusScript(const std::string& text, std::string* error) {
    auto fail = [&](const std::string& why) -> std::optional<sim::sdk::FocusScript> {
        if (error) *error = why;
        return std::nullopt;
    };
    std::vector<sim::sdk::FocusScript::Phase> phases;
    std::stringstream in(text);
    std::string item;
    int64_t cycle = 0;
    while (std::getline(in, item, ';')) {
        item = trim(item);
        const size_t space = item.find_first_of(" \t");
        if (space == std::string::npos) {
            return fail("phase '" + item + "' is not '<duration> <app>[,<app>...]|none'");
        }
        const auto ns = parseDuration(item.substr(0, space));
        if (!ns) return fail("bad duration '" + item.substr(0, space) + "' in focus script");
        if (cycle > INT64_MAX - *ns) return fail("focus script is too long");
        cycle += *ns;
        std::vector<std::string> apps;
        const std::string list = trim(item.substr(space));
        if (list != "none") {
            std::stringstream names(list);
            for (std::string app; std::getline(names, app, ',');) {
                app = trim(app);
                if (app.empty() || app.find_first_of(" \t") != std::string::npos) {
                    return fail("bad application list '" + list + "' in focus script");
                }
                apps.push_back(app);
            }
        }
        phases.push_back({*ns, std::move(apps)});
    }
    if (phases.empty()) return fail("focus script has no phases");
    return sim::sdk::FocusScript(std::move(phases));
}

}  // namespace host
