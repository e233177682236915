// Boot-clock reading shared by the memory collectors (library-internal).
#pragma once

#include <android/log.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "seams/Libc.h"
#include "xrlogger/Logger.h"

namespace Vistrel {

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
