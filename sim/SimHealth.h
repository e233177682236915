// The simulated headset's health HAL 2.1: a battery that drains while the device runs (faster
// while interactive) and charges while a charger (AC, USB, wireless) is plugged in, following a
// cyclic charger plan over device time. Status and health can be steered by tests or tools.
//
// Device time only moves forward: every HAL call first integrates the battery's charge up to
// "now" in steps of at most 10 s, using the chargers and the interactive state at each step's
// start. The HAL methods and callbacks are HealthHal's, answering from that reading. Thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "HealthHal.h"
#include "ThreadSafety.h"

namespace sim {

enum class Charger { Ac, Usb, Wireless };

// "AC", "USB" or "WIRELESS".
const char* chargerName(Charger charger);

// A charger plugged in over [startNs, endNs) of every cycle of the plan.
struct ChargerSession {
    int64_t startNs;
    int64_t endNs;
    Charger charger;
};

struct BatteryScript {
    double startLevelPercent = 50.0;
    int64_t cycleNs = INT64_C(14400000000000);  // the charger plan repeats every 4 h
    std::vector<ChargerSession> chargers;       // within [0, cycleNs)
    int32_t capacityUah = 5000000;
    // Currents in µA: drain while interactive / idle; charge per charger (the strongest plugged
    // charger wins).
    int32_t activeDrainUa = 1500000;
    int32_t idleDrainUa = 250000;
    int32_t acChargeUa = 3000000;
    int32_t usbChargeUa = 1250000;
    int32_t wirelessChargeUa = 750000;

    // Starts at 27.5 % and, used as the default interactive script says, drains to 3 % (the
    // library's extreme low) at 1:04, a minute before it charges on AC from 1:05 to
    // 2:50 (USB also plugged 1:30-1:50) through 90 % to full, drains again and charges
    // wirelessly from 3:20 to 3:50 back above 90 %. Charger changes avoid the whole and
    // 40-minute marks of the default interactive script, so no two host events coincide.
    static BatteryScript defaults();
};

// A moment at which the first charger is plugged in or the last one is unplugged.
struct PowerChange {
    int64_t atNs;
    bool connected;
    Charger charger;  // the charger that was plugged in or unplugged
};

class SimHealth : public HealthHal {
public:
    using BatteryStatus = android::hardware::health::V1_0::BatteryStatus;
    using BatteryHealth = android::hardware::health::V1_0::BatteryHealth;

    // `now`: device time in ns; `interactiveAt`: whether the device is in use at a device time.
    SimHealth(BatteryScript script, std::function<int64_t()> now,
              std::function<bool(int64_t)> interactiveAt);

    // Steering: a forced status (empty: derived from chargers and level) and the health value.
    void setStatusOverride(std::optional<BatteryStatus> status) EXCLUDES(mutex_);
    void setHealth(BatteryHealth health) EXCLUDES(mutex_);

    bool chargerOnline(Charger charger, int64_t deviceNs) const;
    // The first change strictly after `deviceNs` of "any charger plugged in", if any.
    std::optional<PowerChange> nextPowerChangeAfter(int64_t deviceNs) const;

protected:
    HealthReading read() override EXCLUDES(mutex_);

private:
    // Integrates the charge up to now() and returns the reading at that instant.
    HealthReading readLocked() REQUIRES(mutex_);
    // Battery current at `deviceNs` for the given charge (µA, positive while charging).
    int32_t currentAt(int64_t deviceNs, double chargeUah) const;
    int64_t offsetInCycle(int64_t deviceNs) const;

    const BatteryScript script_;
    const std::function<int64_t()> now_;
    const std::function<bool(int64_t)> interactiveAt_;

    threadsafety::Mutex mutex_;
    int64_t integratedToNs_ GUARDED_BY(mutex_);
    double chargeUah_ GUARDED_BY(mutex_);
    double chargedTotalUah_ GUARDED_BY(mutex_) = 0;  // for the cycle count
    std::optional<BatteryStatus> statusOverride_ GUARDED_BY(mutex_);
    BatteryHealth health_ GUARDED_BY(mutex_) = BatteryHealth::GOOD;
};

}  // namespace sim
