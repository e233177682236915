// Host stand-in for android.hardware.health@2.0::IHealthInfoCallback (client side of
// IHealth::registerCallback).
#pragma once

#include <android/hardware/health/2.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

namespace android {
namespace hardware {
namespace health {
namespace V2_0 {

struct IHealthInfoCallback : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;  // "android.hardware.health@2.0::IHealthInfoCallback"

    // oneway: the newest health information after a change or an update().
    virtual ::android::hardware::Return<void> healthInfoChanged(const HealthInfo& info) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
};

}  // namespace V2_0
}  // namespace health
}  // namespace hardware
}  // namespace android
