// Out-of-line parts of the health HAL stand-ins: descriptors, interface chains, checked casts
// and the service-registry lookups.
#include <android/hardware/health/2.0/IHealth.h>
#include <android/hardware/health/2.0/IHealthInfoCallback.h>
#include <android/hardware/health/2.1/IHealth.h>
#include <android/hardware/health/2.1/IHealthInfoCallback.h>

#include "InterfaceChains.h"
#include "hostplatform/HidlServices.h"

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

Return<sp<IHealth>> IHealth::castFrom(const sp<IHealth>& parent, bool) {
    return parent;
}

Return<sp<IHealth>> IHealth::castFrom(const sp<IBase>& parent, bool) {
    return checkedCast<IHealth>(parent);
}

sp<IHealth> IHealth::getService(const std::string& serviceName, bool getStub) {
    return hostplatform::findHidlService<IHealth>(serviceName, getStub);
}

sp<IHealth> IHealth::tryGetService(const std::string& serviceName, bool getStub) {
    return getService(serviceName, getStub);
}

status_t IHealth::registerAsService(const std::string& serviceName) {
    hostplatform::addService<IHealth>(serviceName, sp<IHealth>(this));
    return OK;
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

Return<sp<IHealth>> IHealth::castFrom(const sp<IHealth>& parent, bool) {
    return parent;
}

Return<sp<IHealth>> IHealth::castFrom(const sp<V2_0::IHealth>& parent, bool) {
    return checkedCast<IHealth>(parent);
}

Return<sp<IHealth>> IHealth::castFrom(const sp<IBase>& parent, bool) {
    return checkedCast<IHealth>(parent);
}

sp<IHealth> IHealth::getService(const std::string& serviceName, bool getStub) {
    return hostplatform::findHidlService<IHealth>(serviceName, getStub);
}

sp<IHealth> IHealth::tryGetService(const std::string& serviceName, bool getStub) {
    return getService(serviceName, getStub);
}

status_t IHealth::registerAsService(const std::string& serviceName) {
    hostplatform::addService<IHealth>(serviceName, sp<IHealth>(this));
    hostplatform::addService<V2_0::IHealth>(serviceName, sp<V2_0::IHealth>(this));
    return OK;
}

}  // namespace V2_1
}  // namespace health
}  // namespace hardware
}  // namespace android
