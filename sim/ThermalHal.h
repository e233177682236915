// What every thermal HAL 2.0 of the simulated headset shares, whatever its readings come from:
// the callback registry with the 2.0 contract (a null callback or one already registered is
// refused with FAILURE), throttling notifications delivered as one-way calls on the process's
// hardware-binder thread (hostplatform/HwBinderThreadPool.h), faults injected call by call, and
// the 1.0 methods, which answer FAILURE ("not supported") as on HALs that only implement 2.0.
// Subclasses supply the readings. Thread-safe.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <vector>

#include <android/hardware/thermal/2.0/IThermal.h>
#include <utils/StrongPointer.h>

#include "ThreadSafety.h"

namespace sim {

class ThermalHal : public android::hardware::thermal::V2_0::IThermal {
public:
    using ThermalStatus = android::hardware::thermal::V1_0::ThermalStatus;
    using Temperature = android::hardware::thermal::V2_0::Temperature;
    using TemperatureType = android::hardware::thermal::V2_0::TemperatureType;
    using TemperatureThreshold = android::hardware::thermal::V2_0::TemperatureThreshold;
    using CoolingDevice = android::hardware::thermal::V2_0::CoolingDevice;
    using CoolingType = android::hardware::thermal::V2_0::CoolingType;
    using Callback = android::hardware::thermal::V2_0::IThermalChangedCallback;
    template <typename T>
    using Return = android::hardware::Return<T>;

    // The calls faults can be injected into.
    enum class Call { Register, Temperatures, CoolingDevices };
    enum class Fault {
        Transport,     // the call fails in transport (DEAD_OBJECT); no result callback runs
        Failure,       // FAILURE, with the list the HAL would have given
        FailureEmpty,  // FAILURE and an empty list
        Empty,         // SUCCESS and an empty list (no effect on Register)
    };

    // The next call of `call` takes the oldest queued fault instead of answering normally.
    void failNext(Call call, Fault fault) EXCLUDES(mutex_);
    size_t callbackCount() const EXCLUDES(mutex_);
    // Sends notifyThrottling(temperature) to every registered callback whose filter admits
    // the temperature's type, as one-way calls on the hardware-binder thread; returns at once.
    void deliverThrottling(const Temperature& temperature) EXCLUDES(mutex_);

    Return<void> getTemperatures(getTemperatures_cb _hidl_cb) override;
    Return<void> getCpuUsages(getCpuUsages_cb _hidl_cb) override;
    Return<void> getCoolingDevices(getCoolingDevices_cb _hidl_cb) override;
    Return<void> getCurrentTemperatures(bool filterType, TemperatureType type,
                                        getCurrentTemperatures_cb _hidl_cb) override;
    Return<void> getTemperatureThresholds(bool filterType, TemperatureType type,
                                          getTemperatureThresholds_cb _hidl_cb) override;
    Return<void> registerThermalChangedCallback(const android::sp<Callback>& callback,
                                                bool filterType, TemperatureType type,
                                                registerThermalChangedCallback_cb _hidl_cb) override;
    Return<void> unregisterThermalChangedCallback(
            const android::sp<Callback>& callback,
            unregisterThermalChangedCallback_cb _hidl_cb) override;
    Return<void> getCurrentCoolingDevices(bool filterType, CoolingType type,
                                          getCurrentCoolingDevices_cb _hidl_cb) override;

protected:
    // The current readings; a FAILURE status says why there are none. Called without this
    // class's lock held, so they may call deliverThrottling().
    virtual ThermalStatus readTemperatures(std::vector<Temperature>& out) = 0;
    virtual ThermalStatus readCoolingDevices(std::vector<CoolingDevice>& out) = 0;
    virtual ThermalStatus readThresholds(std::vector<TemperatureThreshold>& out) = 0;

private:
    struct Registration {
        android::sp<Callback> callback;
        bool filterType;
        TemperatureType type;
    };

    // The queued fault of `call`, if any (removed from the queue).
    bool takeFault(Call call, Fault& fault) EXCLUDES(mutex_);

    mutable threadsafety::Mutex mutex_;
    std::map<Call, std::deque<Fault>> faults_ GUARDED_BY(mutex_);
    std::vector<Registration> registrations_ GUARDED_BY(mutex_);
};

}  // namespace sim
