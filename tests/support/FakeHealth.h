// A scriptable health HAL 2.1 for tests (discharging, good, 50 %, 3900 mV, -1 mA) on the
// simulated headset's HAL base: it answers `info` and `currentUa`; each call of update(),
// getCurrentNow() or getHealthInfo_2_1() first takes the next queued fault of that method, if
// any: kTransport (failed Return, no callback) or a non-SUCCESS Result (callback with that Result
// and a zeroed value).
#pragma once

#include <deque>
#include <map>
#include <optional>

#include "HealthHal.h"
#include "hostplatform/ServiceRegistry.h"

namespace testing_support {

class FakeHealth : public sim::HealthHal {
public:
    using HealthInfo = android::hardware::health::V2_1::HealthInfo;
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
        if (!fault) return transportError();
        return *fault == Result::SUCCESS ? HealthHal::update() : Return<Result>(*fault);
    }
    Return<void> getCurrentNow(getCurrentNow_cb cb) override {
        const Fault fault = take(Method::CurrentNow);
        return fault == Result::SUCCESS ? HealthHal::getCurrentNow(cb) : fail(fault, cb);
    }
    Return<void> getHealthInfo_2_1(getHealthInfo_2_1_cb cb) override {
        const Fault fault = take(Method::HealthInfo21);
        return fault == Result::SUCCESS ? HealthHal::getHealthInfo_2_1(cb) : fail(fault, cb);
    }

protected:
    sim::HealthReading read() override {
        sim::HealthReading reading;
        reading.info = info;
        reading.currentNowUa = currentUa;
        return reading;
    }

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
    template <typename Callback>
    static Return<void> fail(const Fault& fault, const Callback& cb) {
        if (!fault) return transportError();
        cb(*fault, {});
        return android::hardware::Void();
    }

    std::map<Method, std::deque<Fault>> faults_;
};

}  // namespace testing_support
