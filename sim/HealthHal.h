// What every health HAL 2.1 of the simulated headset shares, whatever its readings come from:
// the callback registry (update() pushes the newest reading to every registered callback, as
// the 2.1 one-way call when the callback is a 2.1 one, else as the 2.0 one), and the getters,
// which answer from one reading: SUCCESS with the value, NOT_SUPPORTED when the reading has
// none (a battery without a current_now file), UNKNOWN when it has one that could not be read.
// A reading whose health record is unusable (HealthReading::infoResult) answers the record's
// getters with that result, and update() pushes nothing. Energy counter, storage and disk
// statistics are NOT_SUPPORTED. Subclasses supply the readings. Thread-safe when read() is.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <android/hardware/health/2.1/IHealth.h>
#include <android/hardware/health/2.1/IHealthInfoCallback.h>

#include "ThreadSafety.h"

namespace sim {

// A single-value getter's answer: SUCCESS with the value; else NOT_SUPPORTED (the device has no
// such value) or UNKNOWN (it has one that could not be read), with 0.
struct HealthValue {
    using Result = android::hardware::health::V2_0::Result;

    HealthValue() = default;
    HealthValue(int32_t read) : result(Result::SUCCESS), value(read) {}  // NOLINT: a value read
    static HealthValue unreadable() { return HealthValue(Result::UNKNOWN); }
    bool ok() const { return result == Result::SUCCESS; }

    Result result = Result::NOT_SUPPORTED;
    int32_t value = 0;

private:
    explicit HealthValue(Result failed) : result(failed) {}
};

struct HealthReading {
    android::hardware::health::V2_1::HealthInfo info{};
    // The health record getters' result: UNKNOWN when the battery level could not be read (the
    // record's level would be a made-up 0).
    android::hardware::health::V2_0::Result infoResult =
            android::hardware::health::V2_0::Result::SUCCESS;
    HealthValue currentNowUa;
    HealthValue currentAverageUa;
    HealthValue chargeCounterUah;
    HealthValue capacityPercent;
};

class HealthHal : public android::hardware::health::V2_1::IHealth {
public:
    using Result = android::hardware::health::V2_0::Result;
    template <typename T>
    using Return = android::hardware::Return<T>;

    Return<Result> registerCallback(
            const android::sp<android::hardware::health::V2_0::IHealthInfoCallback>& callback)
            override;
    Return<Result> unregisterCallback(
            const android::sp<android::hardware::health::V2_0::IHealthInfoCallback>& callback)
            override;
    Return<Result> update() override;
    Return<void> getChargeCounter(getChargeCounter_cb _hidl_cb) override;
    Return<void> getCurrentNow(getCurrentNow_cb _hidl_cb) override;
    Return<void> getCurrentAverage(getCurrentAverage_cb _hidl_cb) override;
    Return<void> getCapacity(getCapacity_cb _hidl_cb) override;
    Return<void> getEnergyCounter(getEnergyCounter_cb _hidl_cb) override;
    Return<void> getChargeStatus(getChargeStatus_cb _hidl_cb) override;
    Return<void> getStorageInfo(getStorageInfo_cb _hidl_cb) override;
    Return<void> getDiskStats(getDiskStats_cb _hidl_cb) override;
    Return<void> getHealthInfo(getHealthInfo_cb _hidl_cb) override;
    Return<void> getHealthConfig(getHealthConfig_cb _hidl_cb) override;
    Return<void> getHealthInfo_2_1(getHealthInfo_2_1_cb _hidl_cb) override;
    Return<void> shouldKeepScreenOn(shouldKeepScreenOn_cb _hidl_cb) override;

protected:
    // The battery and chargers now. Called without this class's lock held.
    virtual HealthReading read() = 0;

private:
    threadsafety::Mutex mutex_;
    std::vector<android::sp<android::hardware::health::V2_0::IHealthInfoCallback>> callbacks_
            GUARDED_BY(mutex_);
};

}  // namespace sim
