#include "SimThermal.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

using android::hardware::thermal::V1_0::ThermalStatus;
using android::hardware::thermal::V1_0::ThermalStatusCode;
using android::hardware::thermal::V2_0::CoolingType;
using android::hardware::thermal::V2_0::TemperatureType;
using android::hardware::thermal::V2_0::ThrottlingSeverity;

constexpr int64_t kStepNs = INT64_C(10000000000);  // model step: 10 s
constexpr float kSeverityHysteresisC = 2.0f;
constexpr float kFanHysteresisC = 1.5f;
constexpr TemperatureType kDisplayType = static_cast<TemperatureType>(12);  // a vendor type

ThermalStatus success() {
    return ThermalStatus{ThermalStatusCode::SUCCESS, ""};
}

// The level `value` holds on a staircase of `steps`, coming from `level`: it climbs every step
// reached and descends only once `value` is `hysteresis` below a step. A NAN step is never
// reached.
template <size_t N>
int32_t levelOn(const std::array<float, N>& steps, int32_t level, float value, float hysteresis) {
    while (level < static_cast<int32_t>(N) && value >= steps[level]) ++level;
    while (level > 0 && value < steps[level - 1] - hysteresis) --level;
    return level;
}

SimSensor sensor(const char* name, TemperatureType type, float idle, float active, float charging,
                 float wired, float fan, float limit, float tau, std::array<float, 6> hot) {
    SimSensor s;
    s.name = name;
    s.type = type;
    s.idleC = idle;
    s.activeC = active;
    s.chargingC = charging;
    s.wiredC = wired;
    s.fanCoolingC = fan;
    s.limitCoolingC = limit;
    s.timeConstantS = tau;
    s.hotThresholdsC = hot;
    return s;
}

}  // namespace

ThermalScript ThermalScript::defaults() {
    const std::array<float, 6> cpu = {60, 70, 80, 90, 95, 100};
    const std::array<float, 6> gpu = {68, 78, 88, 93, 98, 103};
    const float none = NAN;
    ThermalScript script;
    script.fanStepsC = {33, 36, 39};
    //                      name        type                       idle  act  chg wired fan  limit tau
    script.sensors = {
            sensor("cpu-0", TemperatureType::CPU, 9, 29, 1, 0, 2.0f, 1.5f, 60, cpu),
            sensor("cpu-1", TemperatureType::CPU, 9, 28, 1, 0, 2.0f, 1.5f, 60, cpu),
            sensor("cpu-2", TemperatureType::CPU, 8, 26, 1, 0, 2.0f, 1.5f, 60, cpu),
            sensor("cpu-3", TemperatureType::CPU, 8, 25, 1, 0, 2.0f, 1.5f, 60, cpu),
            sensor("gpu", TemperatureType::GPU, 8, 33, 1, 0, 2.0f, 1.5f, 60, gpu),
            sensor("skin", TemperatureType::SKIN, 6, 9, 3, 0, 1.0f, 0, 300,
                   {40, 42, 44, 46, 48, 50}),
            sensor("battery", TemperatureType::BATTERY, 4, 5, 10, 0, 0.5f, 0, 600,
                   {40, 43, 46, 50, 55, 60}),
            sensor("usb-port", TemperatureType::USB_PORT, 2, 1, 0, 20, 0, 0, 120,
                   {45, 50, 55, 60, 65, 70}),
            sensor("display", kDisplayType, 5, 12, 0, 0, 0.5f, 0, 240,
                   {none, none, none, none, none, none}),
    };
    return script;
}

const std::vector<std::string>& ThermalScript::scenarioNames() {
    static const std::vector<std::string> names = {"default", "hot-room", "stuck-fan"};
    return names;
}

std::optional<ThermalScript> ThermalScript::named(const std::string& scenario) {
    ThermalScript script = defaults();
    if (scenario == "hot-room") {
        script.roomC = 32;
    } else if (scenario == "stuck-fan") {
        script.fanStuck = true;
    } else if (scenario != "default") {
        return std::nullopt;
    }
    return script;
}

SimThermal::SimThermal(ThermalScript script, std::function<int64_t()> now,
                       std::function<HeadsetState(int64_t)> stateAt)
    : script_(std::move(script)),
      now_(std::move(now)),
      stateAt_(std::move(stateAt)),
      advancedToNs_(now_()) {
    // At rest: every sensor at its idle temperature, severities as those give them.
    for (const auto& s : script_.sensors) {
        celsius_.push_back(script_.roomC + s.idleC);
        severity_.push_back(levelOn(s.hotThresholdsC, 0, celsius_.back(), kSeverityHysteresisC));
    }
}

