// Host stand-in for android.hardware.health@2.1::IHealth: the 2.0 interface plus the 2.1
// health record, the health configuration and the keep-screen-on query. getService() looks the
// instance up in the host service registry (see hostplatform/HidlServiceInterface.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <android/hardware/health/2.0/IHealth.h>
#include <android/hardware/health/2.0/types.h>
#include <android/hardware/health/2.1/IHealthInfoCallback.h>
#include <android/hardware/health/2.1/types.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "hostplatform/HidlServiceInterface.h"

namespace android {
namespace hardware {
namespace health {
namespace V2_1 {

struct IHealth
    : public ::hostplatform::ServiceInterface<IHealth, ::android::hardware::health::V2_0::IHealth> {
    static const char* descriptor;  // "android.hardware.health@2.1::IHealth"

    using getHealthConfig_cb = std::function<void(::android::hardware::health::V2_0::Result result,
                                                  const HealthConfig& config)>;
    virtual ::android::hardware::Return<void> getHealthConfig(getHealthConfig_cb _hidl_cb) = 0;
    using getHealthInfo_2_1_cb = std::function<void(
            ::android::hardware::health::V2_0::Result result, const HealthInfo& value)>;
    virtual ::android::hardware::Return<void> getHealthInfo_2_1(getHealthInfo_2_1_cb _hidl_cb) = 0;
    using shouldKeepScreenOn_cb =
            std::function<void(::android::hardware::health::V2_0::Result result, bool value)>;
    virtual ::android::hardware::Return<void> shouldKeepScreenOn(shouldKeepScreenOn_cb _hidl_cb) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
};

}  // namespace V2_1
}  // namespace health
}  // namespace hardware
}  // namespace android
