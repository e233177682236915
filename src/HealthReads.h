// Health HAL reads shared by the two battery collectors. A read fails when the transport fails
// or the HAL answers anything but SUCCESS; the failure is logged at info severity, as the
// collectors treat a failed read as an expected, passing condition.
#pragma once

#include <android/hardware/health/2.1/IHealth.h>

#include "ProviderSupport.h"

namespace Vistrel::health {

using android::hardware::Return;
using android::hardware::health::V2_0::Result;
using android::hardware::health::V2_1::HealthInfo;
using android::hardware::health::V2_1::IHealth;

// CHARGING (2) or FULL (5).
inline bool isChargingStatus(int32_t status) {
    return status == 2 || status == 5;
}

// getHealthInfo_2_1 into `info`; logs "getHealthInfo_2_1() failed" and returns false on failure.
inline bool readHealthInfo(IHealth& hal, HealthInfo& info) {
    Result result = Result::UNKNOWN;
    const Return<void> ret = hal.getHealthInfo_2_1([&](Result r, const HealthInfo& value) {
        result = r;
        info = value;
    });
    if (!ret.isOk() || result != Result::SUCCESS) {
        logInfo("getHealthInfo_2_1() failed");
        return false;
    }
    return true;
}

}  // namespace Vistrel::health