int32_t SimThermal::limitLevelLocked(TemperatureType type) const {
    int32_t level = 0;
    for (size_t i = 0; i < script_.sensors.size(); ++i) {
        if (script_.sensors[i].type == type) level = std::max(level, severity_[i]);
    }
    return level;
}

float SimThermal::targetLocked(size_t sensor, const HeadsetState& state) const {
    const SimSensor& s = script_.sensors[sensor];
    float target = script_.roomC + s.idleC;
    if (state.interactive) target += s.activeC;
    if (state.charging) target += s.chargingC;
    if (state.wired) target += s.wiredC;
    target -= static_cast<float>(fanLevel_) * s.fanCoolingC;
    if (s.type == TemperatureType::CPU || s.type == TemperatureType::GPU) {
        target -= static_cast<float>(limitLevelLocked(s.type)) * s.limitCoolingC;
    }
    return target;
}

void SimThermal::stepLocked(int64_t lengthNs) {
    const HeadsetState state = stateAt_(advancedToNs_);
    std::vector<float> targets;
    for (size_t i = 0; i < celsius_.size(); ++i) targets.push_back(targetLocked(i, state));
    const double seconds = static_cast<double>(lengthNs) / 1e9;
    std::vector<size_t> risen;
    for (size_t i = 0; i < celsius_.size(); ++i) {
        const SimSensor& s = script_.sensors[i];
        const double approach = 1.0 - std::exp(-seconds / s.timeConstantS);
        celsius_[i] += static_cast<float>((targets[i] - celsius_[i]) * approach);
        const int32_t severity =
                levelOn(s.hotThresholdsC, severity_[i], celsius_[i], kSeverityHysteresisC);
        if (severity > severity_[i]) risen.push_back(i);
        severity_[i] = severity;
    }
    advancedToNs_ += lengthNs;

    const auto skin = std::find_if(script_.sensors.begin(), script_.sensors.end(),
                                   [](const auto& s) { return s.type == TemperatureType::SKIN; });
    if (!script_.fanStuck && skin != script_.sensors.end()) {
        const float skinC = celsius_[skin - script_.sensors.begin()];
        fanLevel_ = levelOn(script_.fanStepsC, fanLevel_, skinC, kFanHysteresisC);
    }
    for (size_t i : risen) deliverThrottling(temperatureLocked(i));
}

void SimThermal::advanceLocked() {
    const int64_t target = now_();
    while (advancedToNs_ < target) stepLocked(std::min(kStepNs, target - advancedToNs_));
}

SimThermal::Temperature SimThermal::temperatureLocked(size_t sensor) const {
    const SimSensor& s = script_.sensors[sensor];
    return Temperature{s.type, s.name, celsius_[sensor],
                       static_cast<ThrottlingSeverity>(severity_[sensor])};
}

ThermalStatus SimThermal::readTemperatures(std::vector<Temperature>& out) {
    threadsafety::MutexLock lock(mutex_);
    advanceLocked();
    for (size_t i = 0; i < celsius_.size(); ++i) out.push_back(temperatureLocked(i));
    return success();
}

ThermalStatus SimThermal::readCoolingDevices(std::vector<CoolingDevice>& out) {
    threadsafety::MutexLock lock(mutex_);
    advanceLocked();
    out.push_back({CoolingType::FAN, "fan", static_cast<uint64_t>(fanLevel_)});
    out.push_back({CoolingType::CPU, "cpu-freq-limit",
                   static_cast<uint64_t>(limitLevelLocked(TemperatureType::CPU))});
    out.push_back({CoolingType::GPU, "gpu-freq-limit",
                   static_cast<uint64_t>(limitLevelLocked(TemperatureType::GPU))});
    return success();
}

ThermalStatus SimThermal::readThresholds(std::vector<TemperatureThreshold>& out) {
    for (const auto& s : script_.sensors) {
        TemperatureThreshold threshold{};
        threshold.type = s.type;
        threshold.name = s.name;
        threshold.hotThrottlingThresholds[0] = NAN;  // NONE has no threshold
        for (size_t i = 0; i < s.hotThresholdsC.size(); ++i) {
            threshold.hotThrottlingThresholds[i + 1] = s.hotThresholdsC[i];
        }
        for (size_t i = 0; i < 7; ++i) threshold.coldThrottlingThresholds[i] = NAN;
        threshold.vrThrottlingThreshold = NAN;
        out.push_back(threshold);
    }
    return success();
}

}  // namespace sim
