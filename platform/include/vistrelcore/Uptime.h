// android_uptimeMillis(): milliseconds of CLOCK_MONOTONIC (time since boot, not counting
// suspend). The library calls it by this name; on the device the platform resolves the symbol
// at link time. The host definition (platform/src/Uptime.cc) forwards to libutils'
// android::uptimeMillis(), which reads the same clock.
#pragma once

#include <cstdint>

extern "C" int64_t android_uptimeMillis();
