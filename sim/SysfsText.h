// Reading and parsing of sysfs attribute text, shared by the simulated headset's sysfs-backed
// HALs (thermal, power supply). An attribute is one short line such as "48300\n" or "Charging\n";
// its bytes come from files of any origin (a workstation, a captured tree), so the parsers accept
// anything and say "no value" for what they cannot read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {
namespace sysfs {

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

}  // namespace sysfs
}  // namespace sim
