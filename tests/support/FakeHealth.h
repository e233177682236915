// A scriptable health HAL 2.1 for tests (discharging, good, 50 %, 3900 mV, -1 mA). It answers
// `info` and `currentUa`; each call of update(), getCurrentNow() or getHealthInfo_2_1() first
// takes the next queued fault of that method, if any: kTransport (failed Return, no callback) or
// a non-SUCCESS Result (callback with that Result and a zeroed value).
#pragma once

#include <deque>
#include <map>
#include <optional>

#include <android/hardware/health/2.1/IHealth.h>

#include "Provider.h"
#include "hostplatform/ServiceRegistry.h"

namespace testing_support {

class FakeHealth : public android::hardware::health::V2_1::IHealth {
public:
    using Result = android::hardware::health::V2_0::Result;
    using HealthInfo = android::hardware::health::V2_1::HealthInfo;
    template <typename T>
    using Return = android::hardware::Return<T>;
    using Status = android::hardware::health::V1_0::BatteryStatus;
    using Health = android::hardware::health::V1_0::BatteryHealth;
    using Fault = std::optional<Result>;  // empty: transport failure

    enum class Method { Update, CurrentNow, HealthInfo21 };
    static constexpr Fault kTransport{};
    static constexpr Fault kBothFaults[] = {kTransport, Fault{Result::UNKNOWN}};

    FakeHealth() {
        setStatus(3);
        setHealth(2);
        setLevel(50);
        info.legacy.legacy.batteryVoltage = 3900;
    }
    // Registers this fake as the "default" 2.1 health service.
    void registerDefault() { hostplatform::addService<IHealth>("default", this); }
    void failNext(Method method, Fault fault) { faults_[method].push_back(fault); }

    void setStatus(int32_t value) { info.legacy.legacy.batteryStatus = static_cast<Status>(value); }
    void setHealth(int32_t value) { info.legacy.legacy.batteryHealth = static_cast<Health>(value); }
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
        return fault ? Return<Result>(*fault) : Return<Result>(transportError());
    }
    Return<void> getCurrentNow(getCurrentNow_cb cb) override {
        return answer(Method::CurrentNow, cb, currentUa);
    }
    Return<void> getHealthInfo_2_1(getHealthInfo_2_1_cb cb) override {
        return answer(Method::HealthInfo21, cb, info);
    }

    // Not used by the providers: NOT_SUPPORTED.
    using InfoCallback = android::sp<android::hardware::health::V2_0::IHealthInfoCallback>;
    Return<Result> registerCallback(const InfoCallback&) override { return Result::NOT_SUPPORTED; }
    Return<Result> unregisterCallback(const InfoCallback&) override {
        return Result::NOT_SUPPORTED;
    }
    Return<void> getChargeCounter(getChargeCounter_cb cb) override { return unsupported(cb); }
    Return<void> getCurrentAverage(getCurrentAverage_cb cb) override { return unsupported(cb); }
    Return<void> getCapacity(getCapacity_cb cb) override { return unsupported(cb); }
    Return<void> getEnergyCounter(getEnergyCounter_cb cb) override { return unsupported(cb); }
    Return<void> getChargeStatus(getChargeStatus_cb cb) override { return unsupported(cb); }
    Return<void> getStorageInfo(getStorageInfo_cb cb) override { return unsupported(cb); }
    Return<void> getDiskStats(getDiskStats_cb cb) override { return unsupported(cb); }
    Return<void> getHealthInfo(getHealthInfo_cb cb) override { return unsupported(cb); }
    Return<void> getHealthConfig(getHealthConfig_cb cb) override { return unsupported(cb); }
    Return<void> shouldKeepScreenOn(shouldKeepScreenOn_cb cb) override { return unsupported(cb); }

private:
    Fault take(Method method) {
        auto& queue = faults_[method];
        if (queue.empty()) return Result::SUCCESS;
        const Fault fault = queue.front();
        queue.pop_front();
        return fault;
    }
    static android::hardware::Status transportError() {
        return android::hardware::Status::fromStatusT(android::DEAD_OBJECT);
    }
    template <typename Callback, typename Value>
    Return<void> answer(Method method, const Callback& cb, const Value& value) {
        const Fault fault = take(method);
        if (!fault) return transportError();
        cb(*fault, *fault == Result::SUCCESS ? value : Value{});
        return android::hardware::Void();
    }
    template <typename Callback>
    static Return<void> unsupported(const Callback& cb) {
        cb(Result::NOT_SUPPORTED, {});
        return android::hardware::Void();
    }

    std::map<Method, std::deque<Fault>> faults_;
};

}  // namespace testing_support
