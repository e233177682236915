// Host stand-in for the types of android.hardware.thermal@2.0. TemperatureType extends the 1.0
// enum (its values first); CoolingType is a new enum, not an extension of the 1.0 one.
#pragma once

#include <cstdint>
#include <string>

#include <android/hardware/thermal/1.0/types.h>
#include <hidl/HidlSupport.h>

namespace android {
namespace hardware {
namespace thermal {
namespace V2_0 {

enum class TemperatureType : int32_t {
    UNKNOWN = -1,
    CPU = 0,
    GPU = 1,
    BATTERY = 2,
    SKIN = 3,
    USB_PORT = 4,
    POWER_AMPLIFIER = 5,
    BCL_VOLTAGE = 6,     // battery voltage, mV
    BCL_CURRENT = 7,     // battery current, mA
    BCL_PERCENTAGE = 8,  // state of charge, percent
    NPU = 9,
};

enum class CoolingType : uint32_t {
    FAN = 0,
    BATTERY = 1,
    CPU = 2,
    GPU = 3,
    MODEM = 4,
    NPU = 5,
    COMPONENT = 6,
};

enum class ThrottlingSeverity : uint32_t {
    NONE = 0,
    LIGHT = 1,
    MODERATE = 2,
    SEVERE = 3,
    CRITICAL = 4,
    EMERGENCY = 5,
    SHUTDOWN = 6,
};

struct Temperature final {
    TemperatureType type;
    ::android::hardware::hidl_string name;
    float value;  // °C (mV, mA or percent for the BCL types); NAN when unavailable
    ThrottlingSeverity throttlingStatus;
};

// Thresholds indexed by ThrottlingSeverity; NAN where a severity has none.
struct TemperatureThreshold final {
    TemperatureType type;
    ::android::hardware::hidl_string name;
    ::android::hardware::hidl_array<float, 7> hotThrottlingThresholds;
    ::android::hardware::hidl_array<float, 7> coldThrottlingThresholds;
    float vrThrottlingThreshold;
};

struct CoolingDevice final {
    CoolingType type;
    ::android::hardware::hidl_string name;
    uint64_t value;  // throttle state; 0 = not throttling
};

// Bare value names, parent values first; any other value in hexadecimal ("0" for zero,
// negatives in two's complement), as the generated code gives them.
inline std::string toString(TemperatureType o) {
    switch (o) {
        case TemperatureType::UNKNOWN:
            return "UNKNOWN";
        case TemperatureType::CPU:
            return "CPU";
        case TemperatureType::GPU:
            return "GPU";
        case TemperatureType::BATTERY:
            return "BATTERY";
        case TemperatureType::SKIN:
            return "SKIN";
        case TemperatureType::USB_PORT:
            return "USB_PORT";
        case TemperatureType::POWER_AMPLIFIER:
            return "POWER_AMPLIFIER";
        case TemperatureType::BCL_VOLTAGE:
            return "BCL_VOLTAGE";
        case TemperatureType::BCL_CURRENT:
            return "BCL_CURRENT";
        case TemperatureType::BCL_PERCENTAGE:
            return "BCL_PERCENTAGE";
        case TemperatureType::NPU:
            return "NPU";
    }
    return ::android::hardware::details::toHexString(static_cast<int32_t>(o));
}

inline std::string toString(CoolingType o) {
    switch (o) {
        case CoolingType::FAN:
            return "FAN";
        case CoolingType::BATTERY:
            return "BATTERY";
        case CoolingType::CPU:
            return "CPU";
        case CoolingType::GPU:
            return "GPU";
        case CoolingType::MODEM:
            return "MODEM";
        case CoolingType::NPU:
            return "NPU";
        case CoolingType::COMPONENT:
            return "COMPONENT";
    }
    return ::android::hardware::details::toHexString(static_cast<uint32_t>(o));
}

inline std::string toString(ThrottlingSeverity o) {
    switch (o) {
        case ThrottlingSeverity::NONE:
            return "NONE";
        case ThrottlingSeverity::LIGHT:
            return "LIGHT";
        case ThrottlingSeverity::MODERATE:
            return "MODERATE";
        case ThrottlingSeverity::SEVERE:
            return "SEVERE";
        case ThrottlingSeverity::CRITICAL:
            return "CRITICAL";
        case ThrottlingSeverity::EMERGENCY:
            return "EMERGENCY";
        case ThrottlingSeverity::SHUTDOWN:
            return "SHUTDOWN";
    }
    return ::android::hardware::details::toHexString(static_cast<uint32_t>(o));
}

}  // namespace V2_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
