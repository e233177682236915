#include "Seed.h"

#include <algorithm>

namespace sim {
namespace {

constexpr int64_t kMinuteNs = INT64_C(60000000000);
constexpr double kNsPerHour = 3600e9;
constexpr double kLowestStartPercent = 10, kHighestStartPercent = 90;
constexpr double kLeftAtFirstChargerPercent = 6;

// The share of the battery (%) that `script`'s drains take from boot until its first charger is
// plugged in (the end of its cycle if it has none), used as `interactive` says.
double percentUsedBeforeFirstCharger(const BatteryScript& script,
                                     const InteractiveScript& interactive) {
    int64_t endNs = script.cycleNs;
    for (const ChargerSession& session : script.chargers) endNs = std::min(endNs, session.startNs);
    double usedUah = 0;
    for (int64_t ns = 0; ns < endNs;) {
        const int64_t next = std::min(endNs, interactive.nextChangeAfter(ns).value_or(endNs));
        const int32_t drainUa = interactive.at(ns) ? script.activeDrainUa : script.idleDrainUa;
        usedUah += drainUa * (static_cast<double>(next - ns) / kNsPerHour);
        ns = next;
    }
    return usedUah * 100 / script.capacityUah;
}

uint64_t splitmix(uint64_t& state) {
    uint64_t z = (state += UINT64_C(0x9e3779b97f4a7c15));
    z = (z ^ (z >> 30)) * UINT64_C(0xbf58476d1ce4e5b9);
    z = (z ^ (z >> 27)) * UINT64_C(0x94d049bb133111eb);
    return z ^ (z >> 31);
}

}  // namespace

SeededNumbers::SeededNumbers(uint64_t seed, std::string_view purpose) : state_(seed) {
    for (const char c : purpose) {
        state_ ^= static_cast<unsigned char>(c);
        splitmix(state_);
    }
}

uint64_t SeededNumbers::next() {
    return splitmix(state_);
}

double SeededNumbers::uniform(double low, double high) {
    const double unit = static_cast<double>(next() >> 11) / static_cast<double>(UINT64_C(1) << 53);
    return low + unit * (high - low);
}

BatteryScript seededBattery(BatteryScript script, uint64_t seed,
                            const InteractiveScript& interactive) {
    if (seed == 0) return script;
    SeededNumbers numbers(seed, "battery");
    const double startShare = numbers.uniform(0, 1);
    script.activeDrainUa = static_cast<int32_t>(script.activeDrainUa * numbers.uniform(0.8, 1.25));
    script.idleDrainUa = static_cast<int32_t>(script.idleDrainUa * numbers.uniform(0.8, 1.25));
    const double lowest = std::clamp(
            percentUsedBeforeFirstCharger(script, interactive) + kLeftAtFirstChargerPercent,
            kLowestStartPercent, kHighestStartPercent);
    script.startLevelPercent = lowest + startShare * (kHighestStartPercent - lowest);
    return script;
}

ThermalScript seededThermal(ThermalScript script, uint64_t seed) {
    if (seed == 0) return script;
    SeededNumbers numbers(seed, "thermal");
    script.roomC += static_cast<float>(numbers.uniform(-3, 3));
    const auto inUse = static_cast<float>(numbers.uniform(0.85, 1.15));
    const auto charging = static_cast<float>(numbers.uniform(0.85, 1.15));
    for (SimSensor& sensor : script.sensors) {
        sensor.activeC *= inUse;
        sensor.chargingC *= charging;
        sensor.wiredC *= charging;
    }
    return script;
}

sdk::FocusScript seededFocus(const sdk::FocusScript& script, uint64_t seed) {
    int64_t cycleNs = 0;
    for (const auto& phase : script.phases()) cycleNs += phase.lengthNs;
    if (seed == 0 || cycleNs < 2 * kMinuteNs) return script;
    SeededNumbers numbers(seed, "focus");
    const auto minutes = static_cast<uint64_t>(cycleNs / kMinuteNs);
    int64_t skipNs = static_cast<int64_t>(numbers.next() % minutes) * kMinuteNs;
    // The phases from `skipNs` into the cycle, then those before it: the same cycle, rotated.
    std::vector<sdk::FocusScript::Phase> head, tail;
    for (const auto& phase : script.phases()) {
        const int64_t before = std::min(phase.lengthNs, std::max<int64_t>(skipNs, 0));
        if (before > 0) head.push_back({before, phase.apps});
        if (phase.lengthNs > before) tail.push_back({phase.lengthNs - before, phase.apps});
        skipNs -= phase.lengthNs;
    }
    tail.insert(tail.end(), head.begin(), head.end());
    return sdk::FocusScript(std::move(tail));
}

}  // namespace sim
