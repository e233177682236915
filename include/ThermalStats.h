// ThermalStats: temperatures, cooling devices and throttling through the thermal HAL 2.0
// (instance "default").
//
// Every sample (10 s) reads all current temperatures and cooling-device levels into rings of
// twelve slots per sensor or device (two minutes); snapshot() reduces each ring to the record's
// current / max / min / average. Every 120 s sample() returns ("ThermalHeartbeat",
// "<whole seconds elapsed> seconds"). acquireResources() also registers a ThermalCallback with
// the HAL, which pushes ("ThermalThrottle", <sensor name>, force) to the host's router whenever
// the HAL reports a throttling change.
//
// Process-wide: the HAL handle and the newest callback live in file-scope globals of the source
// (null at load, released at unload), shared by every instance. The HAL handle is taken once
// and never dropped; callbacks are never unregistered. ThermalStats calls are not
// synchronised; the host serialises them.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <android/hardware/thermal/2.0/IThermalChangedCallback.h>
#include <android/hardware/thermal/2.0/types.h>
#include <hidl/Status.h>

#include "Provider.h"

// The throttling callback registered with the thermal HAL. notifyThrottling() arrives on a
// hardware-binder thread at any time, never on the host's thread: it reads only its own copy of
// the router and touches no collector state. Owned through android::sp by the HAL and the
// collector's globals. Slot order: the HIDL base operations, the destructor pair, then
// notifyThrottling (code built against the platform's interface relies on it).
class ThermalCallback : public android::hardware::thermal::V2_0::IThermalChangedCallback {
public:
    explicit ThermalCallback(Vistrel::NotificationRouter router);
    ~ThermalCallback() override;

    // Pushes ("ThermalThrottle", temperature.name, true) to the router; type, value and severity
    // are not passed on. The router is called as it is: an empty one aborts the process.
    android::hardware::Return<void> notifyThrottling(
            const android::hardware::thermal::V2_0::Temperature& temperature) override;

private:
    Vistrel::NotificationRouter router_;
};

namespace Vistrel {

// Reduced statistics of one sensor (°C) or cooling device (throttle state).
struct SampledData {
    float current;  // the newest ring slot
    float max;
    float min;
    float average;
};

class ThermalStats : public Provider {
public:
    static constexpr int32_t kRingSize = 12;  // 120 s of 10 s samples
    using Ring = std::array<float, kRingSize>;

    ThermalStats() = default;
    ~ThermalStats() override;

    const char* name() const override;
    // Restarts the heartbeat timer (always), connects to the HAL once per process and registers
    // a fresh callback carrying a copy of `router`. False when the HAL is missing or refuses
    // the callback (the new callback is kept all the same).
    bool acquireResources(NotificationRouter router, IClockReader& clock) override;
    // With force: samples first, dropping its notification (a due heartbeat included). Samples
    // once itself when no sample exists yet; false only when there is still none. Sensors that
    // vanish keep their last statistics.
    bool snapshot(IClockReader& clock, bool force) override;
    // sampleHAL(), then the heartbeat once 120 s have passed since the last one (or the acquire).
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // One read of every temperature and cooling device into slot sampleIndex of the rings.
    void sampleHAL();
    // Test hook: the newest callback (if any) receives a made-up CPU sensor "testSensor" at
    // 0 °C, severity NONE, on the caller's thread.
    void fireThrottlingNotification();

    // Members in their fixed order. The host reads the record, sensorsByType through
    // throttlingStatus, after a successful snapshot(); the rest is working state.
    std::map<std::string, std::vector<std::string>> sensorsByType;  // type name -> sensor names
    std::map<std::string, SampledData> temperatureStats;            // by sensor name, °C
    std::map<std::string, SampledData> coolingDeviceStats;          // by device name
    std::map<std::string, int32_t> throttlingStatus;   // by sensor: latest ThrottlingSeverity
    int32_t sampleCount = 0;                           // filled ring slots, 0..12
    int32_t sampleIndex = 0;                           // slot the next sample writes, 0..11
    int64_t lastHeartbeatNs = 0;                       // nowNs() of the last heartbeat or acquire
    std::map<std::string, Ring> temperatureHistory;    // by sensor name, °C
    std::map<std::string, Ring> coolingDeviceHistory;  // by device name
};

}  // namespace Vistrel
