// A scriptable health HAL 2.1 for tests. It answers `info` and `currentUa`; each call of
// update(), getCurrentNow() or getHealthInfo_2_1() first takes the next queued fault of that
// method, if any: a transport failure (no callback, failed Return) or a non-SUCCESS Result
// (callback with that Result and a zeroed value). Calls are counted per method.
#pragma once

#include <deque>
#include <map>

#include <android/hardware/health/2.1/IHealth.h>

#include "hostplatform/ServiceRegistry.h"

namespace testing_support {

class FakeHealth : public android::hardware::health::V2_1::IHealth {
public:
    using Result = android::hardware::health::V2_0::Result;
    using HealthInfo = android::hardware::health::V2_1::HealthInfo;
    template <typename T>
    using Return = android::hardware::Return<T>;

    enum class Method { Update, CurrentNow, HealthInfo21 };

    struct Fault {
        bool transport = false;             // the call fails in transport
        Result result = Result::SUCCESS;    // otherwise answered with this Result
    };
    static Fault transportFailure() { return Fault{true, Result::SUCCESS}; }
    static Fault answer(Result result) { return Fault{false, result}; }

    FakeHealth() {
        auto& battery = info.legacy.legacy;
        battery.batteryStatus = android::hardware::health::V1_0::BatteryStatus::DISCHARGING;
        battery.batteryHealth = android::hardware::health::V1_0::BatteryHealth::GOOD;
        battery.batteryLevel = 50;
        battery.batteryVoltage = 3900;
    }

    // Registers this fake as the "default" 2.1 health service.
    void registerDefault() {
        hostplatform::addService<android::hardware::health::V2_1::IHealth>("default", this);
    }

    void failNext(Method method, Fault fault) { faults_[method].push_back(fault); }
    int calls(Method method) const {
        const auto it = calls_.find(method);
        return it == calls_.end() ? 0 : it->second;
    }

    // Setters for the fields the providers read.
    void setStatus(int32_t status) {
        info.legacy.legacy.batteryStatus =
            static_cast<android::hardware::health::V1_0::BatteryStatus>(status);
    }
    void setHealth(int32_t health) {
        info.legacy.legacy.batteryHealth =
            static_cast<android::hardware::health::V1_0::BatteryHealth>(health);
    }
    void setLevel(int32_t level) { info.legacy.legacy.batteryLevel = level; }
    void setChargers(bool ac, bool usb, bool wireless) {
        info.legacy.legacy.chargerAcOnline = ac;
        info.legacy.legacy.chargerUsbOnline = usb;
        info.legacy.legacy.chargerWirelessOnline = wireless;
    }

    HealthInfo info{};
    int32_t currentUa = -1000;

    Return<Result> update() override {
        const Fault fault = take(Method::Update);
        if (fault.transport) return transportError();
        return fault.result;
    }
    Return<void> getCurrentNow(getCurrentNow_cb cb) override {
        const Fault fault = take(Method::CurrentNow);
        if (fault.transport) return transportError();
        cb(fault.result, fault.result == Result::SUCCESS ? currentUa : 0);
        return android::hardware::Void();
    }
    Return<void> getHealthInfo_2_1(getHealthInfo_2_1_cb cb) override {
        const Fault fault = take(Method::HealthInfo21);
        if (fault.transport) return transportError();
        cb(fault.result, fault.result == Result::SUCCESS ? info : HealthInfo{});
        return android::hardware::Void();
    }

    // Not used by the providers.
    Return<Result> registerCallback(
        const android::sp<android::hardware::health::V2_0::IHealthInfoCallback>&) override {
        return Result::NOT_SUPPORTED;
    }
    Return<Result> unregisterCallback(
        const android::sp<android::hardware::health::V2_0::IHealthInfoCallback>&) override {
        return Result::NOT_SUPPORTED;
    }
    Return<void> getChargeCounter(getChargeCounter_cb cb) override { return unsupported(cb, 0); }
    Return<void> getCurrentAverage(getCurrentAverage_cb cb) override { return unsupported(cb, 0); }
    Return<void> getCapacity(getCapacity_cb cb) override { return unsupported(cb, 0); }
    Return<void> getEnergyCounter(getEnergyCounter_cb cb) override { return unsupported(cb, 0); }
    Return<void> getChargeStatus(getChargeStatus_cb cb) override {
        return unsupported(cb, android::hardware::health::V1_0::BatteryStatus::UNKNOWN);
    }
    Return<void> getStorageInfo(getStorageInfo_cb cb) override {
        return unsupported(cb, android::hardware::hidl_vec<android::hardware::health::V2_0::StorageInfo>());
    }
    Return<void> getDiskStats(getDiskStats_cb cb) override {
        return unsupported(cb, android::hardware::hidl_vec<android::hardware::health::V2_0::DiskStats>());
    }
    Return<void> getHealthInfo(getHealthInfo_cb cb) override { return unsupported(cb, info.legacy); }
    Return<void> getHealthConfig(getHealthConfig_cb cb) override {
        return unsupported(cb, android::hardware::health::V2_1::HealthConfig{});
    }
    Return<void> shouldKeepScreenOn(shouldKeepScreenOn_cb cb) override { return unsupported(cb, false); }

private:
    Fault take(Method method) {
        ++calls_[method];
        auto& queue = faults_[method];
        if (queue.empty()) return Fault{};
        const Fault fault = queue.front();
        queue.pop_front();
        return fault;
    }
    static android::hardware::Status transportError() {
        return android::hardware::Status::fromStatusT(android::DEAD_OBJECT);
    }
    template <typename Callback, typename Value>
    static Return<void> unsupported(const Callback& cb, const Value& value) {
        cb(Result::NOT_SUPPORTED, value);
        return android::hardware::Void();
    }

    std::map<Method, std::deque<Fault>> faults_;
    std::map<Method, int> calls_;
};

}  // namespace testing_support
