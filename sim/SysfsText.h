// Reading and parsing of sysfs attribute text, shared by the simulated headset's sysfs-backed
// HALs (thermal, power supply). An attribute is one short line such as "48300\n" or "Charging\n";
// its bytes come from files of any origin (a workstation, a captured tree), so the parsers accept
// anything and say "no value" for what they cannot read.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "ThreadSafety.h"

namespace sim {
namespace sysfs {

// The log tags of the sysfs-backed HALs.
inline constexpr char kHealthLogTag[] = "SysfsHealth";
inline constexpr char kThermalLogTag[] = "SysfsThermal";

// The first line without trailing blanks; empty when that leaves nothing.
std::optional<std::string> parseName(std::string_view text);
// A decimal integer with an optional '-' and trailing blanks or newline; empty otherwise, or
// when it does not fit 64 bits.
std::optional<int64_t> parseInteger(std::string_view text);

// The number of a directory entry named `prefix` followed by decimal digits ("thermal_zone12"
// with prefix "thermal_zone": 12); empty for any other name.
std::optional<uint64_t> entryNumber(std::string_view name, std::string_view prefix);

// The text of a small file at a device path under the file-system root (its first 4096 bytes,
// one page, the most a sysfs attribute holds), or empty when it cannot be read. Non-blocking, so
// a FIFO in a captured tree cannot hang the reader.
std::optional<std::string> readSmallFile(const std::string& devicePath);

// A value's text as a log line shows it: quoted, at most 32 bytes, bytes outside printable ASCII
// as \xNN.
std::string quotedValue(std::string_view text);

// Says once, not on every read, that a file of a reading could not be used (junk, empty, out of
// range): one warning per file and change of what is wrong with it, "Ignoring PATH: WHY".
// Thread-safe.
class UnusableFileLog {
public:
    explicit UnusableFileLog(const char* logTag) : logTag_(logTag) {}

    // The files of one kind of reading (`scope`) found unusable in the latest one, by device
    // path, with why. Logs those that are new or changed since the previous reading of `scope`;
    // a file left out is usable again, and is logged anew when it next is not.
    void report(const std::string& scope, std::map<std::string, std::string> unusable)
            EXCLUDES(mutex_);

private:
    const char* const logTag_;
    threadsafety::Mutex mutex_;
    std::map<std::string, std::map<std::string, std::string>> last_ GUARDED_BY(mutex_);
};

}  // namespace sysfs
}  // namespace sim
