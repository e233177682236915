#include "ThermalStats.h"

#include <android/hardware/thermal/2.0/IThermal.h>
#include <utils/StrongPointer.h>

#include "ProviderSupport.h"
#include "Timing.h"

namespace {

using android::sp;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;
using android::hardware::thermal::V1_0::ThermalStatus;
using android::hardware::thermal::V1_0::ThermalStatusCode;
using android::hardware::thermal::V2_0::CoolingDevice;
using android::hardware::thermal::V2_0::CoolingType;
using android::hardware::thermal::V2_0::IThermal;
using android::hardware::thermal::V2_0::Temperature;
using android::hardware::thermal::V2_0::TemperatureType;
using android::hardware::thermal::V2_0::ThrottlingSeverity;
using Vistrel::SampledData;
using Vistrel::ThermalStats;

// The HAL connection (taken once, never dropped) and the newest throttling callback, shared by
// every ThermalStats of the process.
sp<IThermal> g_thermalHal;
sp<ThermalCallback> g_thermalCallback;

constexpr int64_t kHeartbeatNs = 120 * Vistrel::kNsPerSec;

bool succeeded(const ThermalStatus& status) {
    return status.code == ThermalStatusCode::SUCCESS;
}

// Result of getCurrentTemperatures: each temperature into slot sampleIndex of its ring and its
// severity into throttlingStatus; with `recordTypes`, each sensor name is also listed under its
// type's name. A failed status (with or without a list) is logged and leaves every map untouched.
void recordTemperatures(ThermalStats& stats, const ThermalStatus& status,
                        const hidl_vec<Temperature>& temperatures, bool recordTypes) {
    if (!succeeded(status)) {
        Vistrel::logError("Temps were not successfully read from the thermal HAL");
        return;
    }
    for (const Temperature& temperature : temperatures) {
        const std::string name = temperature.name;
        if (recordTypes) stats.sensorsByType[toString(temperature.type)].push_back(name);
        // A ring seen for the first time is value-initialised: twelve zeros.
        stats.temperatureHistory[name][stats.sampleIndex] = temperature.value;
        stats.throttlingStatus[name] = static_cast<int32_t>(temperature.throttlingStatus);
    }
}

// Result of getCurrentCoolingDevices: each level into slot sampleIndex of its ring. The
// device's type is not kept.
void recordCoolingDevices(ThermalStats& stats, const ThermalStatus& status,
                          const hidl_vec<CoolingDevice>& devices) {
    if (!succeeded(status)) {
        Vistrel::logError("Cooling devices were not successfully read from the thermal HAL");
        return;
    }
    for (const CoolingDevice& device : devices) {
        stats.coolingDeviceHistory[device.name][stats.sampleIndex] =
                static_cast<float>(device.value);
    }
}

// Statistics of the `count` filled slots of `ring` (slots 0 .. count-1, since a ring fills from
// slot 0); the newest is the slot before `next`. Strict comparisons: ties keep the earlier
// value. Zeros in slots a late sensor never wrote take part, as they are filled slots too.
SampledData reduce(const ThermalStats::Ring& ring, int32_t count, int32_t next) {
    constexpr int32_t size = ThermalStats::kRingSize;
    SampledData data{};
    data.current = ring[(next + size - 1) % size];
    data.max = ring[0];
    data.min = ring[0];
    float sum = ring[0];
    for (int32_t i = 1; i < count && i < size; ++i) {
        if (ring[i] > data.max) data.max = ring[i];
        if (ring[i] < data.min) data.min = ring[i];
        sum += ring[i];
    }
    data.average = sum / static_cast<float>(count);
    return data;
}

}  // namespace

ThermalCallback::ThermalCallback(Vistrel::NotificationRouter router) : router_(std::move(router)) {}

ThermalCallback::~ThermalCallback() = default;

Return<void> ThermalCallback::notifyThrottling(const Temperature& temperature) {
    router_("ThermalThrottle", temperature.name, true);
    return Void();
}

