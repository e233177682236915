// Seeded variation of the simulated headset, for a lab of headsets that differ. A seed gives each
// part of the headset figures of its own, the same on every run and every platform; seed 0 leaves
// the battery, the thermal scenario and the focus script exactly as configured.
#pragma once

#include <cstdint>
#include <string_view>

#include "InteractiveScript.h"
#include "SimHealth.h"
#include "SimThermal.h"
#include "sdk/SdkControl.h"

namespace sim {

// Numbers drawn from a seed and a purpose (splitmix64 over both), so that every use of the seed
// has a stream of its own and a new use does not shift the others. Never relies on the standard
// library's distributions, whose results differ between implementations.
class SeededNumbers {
public:
    SeededNumbers(uint64_t seed, std::string_view purpose);
    uint64_t next();
    // Uniform in [low, high).
    double uniform(double low, double high);

private:
    uint64_t state_;
};

// Drain currents 0.8 to 1.25 times the script's; a start level up to 90 % that lasts, used as
// `interactive` uses the headset, until the first charger of the plan with at least 6 % left
// (and at least 10 %): a lab's headsets run low, never flat while in use.
BatteryScript seededBattery(BatteryScript script, uint64_t seed,
                            const InteractiveScript& interactive);
// Room 3 °C colder to 3 °C warmer; the heat of use and of charging 0.85 to 1.15 times.
ThermalScript seededThermal(ThermalScript script, uint64_t seed);
// The same cycle of foreground applications, entered at a whole minute of its own.
sdk::FocusScript seededFocus(const sdk::FocusScript& script, uint64_t seed);

}  // namespace sim
