// Host stand-in for android.hardware.thermal@1.0::IThermal, as hidl-gen emits it for clients:
// every method answers through a callback that runs before the call returns. getService() looks
// the instance up in the host service registry (see hostplatform/HidlServiceInterface.h).
#pragma once

#include <functional>
#include <string>

#include <android/hardware/thermal/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "hostplatform/HidlServiceInterface.h"

namespace android {
namespace hardware {
namespace thermal {
namespace V1_0 {

struct IThermal
    : public ::hostplatform::ServiceInterface<IThermal, ::android::hidl::base::V1_0::IBase> {
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
};

}  // namespace V1_0
}  // namespace thermal
}  // namespace hardware
}  // namespace android
