// Time units and clock arithmetic shared by the collectors (library-internal).
#pragma once

#include <android/log.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "seams/Libc.h"
#include "xrlogger/Logger.h"

namespace Vistrel {

inline constexpr int64_t kNsPerMs = 1000000;
inline constexpr int64_t kNsPerSec = 1000000000;

// a - b in two's-complement arithmetic: clock readings far apart wrap instead of overflowing.
inline int64_t difference(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Nanoseconds on CLOCK_BOOTTIME. When the clock cannot be read, logs "error getting time: <reason>"
// straight to the Android log (ERROR) and returns 0. Computed in unsigned arithmetic, so an
// out-of-range clock value wraps instead of overflowing.
inline int64_t bootTimeNs() {
    struct timespec now {};
    if (seam::clock_gettime(CLOCK_BOOTTIME, &now) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, xrlogger::kTag, "error getting time: %s",
                            strerror(errno));
        return 0;
    }
    return static_cast<int64_t>(static_cast<uint64_t>(now.tv_sec) * 1000000000u +
                                static_cast<uint64_t>(now.tv_nsec));
}

}  // namespace Vistrel
