// Durations as people type them: "250ms", "90s", "15m", "2h", "1d", or sums such as "1h30m".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

// Nanoseconds, or empty when the text is not a positive sum of <integer><unit> terms
// (units ms, s, m, h, d) or overflows 64 bits.
std::optional<int64_t> parseDuration(const std::string& text);

// "1:02:03.004" style rendering of nanoseconds (hours unbounded), for timelines.
std::string formatDeviceTime(int64_t ns);

}  // namespace sim
