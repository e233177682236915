// Host stand-in for the types of android.hardware.health@2.1.
#pragma once

#include <cstdint>

#include <android/hardware/health/1.0/types.h>
#include <android/hardware/health/2.0/types.h>

namespace android {
namespace hardware {
namespace health {
namespace V2_1 {

enum class BatteryCapacityLevel : int32_t {
    UNSUPPORTED = -1,
    UNKNOWN = 0,
    CRITICAL = 1,
    LOW = 2,
    NORMAL = 3,
    HIGH = 4,
    FULL = 5,
};

enum class Constants : int64_t {
    BATTERY_CHARGE_TIME_TO_FULL_NOW_SECONDS_UNSUPPORTED = -1,
};

struct HealthInfo final {
    ::android::hardware::health::V2_0::HealthInfo legacy;  // level: legacy.legacy.batteryLevel
    BatteryCapacityLevel batteryCapacityLevel;
    int64_t batteryChargeTimeToFullNowSeconds;   // -1: unsupported
    int32_t batteryFullChargeDesignCapacityUah;  // 0: unknown
};

struct HealthConfig final {
    ::android::hardware::health::V1_0::HealthConfig battery;
    int32_t bootMinCap;
};

}  // namespace V2_1
}  // namespace health
}  // namespace hardware
}  // namespace android
