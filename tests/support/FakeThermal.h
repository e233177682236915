// A scriptable thermal HAL 2.0 for tests: it answers `temperatures` and `coolingDevices` as set
// (no thresholds), with the callback registry, the throttling delivery on the
// hardware-binder thread and the call-by-call faults of every simulated thermal HAL
// (sim/ThermalHal.h: failNext(Call, Fault), deliverThrottling()).
//
// floodThrottling(perRead, total): from then on every temperature read also sends `perRead`
// throttling notifications for sensors "storm-0", "storm-1", ... until `total` have been sent.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "ThermalHal.h"
#include "ThreadSafety.h"
#include "hostplatform/HwBinderThreadPool.h"

namespace testing_support {

class FakeThermal : public sim::ThermalHal {
public:
    using Severity = android::hardware::thermal::V2_0::ThrottlingSeverity;

    static Temperature temperature(const std::string& name, TemperatureType type, float value,
                                   Severity severity = Severity::NONE) {
        return Temperature{type, name, value, severity};
    }
    static Temperature temperature(const std::string& name, int32_t type, float value) {
        return temperature(name, static_cast<TemperatureType>(type), value);
    }
    static CoolingDevice device(const std::string& name, uint64_t value) {
        return CoolingDevice{CoolingType::FAN, name, value};
    }

    // Registers this fake as the "default" thermal HAL (2.0 and 1.0).
    void registerDefault() { registerAsService("default"); }
    void floodThrottling(int perRead, int total) {
        perRead_ = perRead;
        total_ = total;
    }

    std::vector<Temperature> temperatures;
    std::vector<CoolingDevice> coolingDevices;
    // Every registration and list request as "call(filterType, type)", so tests can check the
    // arguments callers pass (a filter would silently hide sensors).
    std::vector<std::string> requests;

    Return<void> registerThermalChangedCallback(const android::sp<Callback>& callback,
                                                bool filterType, TemperatureType type,
                                                registerThermalChangedCallback_cb cb) override {
        requests.push_back(request("register", filterType, toString(type)));
        return ThermalHal::registerThermalChangedCallback(callback, filterType, type, cb);
    }
    Return<void> getCurrentTemperatures(bool filterType, TemperatureType type,
                                        getCurrentTemperatures_cb cb) override {
        requests.push_back(request("temperatures", filterType, toString(type)));
        return ThermalHal::getCurrentTemperatures(filterType, type, cb);
    }
    Return<void> getCurrentCoolingDevices(bool filterType, CoolingType type,
                                          getCurrentCoolingDevices_cb cb) override {
        requests.push_back(request("coolingDevices", filterType, toString(type)));
        return ThermalHal::getCurrentCoolingDevices(filterType, type, cb);
    }

protected:
    ThermalStatus readTemperatures(std::vector<Temperature>& out) override {
        out = temperatures;
        for (int i = 0; i < perRead_ && sent_ < total_; ++i) {
            deliverThrottling(
                    temperature("storm-" + std::to_string(sent_++), TemperatureType::CPU, 0));
        }
        return {};
    }
    ThermalStatus readCoolingDevices(std::vector<CoolingDevice>& out) override {
        out = coolingDevices;
        return {};
    }
    ThermalStatus readThresholds(std::vector<TemperatureThreshold>&) override { return {}; }

private:
    static std::string request(const char* call, bool filterType, const std::string& type) {
        return std::string(call) + (filterType ? "(true, " : "(false, ") + type + ")";
    }

    int perRead_ = 0;
    int total_ = 0;
    int sent_ = 0;  // only touched by temperature reads, which the host serialises
};

// A throttling callback that records what it receives and whether that arrived off the thread
// that created it.
class RecordingThermalCallback : public android::hardware::thermal::V2_0::IThermalChangedCallback {
public:
    using Temperature = android::hardware::thermal::V2_0::Temperature;

    android::hardware::Return<void> notifyThrottling(const Temperature& temperature) override
            EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        received_.push_back(temperature);
        offCreatorThread_ += std::this_thread::get_id() != creator_;
        return android::hardware::Void();
    }
    // "name:severity" of everything received once the one-way calls sent so far have arrived.
    std::vector<std::string> received() EXCLUDES(mutex_) {
        hostplatform::waitForOnewayTransactions();
        threadsafety::MutexLock lock(mutex_);
        std::vector<std::string> texts;
        for (const auto& t : received_) {
            texts.push_back(std::string(t.name) + ":" + toString(t.throttlingStatus));
        }
        return texts;
    }
    int offCreatorThread() EXCLUDES(mutex_) {
        hostplatform::waitForOnewayTransactions();
        threadsafety::MutexLock lock(mutex_);
        return offCreatorThread_;
    }

private:
    threadsafety::Mutex mutex_;
    std::vector<Temperature> received_ GUARDED_BY(mutex_);
    int offCreatorThread_ GUARDED_BY(mutex_) = 0;
    const std::thread::id creator_ = std::this_thread::get_id();
};

}  // namespace testing_support
