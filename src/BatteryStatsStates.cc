#include "BatteryStatsStates.h"

#include "BatteryHealth.h"
#include "ProviderSupport.h"
#include "vistrelcore/PowerManager.h"

namespace Vistrel {
namespace {

using namespace battery;

constexpr int32_t kFullLevel = 90;  // percent
constexpr int32_t kLowLevel = 3;    // percent
constexpr float kUnknownLevel = -1.0f;

}  // namespace

BatteryStatsStates::~BatteryStatsStates() = default;

const char* BatteryStatsStates::name() const {
    return "BatteryStatsStates";
}

SamplePeriod BatteryStatsStates::sampleRate() const {
    return std::chrono::milliseconds(60000);
}

bool BatteryStatsStates::isActive(BatteryState state) {
    return static_cast<uint32_t>(state) < 2;
}

bool BatteryStatsStates::isCharging(BatteryState state) {
    return (static_cast<uint32_t>(state) & ~UINT32_C(2)) == 1;
}

void BatteryStatsStates::createFSM(IClockReader& clock) {
    using S = BatteryState;
    const auto chargeStart = [this] { chargeStartEvent(); };
    const auto chargeEnd = [this] { chargeEndEvent(); };
    const auto activeStart = [this] { activeStartEvent(); };
    const auto activeEnd = [this] { activeEndEvent(); };
    const auto none = [this] { nullEvent(); };
    const auto shutdown = [this] { shutdownEvent(); };
    const auto full = [this] { batteryFullEvent(); };
    transitions = TransitionTable{
            {{"PowerConnected", S::ActiveDischarging}, {S::ActiveCharging, chargeStart}},
            {{"PowerDisconnected", S::ActiveDischarging}, {S::ActiveDischarging, none}},
            {{"ScreenOff", S::ActiveDischarging}, {S::InactiveDischarging, activeEnd}},
            {{"ScreenOn", S::ActiveDischarging}, {S::ActiveDischarging, none}},
            {{"BatteryLow", S::ActiveDischarging}, {S::ActiveDischarging, shutdown}},
            {{"PowerConnected", S::InactiveDischarging}, {S::InactiveCharging, chargeStart}},
            {{"PowerDisconnected", S::InactiveDischarging}, {S::InactiveDischarging, none}},
            {{"ScreenOff", S::InactiveDischarging}, {S::InactiveDischarging, none}},
            {{"ScreenOn", S::InactiveDischarging}, {S::ActiveDischarging, activeStart}},
            {{"BatteryLow", S::InactiveDischarging}, {S::InactiveDischarging, shutdown}},
            // Connecting while already charging runs chargeStartEvent again.
            {{"PowerConnected", S::ActiveCharging}, {S::ActiveCharging, chargeStart}},
            {{"PowerDisconnected", S::ActiveCharging}, {S::ActiveDischarging, chargeEnd}},
            {{"ScreenOff", S::ActiveCharging}, {S::InactiveCharging, activeEnd}},
            {{"ScreenOn", S::ActiveCharging}, {S::ActiveCharging, none}},
            {{"BatteryLow", S::ActiveCharging}, {S::ActiveCharging, shutdown}},
            {{"BatteryFull", S::ActiveCharging}, {S::ActiveCharging, full}},
            {{"PowerConnected", S::InactiveCharging}, {S::InactiveCharging, chargeStart}},
            {{"PowerDisconnected", S::InactiveCharging}, {S::InactiveDischarging, chargeEnd}},
            {{"ScreenOff", S::InactiveCharging}, {S::InactiveCharging, none}},
            {{"ScreenOn", S::InactiveCharging}, {S::ActiveCharging, activeStart}},
            {{"BatteryLow", S::InactiveCharging}, {S::InactiveCharging, shutdown}},
            {{"BatteryFull", S::InactiveCharging}, {S::InactiveCharging, full}},
    };
    currentState = S::InactiveCharging;
    stateStartStamp = clock.readTimestamp();
}

void BatteryStatsStates::setInitialBatteryState() {
    if (healthService == nullptr) return;
    HealthInfo info{};
    if (!readHealthInfo(*healthService, info)) return;
    isChargingNow = isChargingStatus(info.legacy.legacy.batteryStatus);
    PowerManager powerManager;
    if (powerManager.getIsInteractive()) {
        currentState =
                isChargingNow ? BatteryState::ActiveCharging : BatteryState::ActiveDischarging;
    } else {
        currentState =
                isChargingNow ? BatteryState::InactiveCharging : BatteryState::InactiveDischarging;
    }
}

bool BatteryStatsStates::acquireResources(NotificationRouter, IClockReader& clock) {
    createFSM(clock);
    lastSnapshotNs = clock.nowNs();
    if (healthService == nullptr) {
        healthService = IHealth::getService("default", false);
        if (healthService == nullptr) {
            logError("BatteryStatsStates: health HAL V2.1 not available or dead");
            return false;
        }
    }
    setInitialBatteryState();
    return true;
}

void BatteryStatsStates::notify(const std::string& name, const std::string&, IClockReader& clock) {
    const auto entry = transitions.find({name, currentState});
    if (entry == transitions.end()) return;
    const BatteryStateTransition transition = entry->second;

    previousState = currentState;
    previousStateStartStamp = stateStartStamp;
    stateStartStamp = clock.readTimestamp();
    currentState = transition.nextState;
    previousStatePowerSource = statePowerSource;
    statePowerSource = "";

    if (healthService == nullptr) {
        logHealthMissing();
        return;
    }
    HealthInfo info{};
    if (!readHealthInfo(*healthService, info)) return;
    const float newLevel = static_cast<float>(info.legacy.legacy.batteryLevel);
    previousLevelAtEvent = levelAtEvent == kUnknownLevel ? newLevel : levelAtEvent;
    levelAtEvent = newLevel;

    transition.action();
}

std::optional<Notification> BatteryStatsStates::sample(IClockReader&) {
    if (healthService == nullptr) {
        logHealthMissing();
        return std::nullopt;
    }
    HealthInfo info{};
    if (!readHealthInfo(*healthService, info)) return std::nullopt;
    const int32_t level = info.legacy.legacy.batteryLevel;
    const BatteryStatus status = info.legacy.legacy.batteryStatus;

    std::optional<Notification> result;
    if (lastSampledLevel != -1 && !fullReported && level >= kFullLevel) {
        result = Notification{"BatteryFull", "BatteryStateCollector"};
    } else if (level <= kLowLevel && level != lastSampledLevel &&
               status == BatteryStatus::DISCHARGING) {
        result = Notification{"BatteryLow", "BatteryExtremeLow"};
    }
    lastSampledLevel = level;
    fullReported = level >= kFullLevel;
    return result;
}

bool BatteryStatsStates::snapshot(IClockReader& clock, bool force) {
    if (force) forceSample(*this, clock, "BatteryStatsStates: force sampled in snapshot");
    if (healthService == nullptr) {
        logHealthMissing();
        return false;
    }
    HealthInfo info{};
    if (!readHealthInfo(*healthService, info)) return false;
    const auto& battery = info.legacy.legacy;

    isChargingNow = isChargingStatus(battery.batteryStatus);
    updatePowerSource(battery, powerSourceScratch, powerSource);
    if (statePowerSource.empty()) statePowerSource = powerSource;

    const float level = static_cast<float>(battery.batteryLevel);
    if (levelAtEvent == kUnknownLevel) levelAtEvent = level;
    if (previousLevelAtEvent == kUnknownLevel) previousLevelAtEvent = level;

    previousFullChargeMah = fullChargeMah;
    previousChargeCounterMah = chargeCounterMah;
    fullChargeMah = static_cast<float>(battery.batteryFullCharge) / 1000.0f;
    chargeCounterMah = static_cast<float>(battery.batteryChargeCounter) / 1000.0f;
    chargeTimeToFullSeconds = static_cast<float>(info.batteryChargeTimeToFullNowSeconds);

    lastSnapshotNs = clock.nowNs();
    return true;
}

void BatteryStatsStates::shutdownEvent() {
    logInfo("BatteryStatsStates::shutdownEvent()");
}

void BatteryStatsStates::chargeStartEvent() {
    logInfo("BatteryStatsStates::chargeStartEvent()");
}

void BatteryStatsStates::chargeEndEvent() {
    logInfo("BatteryStatsStates::chargeEndEvent()");
}

void BatteryStatsStates::activeStartEvent() {
    logInfo("BatteryStatsStates::activeStartEvent()");
}

void BatteryStatsStates::activeEndEvent() {
    logInfo("BatteryStatsStates::activeEndEvent()");
}

void BatteryStatsStates::nullEvent() {
    logInfo("BatteryStatsStates::nullEvent()");
}

void BatteryStatsStates::batteryFullEvent() {
    logInfo("BatteryStatsStates::batteryFullEvent()");
}

}  // namespace Vistrel
