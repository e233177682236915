// Host stand-in for android.hardware.health@2.1::IHealthInfoCallback. A 2.1 service calls
// healthInfoChanged_2_1 on callbacks that are of this type, healthInfoChanged otherwise.
#pragma once

#include <android/hardware/health/2.0/IHealthInfoCallback.h>
#include <android/hardware/health/2.1/types.h>

namespace android {
namespace hardware {
namespace health {
namespace V2_1 {

struct IHealthInfoCallback : public ::android::hardware::health::V2_0::IHealthInfoCallback {
    static const char* descriptor;  // "android.hardware.health@2.1::IHealthInfoCallback"

    virtual ::android::hardware::Return<void> healthInfoChanged_2_1(const HealthInfo& info) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;

    static ::android::hardware::Return<::android::sp<IHealthInfoCallback>> castFrom(
            const ::android::sp<::android::hardware::health::V2_0::IHealthInfoCallback>& parent,
            bool emitError = false);
};

}  // namespace V2_1
}  // namespace health
}  // namespace hardware
}  // namespace android
