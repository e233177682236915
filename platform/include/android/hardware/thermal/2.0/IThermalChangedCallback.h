// Host stand-in for android.hardware.thermal@2.0::IThermalChangedCallback, the client side of
// IThermal::registerThermalChangedCallback.
#pragma once

#include <android/hardware/thermal/2.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace thermal {
namespace V2_0 {

struct IThermalChangedCallback : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;  // "android.hardware.thermal@2.0::IThermalChangedCallback"

    // oneway: a sensor's throttling severity changed. Arrives on a hardware-binder thread of the
    // receiving process, never on the thread that registered the callback.
    virtual ::android::hardware::Return<void> notifyThrottling(const Temperature& temperature) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;

    static ::android::hardware::Return<::android::sp<IThermalChangedCallback>> castFrom(
            const ::android::sp<IThermalChangedCallback>& parent, bool emitError = false);
    static ::android::hardware::Return<::android::sp<IThermalChangedCallback>> castFrom(
            const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false);
};

}  // namespace V2_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
