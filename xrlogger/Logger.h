// Logging facade of the library: maps the library's severities onto Android log priorities and
// forwards to the Android log, adding nothing to the message. Stateless; callable from any thread.
#pragma once

#include <cstdarg>
#include <cstdint>

namespace xrlogger {

// Values outside 0..4 are tolerated and logged at ANDROID_LOG_UNKNOWN (0).
enum LoggingSeverity : int32_t {
    VERBOSE = 0,  // ANDROID_LOG_VERBOSE (2)
    INFO = 1,     // ANDROID_LOG_INFO (4)
    WARNING = 2,  // ANDROID_LOG_WARN (5)
    ERROR = 3,    // ANDROID_LOG_ERROR (6)
    FATAL = 4,    // ANDROID_LOG_FATAL (7)
};

// Tag used by every provider message.
inline constexpr const char kTag[] = "Vistrel";

// printf-style; returns the Android log call's result (nobody looks at it).
int Log(LoggingSeverity severity, const char* tag, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

struct LogWriter {
    // Note: the Android debug priority (3) is never produced through this facade.
    static int Write(LoggingSeverity severity, const char* tag, const char* format, va_list args);
};

}  // namespace xrlogger
