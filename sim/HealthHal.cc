#include "HealthHal.h"

#include <algorithm>

#include "HostSideWork.h"

namespace sim {
namespace {

using android::sp;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;
using android::hardware::health::V2_0::DiskStats;
using android::hardware::health::V2_0::Result;
using android::hardware::health::V2_0::StorageInfo;
using android::hardware::health::V2_1::HealthConfig;
namespace V2_0 = android::hardware::health::V2_0;
namespace V2_1 = android::hardware::health::V2_1;

template <typename Callback>
void answer(const HealthValue& value, const Callback& callback) {
    callback(value.result, value.value);
}

}  // namespace

Return<Result> HealthHal::registerCallback(const sp<V2_0::IHealthInfoCallback>& callback) {
    if (callback == nullptr) return Result::UNKNOWN;
    {
        threadsafety::MutexLock lock(mutex_);
        callbacks_.push_back(callback);
    }
    return update();
}

Return<Result> HealthHal::unregisterCallback(const sp<V2_0::IHealthInfoCallback>& callback) {
    threadsafety::MutexLock lock(mutex_);
    const auto it = std::find(callbacks_.begin(), callbacks_.end(), callback);
    if (it == callbacks_.end()) return Result::NOT_FOUND;
    callbacks_.erase(it);
    return Result::SUCCESS;
}

Return<Result> HealthHal::update() {
    std::vector<sp<V2_0::IHealthInfoCallback>> callbacks;
    V2_1::HealthInfo info;
    {
        const HostSideWork hal;
        const HealthReading reading = read();
        if (reading.infoResult != Result::SUCCESS) return Result::SUCCESS;  // nothing to push
        info = reading.info;
        threadsafety::MutexLock lock(mutex_);
        callbacks = callbacks_;
    }
    // Outside the lock: a callback may call back into this service.
    for (const auto& callback : callbacks) {
        const sp<V2_1::IHealthInfoCallback> v21 =
                V2_1::IHealthInfoCallback::castFrom(callback).withDefault(nullptr);
        if (v21 != nullptr) {
            v21->healthInfoChanged_2_1(info).isOk();
        } else {
            callback->healthInfoChanged(info.legacy).isOk();
        }
    }
    return Result::SUCCESS;
}

Return<void> HealthHal::getChargeCounter(getChargeCounter_cb _hidl_cb) {
    const HostSideWork hal;
    answer(read().chargeCounterUah, _hidl_cb);
    return Void();
}

Return<void> HealthHal::getCurrentNow(getCurrentNow_cb _hidl_cb) {
    const HostSideWork hal;
    answer(read().currentNowUa, _hidl_cb);
    return Void();
}

Return<void> HealthHal::getCurrentAverage(getCurrentAverage_cb _hidl_cb) {
    const HostSideWork hal;
    answer(read().currentAverageUa, _hidl_cb);
    return Void();
}

Return<void> HealthHal::getCapacity(getCapacity_cb _hidl_cb) {
    const HostSideWork hal;
    answer(read().capacityPercent, _hidl_cb);
    return Void();
}

Return<void> HealthHal::getEnergyCounter(getEnergyCounter_cb _hidl_cb) {
    _hidl_cb(Result::NOT_SUPPORTED, 0);
    return Void();
}

Return<void> HealthHal::getChargeStatus(getChargeStatus_cb _hidl_cb) {
    const HostSideWork hal;
    _hidl_cb(Result::SUCCESS, read().info.legacy.legacy.batteryStatus);
    return Void();
}

Return<void> HealthHal::getStorageInfo(getStorageInfo_cb _hidl_cb) {
    _hidl_cb(Result::NOT_SUPPORTED, hidl_vec<StorageInfo>());
    return Void();
}

Return<void> HealthHal::getDiskStats(getDiskStats_cb _hidl_cb) {
    _hidl_cb(Result::NOT_SUPPORTED, hidl_vec<DiskStats>());
    return Void();
}

Return<void> HealthHal::getHealthInfo(getHealthInfo_cb _hidl_cb) {
    const HostSideWork hal;
    const HealthReading reading = read();
    _hidl_cb(reading.infoResult, reading.info.legacy);
    return Void();
}

Return<void> HealthHal::getHealthConfig(getHealthConfig_cb _hidl_cb) {
    HealthConfig config{};
    config.battery.periodicChoresIntervalFast = 60;
    config.battery.periodicChoresIntervalSlow = 600;
    config.bootMinCap = 0;
    _hidl_cb(Result::SUCCESS, config);
    return Void();
}

Return<void> HealthHal::getHealthInfo_2_1(getHealthInfo_2_1_cb _hidl_cb) {
    const HostSideWork hal;
    const HealthReading reading = read();
    _hidl_cb(reading.infoResult, reading.info);
    return Void();
}

Return<void> HealthHal::shouldKeepScreenOn(shouldKeepScreenOn_cb _hidl_cb) {
    _hidl_cb(Result::SUCCESS, false);
    return Void();
}

}  // namespace sim
