#include "vistrelcore/Uptime.h"

#include <utils/SystemClock.h>

extern "C" int64_t android_uptimeMillis() {
    return android::uptimeMillis();
}
