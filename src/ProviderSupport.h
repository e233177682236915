// Small helpers every collector uses (library-internal): the severity-named log calls under the
// provider tag, and the forced sample that starts a forced snapshot.
#pragma once

#include <cstdarg>

#include "Provider.h"
#include "xrlogger/Logger.h"

namespace Vistrel {

// xrlogger::Log with the "Vistrel" tag at the severity the name gives.
#define VISTREL_DEFINE_LOG(function, severity)                                                 \
    __attribute__((format(printf, 1, 2))) inline int function(const char* format, ...) {       \
        va_list args;                                                                          \
        va_start(args, format);                                                                \
        const int result = xrlogger::LogWriter::Write(severity, xrlogger::kTag, format, args); \
        va_end(args);                                                                          \
        return result;                                                                         \
    }
VISTREL_DEFINE_LOG(logVerbose, xrlogger::VERBOSE)
VISTREL_DEFINE_LOG(logInfo, xrlogger::INFO)
VISTREL_DEFINE_LOG(logWarning, xrlogger::WARNING)
VISTREL_DEFINE_LOG(logError, xrlogger::ERROR)
#undef VISTREL_DEFINE_LOG

// The first step of a forced snapshot: logs `line` at info severity, then runs the provider's
// own sample() through the virtual interface (so an override sees the call) and drops its
// notification.
inline void forceSample(Provider& provider, IClockReader& clock, const char* line) {
    logInfo("%s", line);
    provider.sample(clock);
}

}  // namespace Vistrel
