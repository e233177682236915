// Host stand-in for android.hardware.health@2.1::IHealth: the 2.0 interface plus the 2.1
// health record, the health configuration and the keep-screen-on query. getService() looks the
// instance up in the host service registry (see hostplatform/HidlServices.h).
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

namespace android {
namespace hardware {
namespace health {
namespace V2_1 {

struct IHealth : public ::android::hardware::health::V2_0::IHealth {
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

    static ::android::hardware::Return<::android::sp<IHealth>> castFrom(
            const ::android::sp<IHealth>& parent, bool emitError = false);
    static ::android::hardware::Return<::android::sp<IHealth>> castFrom(
            const ::android::sp<::android::hardware::health::V2_0::IHealth>& parent,
            bool emitError = false);
    static ::android::hardware::Return<::android::sp<IHealth>> castFrom(
            const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false);

    // The registered instance, or null. Keep every overload: without the const char[] one,
    // getService("default") would bind to getService(bool) and mean getStub = true.
    static ::android::sp<IHealth> getService(const std::string& serviceName = "default",
                                             bool getStub = false);
    static ::android::sp<IHealth> getService(const char serviceName[], bool getStub = false) {
        const std::string name(serviceName == nullptr ? "" : serviceName);
        return getService(name, getStub);
    }
    static ::android::sp<IHealth> getService(const ::android::hardware::hidl_string& serviceName,
                                             bool getStub = false) {
        const std::string name(serviceName.c_str());
        return getService(name, getStub);
    }
    static ::android::sp<IHealth> getService(bool getStub) {
        return getService("default", getStub);
    }
    static ::android::sp<IHealth> tryGetService(const std::string& serviceName = "default",
                                                bool getStub = false);
    static ::android::sp<IHealth> tryGetService(const char serviceName[], bool getStub = false) {
        const std::string name(serviceName == nullptr ? "" : serviceName);
        return tryGetService(name, getStub);
    }
    static ::android::sp<IHealth> tryGetService(const ::android::hardware::hidl_string& serviceName,
                                                bool getStub = false) {
        const std::string name(serviceName.c_str());
        return tryGetService(name, getStub);
    }
    static ::android::sp<IHealth> tryGetService(bool getStub) {
        return tryGetService("default", getStub);
    }

    // Server side: registers this object under `serviceName` as a 2.1 and as a 2.0 service.
    ::android::status_t registerAsService(const std::string& serviceName = "default");
};

}  // namespace V2_1
}  // namespace health
}  // namespace hardware
}  // namespace android
