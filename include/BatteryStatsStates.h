// BatteryStatsStates: follows the device through four battery/usage states (screen active or
// not, charging or not), driven by routed notifications, and raises "BatteryFull" and
// "BatteryLow" from the health HAL 2.1's battery level.
//
// notify() looks (event name, current state) up in the transition table built by createFSM();
// a hit moves the state (a self-transition counts as a move: stamps, previous values and the
// power-source fields advance), reads the battery level and runs the entry's action, which logs
// its own name. sample() (60 s) returns ("BatteryFull", "BatteryStateCollector") once per rise to
// 90 % or above, and ("BatteryLow", "BatteryExtremeLow") once per new level at or below 3 % while
// discharging. snapshot() refreshes power source, capacities and charge time.
//
// Host obligations: acquireResources() before notify() matters (the table is empty until then);
// calls are not synchronised.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include <android/hardware/health/2.1/IHealth.h>
#include <utils/StrongPointer.h>

#include "Provider.h"

namespace Vistrel {

enum class BatteryState : int32_t {
    ActiveDischarging = 0,
    ActiveCharging = 1,
    InactiveDischarging = 2,
    InactiveCharging = 3,
};

struct BatteryStateTransition {
    BatteryState nextState;
    std::function<void()> action;  // never empty in the table
};

class BatteryStatsStates : public Provider {
public:
    // Ordered by event name (byte-wise), then by state value.
    using TransitionTable = std::map<std::pair<std::string, BatteryState>, BatteryStateTransition>;

    BatteryStatsStates() = default;
    ~BatteryStatsStates() override;

    const char* name() const override;
    // Rebuilds the table and resets the state (every call), stamps lastSnapshotNs, connects to
    // the health HAL unless connected, then derives the starting state. The router is not kept.
    bool acquireResources(NotificationRouter router, IClockReader& clock) override;
    // With force: samples first (dropping its notification). False without a HAL or when the
    // health read fails. Does not require a previous sample.
    bool snapshot(IClockReader& clock, bool force) override;
    std::optional<Notification> sample(IClockReader& clock) override;
    // `detail` is not used.
    void notify(const std::string& name, const std::string& detail, IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // Replaces the table with its 22 entries; state InactiveCharging stamped with readTimestamp().
    void createFSM(IClockReader& clock);
    // Derives the state from the HAL's charging status and a PowerManager's interactivity; keeps
    // the state when there is no HAL or the read fails. Does not touch stateStartStamp.
    void setInitialBatteryState();

    static bool isCharging(BatteryState state);  // ActiveCharging or InactiveCharging
    static bool isActive(BatteryState state);    // ActiveDischarging or ActiveCharging

    // Table actions: each logs its own name at info.
    void shutdownEvent();
    void chargeStartEvent();
    void chargeEndEvent();
    void activeStartEvent();
    void activeEndEvent();
    void nullEvent();
    void batteryFullEvent();

    // Members in their fixed order; -1 marks a value not yet known.
    BatteryState currentState = BatteryState::ActiveDischarging;
    BatteryState previousState = BatteryState::ActiveDischarging;
    TransitionTable transitions;
    std::string powerSourceScratch;        // working text of the power-source step; never cleared
    std::string powerSource;               // of the last snapshot, or "NONE"
    std::string statePowerSource;          // first snapshot's power source in this state, or ""
    std::string previousStatePowerSource;  // statePowerSource of the previous state
    int64_t stateStartStamp = 0;           // readTimestamp() when the current state began
    int64_t previousStateStartStamp = 0;
    float levelAtEvent = -1.0f;  // percent, read at the last transition
    float previousLevelAtEvent = -1.0f;
    bool fullReported = false;  // the last sample saw level >= 90
    int32_t lastSampledLevel = -1;
    float chargeTimeToFullSeconds = 0;
    bool isChargingNow = false;  // batteryStatus CHARGING (2) or FULL (5)
    float fullChargeMah = 0, chargeCounterMah = 0;
    float previousFullChargeMah = 0, previousChargeCounterMah = 0;
    int64_t lastSnapshotNs = 0;  // nowNs() at acquire and each successful snapshot
    android::sp<android::hardware::health::V2_1::IHealth> healthService;  // null until acquired
};

}  // namespace Vistrel
