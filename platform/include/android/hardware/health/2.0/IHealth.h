// Host stand-in for android.hardware.health@2.0::IHealth, as hidl-gen emits it for clients:
// results of one scalar are returned directly, everything else through a callback that runs
// before the call returns. getService() looks the instance up in the host service registry.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <android/hardware/health/1.0/types.h>
#include <android/hardware/health/2.0/IHealthInfoCallback.h>
#include <android/hardware/health/2.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "hostplatform/HidlServiceInterface.h"

namespace android {
namespace hardware {
namespace health {
namespace V2_0 {

struct IHealth
    : public ::hostplatform::ServiceInterface<IHealth, ::android::hidl::base::V1_0::IBase> {
    static const char* descriptor;  // "android.hardware.health@2.0::IHealth"

    virtual ::android::hardware::Return<Result> registerCallback(
            const ::android::sp<IHealthInfoCallback>& callback) = 0;
    // NOT_FOUND when the callback was not registered.
    virtual ::android::hardware::Return<Result> unregisterCallback(
            const ::android::sp<IHealthInfoCallback>& callback) = 0;
    // Refreshes the values and pushes them to the registered callbacks.
    virtual ::android::hardware::Return<Result> update() = 0;

    // On failure the value is 0 (UNKNOWN for getChargeStatus) and is to be ignored.
    using getChargeCounter_cb = std::function<void(Result result, int32_t value)>;  // µAh
    virtual ::android::hardware::Return<void> getChargeCounter(getChargeCounter_cb _hidl_cb) = 0;
    using getCurrentNow_cb = std::function<void(Result result, int32_t value)>;  // µA, >0 charging
    virtual ::android::hardware::Return<void> getCurrentNow(getCurrentNow_cb _hidl_cb) = 0;
    using getCurrentAverage_cb = std::function<void(Result result, int32_t value)>;  // µA
    virtual ::android::hardware::Return<void> getCurrentAverage(getCurrentAverage_cb _hidl_cb) = 0;
    using getCapacity_cb = std::function<void(Result result, int32_t value)>;  // percent
    virtual ::android::hardware::Return<void> getCapacity(getCapacity_cb _hidl_cb) = 0;
    using getEnergyCounter_cb = std::function<void(Result result, int64_t value)>;  // nWh
    virtual ::android::hardware::Return<void> getEnergyCounter(getEnergyCounter_cb _hidl_cb) = 0;
    using getChargeStatus_cb =
            std::function<void(Result result, ::android::hardware::health::V1_0::BatteryStatus value)>;
    virtual ::android::hardware::Return<void> getChargeStatus(getChargeStatus_cb _hidl_cb) = 0;
    using getStorageInfo_cb = std::function<void(
            Result result, const ::android::hardware::hidl_vec<StorageInfo>& value)>;
    virtual ::android::hardware::Return<void> getStorageInfo(getStorageInfo_cb _hidl_cb) = 0;
    using getDiskStats_cb =
            std::function<void(Result result, const ::android::hardware::hidl_vec<DiskStats>& value)>;
    virtual ::android::hardware::Return<void> getDiskStats(getDiskStats_cb _hidl_cb) = 0;
    using getHealthInfo_cb = std::function<void(Result result, const HealthInfo& value)>;
    virtual ::android::hardware::Return<void> getHealthInfo(getHealthInfo_cb _hidl_cb) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
};

}  // namespace V2_0
}  // namespace health
}  // namespace hardware
}  // namespace android
