#include "SysfsText.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <limits>

#include <android/log.h>

#include "hostplatform/FsRoot.h"

namespace sim {
namespace sysfs {
namespace {

constexpr size_t kMaxFileBytes = 4096;  // a sysfs attribute is at most one page

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

std::optional<std::string> parseName(std::string_view text) {
    text = text.substr(0, text.find('\n'));
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    if (text.empty()) return std::nullopt;
    return std::string(text);
}

std::optional<int64_t> parseInteger(std::string_view text) {
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    uint64_t magnitude = 0;
    const uint64_t limit = negative ? uint64_t{1} << 63 : std::numeric_limits<int64_t>::max();
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        const uint64_t digit = static_cast<uint64_t>(c - '0');
        if (magnitude > (limit - digit) / 10) return std::nullopt;
        magnitude = magnitude * 10 + digit;
    }
    return negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
}

std::optional<uint64_t> entryNumber(std::string_view name, std::string_view prefix) {
    if (name.substr(0, prefix.size()) != prefix) return std::nullopt;
    const std::string_view digits = name.substr(prefix.size());
    if (digits.empty() || digits.size() > 18) return std::nullopt;
    uint64_t number = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
        number = number * 10 + static_cast<uint64_t>(c - '0');
    }
    return number;
}

std::optional<std::string> readSmallFile(const std::string& devicePath) {
    const int fd =
            open((hostplatform::fsRoot() + devicePath).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return std::nullopt;
    char buffer[kMaxFileBytes];
    const ssize_t n = read(fd, buffer, sizeof(buffer));
    close(fd);
    if (n < 0) return std::nullopt;
    return std::string(buffer, static_cast<size_t>(n));
}

std::string quotedValue(std::string_view text) {
    constexpr size_t kShown = 32;
    std::string shown = "'";
    for (const char c : text.substr(0, kShown)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '\\' && c != '\'') {
            shown += c;
        } else {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\x%02x", byte);
            shown += escaped;
        }
    }
    return shown + (text.size() > kShown ? "'..." : "'");
}

void UnusableFileLog::report(const std::string& scope, std::map<std::string, std::string> unusable) {
    threadsafety::MutexLock lock(mutex_);
    const auto& before = last_[scope];
    for (const auto& [path, why] : unusable) {
        const auto known = before.find(path);
        if (known != before.end() && known->second == why) continue;
        __android_log_print(ANDROID_LOG_WARN, logTag_, "Ignoring %s: %s", path.c_str(), why.c_str());
    }
    last_[scope] = std::move(unusable);
}

}  // namespace sysfs
}  // namespace sim