namespace Vistrel {

ThermalStats::~ThermalStats() = default;

const char* ThermalStats::name() const {
    return "ThermalStats";
}

SamplePeriod ThermalStats::sampleRate() const {
    return std::chrono::milliseconds(10000);
}

bool ThermalStats::acquireResources(NotificationRouter router, IClockReader& clock) {
    lastHeartbeatNs = clock.nowNs();
    if (g_thermalHal == nullptr) g_thermalHal = IThermal::getService("default", false);
    if (g_thermalHal == nullptr) {
        logError("Data provider unable to connect to thermal HAL");
        return false;
    }
    g_thermalCallback = new ThermalCallback(router);
    // A HAL that never answers has not accepted the callback.
    ThermalStatus status{ThermalStatusCode::FAILURE, ""};
    const Return<void> ret = g_thermalHal->registerThermalChangedCallback(
            g_thermalCallback, false, TemperatureType::CPU,
            [&status](const ThermalStatus& result) { status = result; });
    if (ret.isOk() && succeeded(status)) {
        logInfo("Vistrel successfully registered for thermal throttling notifications");
        return true;
    }
    // The transport's description, even when only the HAL's status failed ("No error").
    logError("registerThermalCallback failed unable to pushNotifications, status: %s",
             ret.description().c_str());
    return false;
}

void ThermalStats::sampleHAL() {
    if (g_thermalHal == nullptr) {
        logError("thermal HAL connection failed to initialize.");
        return;
    }
    const bool recordTypes = sensorsByType.empty();
    const Return<void> temperatures = g_thermalHal->getCurrentTemperatures(
            false, TemperatureType::UNKNOWN,
            [&](const ThermalStatus& status, const hidl_vec<Temperature>& list) {
                recordTemperatures(*this, status, list, recordTypes);
            });
    if (!temperatures.isOk()) {
        logError("ThermalHAL getCurrentTemperatures call failed: %s",
                 temperatures.description().c_str());
        return;
    }
    const Return<void> devices = g_thermalHal->getCurrentCoolingDevices(
            false, CoolingType::CPU,
            [&](const ThermalStatus& status, const hidl_vec<CoolingDevice>& list) {
                recordCoolingDevices(*this, status, list);
            });
    if (!devices.isOk()) {
        logError("ThermalHAL getCurrentCoolingDevices call failed: %s",
                 devices.description().c_str());
        return;
    }
    // Both calls went through: the slot is used even when a result was refused, so it keeps
    // what it held twelve samples ago.
    if (sampleCount < kRingSize) ++sampleCount;
    sampleIndex = (sampleIndex + 1) % kRingSize;
}

std::optional<Notification> ThermalStats::sample(IClockReader& clock) {
    sampleHAL();
    const int64_t elapsedNs = difference(clock.nowNs(), lastHeartbeatNs);
    if (elapsedNs < kHeartbeatNs) return std::nullopt;
    const uint64_t seconds = static_cast<uint64_t>(elapsedNs) / kNsPerSec;
    lastHeartbeatNs = clock.nowNs();  // a second reading, after the HAL calls
    return Notification{"ThermalHeartbeat", std::to_string(seconds) + " seconds"};
}

bool ThermalStats::snapshot(IClockReader& clock, bool force) {
    if (force) forceSample(*this, clock, "ThermalStats: force sample in snapshot");
    if (sampleCount == 0) sampleHAL();
    if (sampleCount == 0) return false;
    for (const auto& [sensor, ring] : temperatureHistory) {
        temperatureStats[sensor] = reduce(ring, sampleCount, sampleIndex);
    }
    for (const auto& [device, ring] : coolingDeviceHistory) {
        coolingDeviceStats[device] = reduce(ring, sampleCount, sampleIndex);
    }
    return true;
}

void ThermalStats::fireThrottlingNotification() {
    if (g_thermalCallback == nullptr) return;
    Temperature temperature{};
    temperature.type = TemperatureType::CPU;
    temperature.name = "testSensor";
    temperature.value = 0.0f;
    temperature.throttlingStatus = ThrottlingSeverity::NONE;
    g_thermalCallback->notifyThrottling(temperature);
}

}  // namespace Vistrel
