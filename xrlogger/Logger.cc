#include "xrlogger/Logger.h"

#include <android/log.h>

namespace xrlogger {
namespace {

constexpr int kPriorityBySeverity[] = {
        ANDROID_LOG_VERBOSE, ANDROID_LOG_INFO,  ANDROID_LOG_WARN,
        ANDROID_LOG_ERROR,   ANDROID_LOG_FATAL,
};
constexpr uint32_t kLastSeverity = sizeof(kPriorityBySeverity) / sizeof(kPriorityBySeverity[0]) - 1;

int priorityOf(LoggingSeverity severity) {
    const auto index = static_cast<uint32_t>(severity);  // negative values land above the table
    return index > kLastSeverity ? ANDROID_LOG_UNKNOWN : kPriorityBySeverity[index];
}

}  // namespace

int LogWriter::Write(LoggingSeverity severity, const char* tag, const char* format, va_list args) {
    return __android_log_vprint(priorityOf(severity), tag, format, args);
}

int Log(LoggingSeverity severity, const char* tag, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = LogWriter::Write(severity, tag, format, args);
    va_end(args);
    return result;
}

}  // namespace xrlogger
