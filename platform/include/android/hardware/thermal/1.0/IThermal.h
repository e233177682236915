// Host stand-in for android.hardware.thermal@1.0::IThermal, as hidl-gen emits it for clients:
// every method answers through a callback that runs before the call returns. getService() looks
// the instance up in the host service registry (see hostplatform/HidlServices.h).
#pragma once

#include <functional>
#include <string>

#include <android/hardware/thermal/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace thermal {
namespace V1_0 {

struct IThermal : public ::android::hidl::base::V1_0::IBase {
    static const char* descriptor;  // "android.hardware.thermal@1.0::IThermal"

    using getTemperatures_cb =
            std::function<void(const ThermalStatus& status,
                               const ::android::hardware::hidl_vec<Temperature>& temperatures)>;
    virtual ::android::hardware::Return<void> getTemperatures(getTemperatures_cb _hidl_cb) = 0;
    using getCpuUsages_cb = std::function<void(
            const ThermalStatus& status, const ::android::hardware::hidl_vec<CpuUsage>& cpuUsages)>;
    virtual ::android::hardware::Return<void> getCpuUsages(getCpuUsages_cb _hidl_cb) = 0;
    using getCoolingDevices_cb =
            std::function<void(const ThermalStatus& status,
                               const ::android::hardware::hidl_vec<CoolingDevice>& devices)>;
    virtual ::android::hardware::Return<void> getCoolingDevices(getCoolingDevices_cb _hidl_cb) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;

    static ::android::hardware::Return<::android::sp<IThermal>> castFrom(
            const ::android::sp<IThermal>& parent, bool emitError = false);
    static ::android::hardware::Return<::android::sp<IThermal>> castFrom(
            const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false);

    // The registered instance, or null. Keep every overload: without the const char[] one,
    // getService("default") would bind to getService(bool) and mean getStub = true.
    static ::android::sp<IThermal> getService(const std::string& serviceName = "default",
                                              bool getStub = false);
    static ::android::sp<IThermal> getService(const char serviceName[], bool getStub = false) {
        const std::string name(serviceName == nullptr ? "" : serviceName);
        return getService(name, getStub);
    }
    static ::android::sp<IThermal> getService(const ::android::hardware::hidl_string& serviceName,
                                              bool getStub = false) {
        const std::string name(serviceName.c_str());
        return getService(name, getStub);
    }
    static ::android::sp<IThermal> getService(bool getStub) {
        return getService("default", getStub);
    }
    // The host registry never blocks, so these answer as getService() does.
    static ::android::sp<IThermal> tryGetService(const std::string& serviceName = "default",
                                                 bool getStub = false);
    static ::android::sp<IThermal> tryGetService(const char serviceName[], bool getStub = false) {
        const std::string name(serviceName == nullptr ? "" : serviceName);
        return tryGetService(name, getStub);
    }
    static ::android::sp<IThermal> tryGetService(const ::android::hardware::hidl_string& serviceName,
                                                 bool getStub = false) {
        const std::string name(serviceName.c_str());
        return tryGetService(name, getStub);
    }
    static ::android::sp<IThermal> tryGetService(bool getStub) {
        return tryGetService("default", getStub);
    }

    // Server side: registers this object under `serviceName` in the host registry.
    ::android::status_t registerAsService(const std::string& serviceName = "default");
};

}  // namespace V1_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
