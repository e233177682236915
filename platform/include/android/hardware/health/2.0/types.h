// Host stand-in for the types of android.hardware.health@2.0.
#pragma once

#include <cstdint>
#include <string>

#include <android/hardware/health/1.0/types.h>
#include <hidl/HidlSupport.h>

namespace android {
namespace hardware {
namespace health {
namespace V2_0 {

// Extends @1.0::Result: the parent's values first.
enum class Result : int32_t {
    SUCCESS = 0,
    NOT_SUPPORTED = 1,
    UNKNOWN = 2,
    NOT_FOUND = 3,
    CALLBACK_DIED = 4,
};

struct StorageAttribute final {
    bool isInternal;
    bool isBootDevice;
    ::android::hardware::hidl_string name;
};

struct StorageInfo final {
    StorageAttribute attr;
    uint16_t eol;
    uint16_t lifetimeA;
    uint16_t lifetimeB;
    ::android::hardware::hidl_string version;
};

struct DiskStats final {
    uint64_t reads;
    uint64_t readMerges;
    uint64_t readSectors;
    uint64_t readTicks;
    uint64_t writes;
    uint64_t writeMerges;
    uint64_t writeSectors;
    uint64_t writeTicks;
    uint64_t ioInFlight;
    uint64_t ioTicks;
    uint64_t ioInQueue;
    StorageAttribute attr;
};

struct HealthInfo final {
    ::android::hardware::health::V1_0::HealthInfo legacy;
    int32_t batteryCurrentAverage;                            // µA, 0 when unsupported
    ::android::hardware::hidl_vec<DiskStats> diskStats;       // empty when unsupported
    ::android::hardware::hidl_vec<StorageInfo> storageInfos;  // empty when unsupported
};

inline std::string toString(Result o) {
    switch (o) {
        case Result::SUCCESS:
            return "SUCCESS";
        case Result::NOT_SUPPORTED:
            return "NOT_SUPPORTED";
        case Result::UNKNOWN:
            return "UNKNOWN";
        case Result::NOT_FOUND:
            return "NOT_FOUND";
        case Result::CALLBACK_DIED:
            return "CALLBACK_DIED";
    }
    return ::android::hardware::details::toHexString(static_cast<int32_t>(o));
}

}  // namespace V2_0
}  // namespace health
}  // namespace hardware
}  // namespace android
