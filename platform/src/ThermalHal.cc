// Out-of-line parts of the thermal HAL stand-ins: descriptors, interface chains and the callbacks'
// checked casts (the service interfaces' casts, lookups and registration are in
// hostplatform/HidlServiceInterface.h).
#include <android/hardware/thermal/1.0/IThermal.h>
#include <android/hardware/thermal/2.0/IThermal.h>
#include <android/hardware/thermal/2.0/IThermalChangedCallback.h>

#include "InterfaceChains.h"

namespace android {
namespace hardware {
namespace thermal {

using ::android::hidl::base::V1_0::IBase;
using ::hostplatform::interfaces::chain;
using ::hostplatform::interfaces::checkedCast;

namespace V1_0 {

const char* IThermal::descriptor = "android.hardware.thermal@1.0::IThermal";

Return<void> IThermal::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, IBase::descriptor});
}

}  // namespace V1_0

namespace V2_0 {

const char* IThermalChangedCallback::descriptor =
        "android.hardware.thermal@2.0::IThermalChangedCallback";
const char* IThermal::descriptor = "android.hardware.thermal@2.0::IThermal";

Return<void> IThermalChangedCallback::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, IBase::descriptor});
}

Return<sp<IThermalChangedCallback>> IThermalChangedCallback::castFrom(
        const sp<IThermalChangedCallback>& parent, bool) {
    return parent;
}

Return<sp<IThermalChangedCallback>> IThermalChangedCallback::castFrom(const sp<IBase>& parent,
                                                                      bool) {
    return checkedCast<IThermalChangedCallback>(parent);
}

Return<void> IThermal::interfaceChain(interfaceChain_cb _hidl_cb) {
    return chain(_hidl_cb, {descriptor, V1_0::IThermal::descriptor, IBase::descriptor});
}

}  // namespace V2_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
