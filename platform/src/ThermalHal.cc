// Out-of-line parts of the thermal HAL stand-ins: descriptors, interface chains, checked casts
// and the service-registry lookups.
#include <android/hardware/thermal/1.0/IThermal.h>
#include <android/hardware/thermal/2.0/IThermal.h>
#include <android/hardware/thermal/2.0/IThermalChangedCallback.h>

#include "InterfaceChains.h"
#include "hostplatform/HidlServices.h"

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

Return<sp<IThermal>> IThermal::castFrom(const sp<IThermal>& parent, bool) {
    return parent;
}

Return<sp<IThermal>> IThermal::castFrom(const sp<IBase>& parent, bool) {
    return checkedCast<IThermal>(parent);
}

sp<IThermal> IThermal::getService(const std::string& serviceName, bool getStub) {
    return hostplatform::findHidlService<IThermal>(serviceName, getStub);
}

sp<IThermal> IThermal::tryGetService(const std::string& serviceName, bool getStub) {
    return getService(serviceName, getStub);
}

status_t IThermal::registerAsService(const std::string& serviceName) {
    hostplatform::addService<IThermal>(serviceName, sp<IThermal>(this));
    return OK;
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

Return<sp<IThermal>> IThermal::castFrom(const sp<IThermal>& parent, bool) {
    return parent;
}

Return<sp<IThermal>> IThermal::castFrom(const sp<V1_0::IThermal>& parent, bool) {
    return checkedCast<IThermal>(parent);
}

Return<sp<IThermal>> IThermal::castFrom(const sp<IBase>& parent, bool) {
    return checkedCast<IThermal>(parent);
}

sp<IThermal> IThermal::getService(const std::string& serviceName, bool getStub) {
    return hostplatform::findHidlService<IThermal>(serviceName, getStub);
}

sp<IThermal> IThermal::tryGetService(const std::string& serviceName, bool getStub) {
    return getService(serviceName, getStub);
}

status_t IThermal::registerAsService(const std::string& serviceName) {
    hostplatform::addService<IThermal>(serviceName, sp<IThermal>(this));
    hostplatform::addService<V1_0::IThermal>(serviceName, sp<V1_0::IThermal>(this));
    return OK;
}

}  // namespace V2_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
