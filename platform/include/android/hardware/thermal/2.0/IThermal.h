// Host stand-in for android.hardware.thermal@2.0::IThermal: the 1.0 interface plus current
// temperatures and cooling devices by type, thresholds and throttling callbacks. Every method
// answers through a callback that runs before the call returns (ThermalStatus is a struct, so
// even registration reports through one). getService() looks the instance up in the host
// service registry (see hostplatform/HidlServiceInterface.h).
#pragma once

#include <functional>
#include <string>

#include <android/hardware/thermal/1.0/IThermal.h>
#include <android/hardware/thermal/1.0/types.h>
#include <android/hardware/thermal/2.0/IThermalChangedCallback.h>
#include <android/hardware/thermal/2.0/types.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "hostplatform/HidlServiceInterface.h"

namespace android {
namespace hardware {
namespace thermal {
namespace V2_0 {

struct IThermal
    : public ::hostplatform::ServiceInterface<IThermal, ::android::hardware::thermal::V1_0::IThermal> {
    static const char* descriptor;  // "android.hardware.thermal@2.0::IThermal"

    // With filterType false, `type` is ignored and every sensor or device is listed.
    using getCurrentTemperatures_cb =
            std::function<void(const ::android::hardware::thermal::V1_0::ThermalStatus& status,
                               const ::android::hardware::hidl_vec<Temperature>& temperatures)>;
    virtual ::android::hardware::Return<void> getCurrentTemperatures(
            bool filterType, TemperatureType type, getCurrentTemperatures_cb _hidl_cb) = 0;
    using getTemperatureThresholds_cb = std::function<void(
            const ::android::hardware::thermal::V1_0::ThermalStatus& status,
            const ::android::hardware::hidl_vec<TemperatureThreshold>& temperatureThresholds)>;
    virtual ::android::hardware::Return<void> getTemperatureThresholds(
            bool filterType, TemperatureType type, getTemperatureThresholds_cb _hidl_cb) = 0;
    // FAILURE for a null callback or one that is already registered.
    using registerThermalChangedCallback_cb =
            std::function<void(const ::android::hardware::thermal::V1_0::ThermalStatus& status)>;
    virtual ::android::hardware::Return<void> registerThermalChangedCallback(
            const ::android::sp<IThermalChangedCallback>& callback, bool filterType,
            TemperatureType type, registerThermalChangedCallback_cb _hidl_cb) = 0;
    // FAILURE for a null callback or one that is not registered.
    using unregisterThermalChangedCallback_cb =
            std::function<void(const ::android::hardware::thermal::V1_0::ThermalStatus& status)>;
    virtual ::android::hardware::Return<void> unregisterThermalChangedCallback(
            const ::android::sp<IThermalChangedCallback>& callback,
            unregisterThermalChangedCallback_cb _hidl_cb) = 0;
    using getCurrentCoolingDevices_cb =
            std::function<void(const ::android::hardware::thermal::V1_0::ThermalStatus& status,
                               const ::android::hardware::hidl_vec<CoolingDevice>& devices)>;
    virtual ::android::hardware::Return<void> getCurrentCoolingDevices(
            bool filterType, CoolingType type, getCurrentCoolingDevices_cb _hidl_cb) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
};

}  // namespace V2_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
