// android_uptimeMillis(): milliseconds of CLOCK_MONOTONIC (time since boot, not counting
// suspend). The library calls it by this name. No AOSP library exports it: on the device the
// host library libvistrelcore (in the library's shared_libs) provides it; the host build
// supplies platform/src/Uptime.cc, which forwards to libutils' android::uptimeMillis(), reading
// the same clock.
#pragma once

#include <cstdint>

extern "C" int64_t android_uptimeMillis();
