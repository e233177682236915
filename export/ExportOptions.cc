#include "ExportOptions.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace metrics {
namespace {

constexpr char kLoopback[] = "127.0.0.1";
constexpr size_t kMaxCredentialsBytes = 4096;

std::optional<uint16_t> parsePort(const std::string& text) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const int port = std::stoi(text);
    return port <= 65535 ? std::optional<uint16_t>(static_cast<uint16_t>(port)) : std::nullopt;
}

bool isAddress(const std::string& host) {
    unsigned char binary[16];
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), binary) == 1;
    }
    return inet_pton(AF_INET, host.c_str(), binary) == 1;
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

std::optional<ListenAddress> parseListenAddress(const std::string& text, std::string* error) {
    const size_t colon = text.rfind(':');
    const std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::string portText = colon == std::string::npos ? text : text.substr(colon + 1);
    const auto port = parsePort(portText);
    if (!port || (!host.empty() && !isAddress(host))) {
        *error = "bad listen address '" + text +
                 "': expected [HOST:]PORT, HOST an IPv4 address or a bracketed IPv6 address, PORT "
                 "0 to 65535";
        return std::nullopt;
    }
    return ListenAddress{host.empty() ? kLoopback : host, *port};
}

std::optional<Credentials> readCredentials(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    std::string text(kMaxCredentialsBytes + 1, '\0');
    if (in) in.read(&text[0], static_cast<std::streamsize>(text.size()));
    if (!in && !in.eof()) {
        *error = "cannot read '" + path + "': " + strerror(errno);
        return std::nullopt;
    }
    text.resize(static_cast<size_t>(in.gcount()));
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
    const size_t colon = text.find(':');
    const bool printable = std::all_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && c != 0x7f;
    });
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size() || !printable ||
        text.size() > kMaxCredentialsBytes - 2) {
        *error = "'" + path + "' must hold one line user:password";
        return std::nullopt;
    }
    return Credentials{text.substr(0, colon), text.substr(colon + 1)};
}

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

}  // namespace metrics
