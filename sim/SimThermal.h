// The simulated headset's thermal HAL 2.0: sensors that warm while the headset is in use and
// while it charges and cool back towards the room when it rests, a fan and CPU/GPU frequency
// limits that hold them back, throttling severities from each sensor's thresholds, and a
// throttling callback on the hardware-binder thread each time a sensor's severity rises.
//
// Device time only moves forward: every HAL call first advances the model to "now" in steps of
// at most 10 s. Each step takes the headset's state and the cooling levels at its start and
// moves every sensor towards its target temperature with the sensor's time constant:
//
//   target = room + idle + (interactive ? active : 0) + (charging ? charging : 0)
//            + (wired charger ? wired : 0) - fan level * fanCooling - limit level * limitCooling
//
// Severities and fan levels rise when a temperature reaches a step and fall only 2 °C (fan:
// 1.5 °C) below it; the cooling effects are smaller than that, so a held state does not flap.
// Thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ThermalHal.h"
#include "ThreadSafety.h"

namespace sim {

// What the thermal model reads from the rest of the headset at a device time.
struct HeadsetState {
    bool interactive = false;
    bool charging = false;  // any charger plugged in
    bool wired = false;     // an AC or USB charger (heats the USB port)
};

struct SimSensor {
    std::string name;
    ThermalHal::TemperatureType type;  // may lie outside the named values
    // Contributions to the target temperature, °C.
    float idleC = 0;
    float activeC = 0;
    float chargingC = 0;
    float wiredC = 0;
    float fanCoolingC = 0;    // per fan level
    float limitCoolingC = 0;  // per level of the frequency limit of its type (CPU, GPU)
    float timeConstantS = 60;
    // Hot thresholds of LIGHT .. SHUTDOWN, °C; NAN where a severity has none.
    std::array<float, 6> hotThresholdsC{};
};

// A scenario of the simulated thermal HAL.
struct ThermalScript {
    float roomC = 24;
    bool fanStuck = false;  // the fan never spins, whatever the skin temperature
    std::vector<SimSensor> sensors;
    std::array<float, 3> fanStepsC{};  // skin temperatures of fan levels 1..3

    // Four CPU clusters, GPU, skin, battery, USB port and a display sensor of a vendor type
    // (12, named "0xc") in a 24 °C room.
    static ThermalScript defaults();
    // "default", "hot-room" (a 32 °C room) or "stuck-fan"; empty for any other name.
    static std::optional<ThermalScript> named(const std::string& scenario);
    static const std::vector<std::string>& scenarioNames();
};

class SimThermal : public ThermalHal {
public:
    // `now`: device time in ns; `stateAt`: the headset's state at a device time.
    SimThermal(ThermalScript script, std::function<int64_t()> now,
               std::function<HeadsetState(int64_t)> stateAt);

protected:
    ThermalStatus readTemperatures(std::vector<Temperature>& out) override EXCLUDES(mutex_);
    ThermalStatus readCoolingDevices(std::vector<CoolingDevice>& out) override EXCLUDES(mutex_);
    ThermalStatus readThresholds(std::vector<TemperatureThreshold>& out) override;

private:
    // Advances the model to now(), delivering a throttling callback for every severity rise.
    void advanceLocked() REQUIRES(mutex_);
    void stepLocked(int64_t lengthNs) REQUIRES(mutex_);
    float targetLocked(size_t sensor, const HeadsetState& state) const REQUIRES(mutex_);
    int32_t limitLevelLocked(TemperatureType type) const REQUIRES(mutex_);
    Temperature temperatureLocked(size_t sensor) const REQUIRES(mutex_);

    const ThermalScript script_;
    const std::function<int64_t()> now_;
    const std::function<HeadsetState(int64_t)> stateAt_;

    threadsafety::Mutex mutex_;
    int64_t advancedToNs_ GUARDED_BY(mutex_);
    std::vector<float> celsius_ GUARDED_BY(mutex_);
    std::vector<int32_t> severity_ GUARDED_BY(mutex_);
    int32_t fanLevel_ GUARDED_BY(mutex_) = 0;
};

}  // namespace sim
