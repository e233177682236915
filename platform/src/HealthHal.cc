// Out-of-line parts of the health HAL stand-ins: descriptors, interface chains and the callbacks'
// checked casts (the service interfaces' casts, lookups and registration are in
// hostplatform/HidlServiceInterface.h).
#include <android/hardware/health/2.0/IHealth.h>
#include <android/hardware/health/2.0/IHealthInfoCallback.h>
#include <android/hardware/health/2.1/IHealth.h>
#include <android/hardware/health/2.1/IHealthInfoCallback.h>

#include "InterfaceChains.h"

namespace android {
namespace hardware {
namespace health {

using ::android::hidl::base::V1_0::IBase;
using ::hostplatform::interfaces::chain;
using ::hostplatform::interfaces::checkedCast;

namespace V2_0 {

const char* IHealthInfoCallback::descriptor = "android.hardware.health@2.0::IHealthInfoCallback";
const char* IHealth::descriptor = "android.hardware.health@2.0::IHealth";

Return<void> IHealthInfoCallback::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, IBase::descriptor});
}

Return<void> IHealth::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, IBase::descriptor});
}

}  // namespace V2_0

namespace V2_1 {

const char* IHealthInfoCallback::descriptor = "android.hardware.health@2.1::IHealthInfoCallback";
const char* IHealth::descriptor = "android.hardware.health@2.1::IHealth";

Return<void> IHealthInfoCallback::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, V2_0::IHealthInfoCallback::descriptor, IBase::descriptor});
}

Return<sp<IHealthInfoCallback>> IHealthInfoCallback::castFrom(
        const sp<V2_0::IHealthInfoCallback>& parent, bool) {
    return checkedCast<IHealthInfoCallback>(parent);
}

Return<void> IHealth::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, V2_0::IHealth::descriptor, IBase::descriptor});
}

}  // namespace V2_1
}  // namespace health
}  // namespace hardware
}  // namespace android
