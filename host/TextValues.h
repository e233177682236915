// Values as people type them on the reference host's command line, and the timeline's rendering
// of device time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Headset.h"

namespace host {

// Durations such as "250ms", "90s", "15m", "2h", "1d", or sums such as "1h30m": nanoseconds, or
// empty when the text is not a positive sum of <integer><unit> terms or overflows 64 bits.
std::optional<int64_t> parseDuration(const std::string& text);

// "1:02:03.004" style rendering of nanoseconds (hours unbounded), for timelines.
std::string formatDeviceTime(int64_t ns);

// Byte counts such as "128G", "512M", "900K" or "1048576" (binary multiples); empty on bad text.
std::optional<int64_t> parseByteCount(const std::string& text);

// A cyclic interactive script such as "40m on, 20m off": comma-separated "<duration> on|off"
// phases. Empty with the reason in `error` on bad text.
std::optional<sim::InteractiveScript> parseInteractiveScript(const std::string& text,
                                                             std::string* error);

// A cyclic focus script such as "10m com.halden.shell; 25m com.a.game; 5m com.b.dialog,com.a.game;
// 5m none": semicolon-separated "<duration> <app>[,<app>...]" phases listing the foreground
// applications top first, or "none". Empty with the reason in `error` on bad text.
std::optional<sim::sdk::FocusScript> parseFocusScript(const std::string& text, std::string* error);

}  // namespace host
