#include "SimHealth.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

using android::hardware::health::V1_0::BatteryHealth;
using android::hardware::health::V1_0::BatteryStatus;
using android::hardware::health::V2_1::BatteryCapacityLevel;
using android::hardware::health::V2_1::HealthInfo;

constexpr int64_t kMinuteNs = INT64_C(60000000000);
constexpr int64_t kStepNs = INT64_C(10000000000);  // integration step: 10 s
constexpr double kNsPerHour = 3600e9;
constexpr int32_t kFullCurrentUa = 50000;  // trickle while plugged in and full

BatteryCapacityLevel capacityLevel(int32_t level) {
    if (level >= 100) return BatteryCapacityLevel::FULL;
    if (level >= 80) return BatteryCapacityLevel::HIGH;
    if (level > 15) return BatteryCapacityLevel::NORMAL;
    if (level > 5) return BatteryCapacityLevel::LOW;
    return BatteryCapacityLevel::CRITICAL;
}

}  // namespace

const char* chargerName(Charger charger) {
    switch (charger) {
        case Charger::Ac:
            return "AC";
        case Charger::Usb:
            return "USB";
        case Charger::Wireless:
            return "WIRELESS";
    }
    return "?";
}

BatteryScript BatteryScript::defaults() {
    BatteryScript script;
    script.startLevelPercent = 27.5;
    script.chargers = {
            {65 * kMinuteNs, 170 * kMinuteNs, Charger::Ac},
            {90 * kMinuteNs, 110 * kMinuteNs, Charger::Usb},
            {200 * kMinuteNs, 230 * kMinuteNs, Charger::Wireless},
    };
    return script;
}

SimHealth::SimHealth(BatteryScript script, std::function<int64_t()> now,
                     std::function<bool(int64_t)> interactiveAt)
    : script_(std::move(script)),
      now_(std::move(now)),
      interactiveAt_(std::move(interactiveAt)),
      integratedToNs_(now_()),
      chargeUah_(script_.capacityUah * std::clamp(script_.startLevelPercent, 0.0, 100.0) / 100.0) {}

void SimHealth::setStatusOverride(std::optional<BatteryStatus> status) {
    threadsafety::MutexLock lock(mutex_);
    statusOverride_ = status;
}

void SimHealth::setHealth(BatteryHealth health) {
    threadsafety::MutexLock lock(mutex_);
    health_ = health;
}

int64_t SimHealth::offsetInCycle(int64_t deviceNs) const {
    const int64_t offset = deviceNs % script_.cycleNs;
    return offset < 0 ? offset + script_.cycleNs : offset;
}

bool SimHealth::chargerOnline(Charger charger, int64_t deviceNs) const {
    const int64_t offset = offsetInCycle(deviceNs);
    return std::any_of(script_.chargers.begin(), script_.chargers.end(), [&](const auto& s) {
        return s.charger == charger && offset >= s.startNs && offset < s.endNs;
    });
}

std::optional<PowerChange> SimHealth::nextPowerChangeAfter(int64_t deviceNs) const {
    const auto anyOnline = [this](int64_t ns) {
        return chargerOnline(Charger::Ac, ns) || chargerOnline(Charger::Usb, ns) ||
               chargerOnline(Charger::Wireless, ns);
    };
    // Candidate instants: every session boundary in this cycle and the next.
    std::vector<std::pair<int64_t, const ChargerSession*>> boundaries;
    const int64_t cycleStart = deviceNs - offsetInCycle(deviceNs);
    for (int64_t start = cycleStart; start <= cycleStart + script_.cycleNs;
         start += script_.cycleNs) {
        for (const auto& s : script_.chargers) {
            boundaries.push_back({start + s.startNs, &s});
            boundaries.push_back({start + s.endNs, &s});
        }
    }
    std::sort(boundaries.begin(), boundaries.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [at, session] : boundaries) {
        if (at <= deviceNs) continue;
        const bool before = anyOnline(at - 1), after = anyOnline(at);
        if (before != after) return PowerChange{at, after, session->charger};
    }
    return std::nullopt;
}

int32_t SimHealth::currentAt(int64_t deviceNs, double chargeUah) const {
    int32_t chargeUa = 0;
    if (chargerOnline(Charger::Ac, deviceNs)) chargeUa = std::max(chargeUa, script_.acChargeUa);
    if (chargerOnline(Charger::Usb, deviceNs)) chargeUa = std::max(chargeUa, script_.usbChargeUa);
    if (chargerOnline(Charger::Wireless, deviceNs)) {
        chargeUa = std::max(chargeUa, script_.wirelessChargeUa);
    }
    if (chargeUa > 0) return chargeUah >= script_.capacityUah ? kFullCurrentUa : chargeUa;
    return -(interactiveAt_(deviceNs) ? script_.activeDrainUa : script_.idleDrainUa);
}

HealthReading SimHealth::readLocked() {
    const int64_t target = now_();
    while (integratedToNs_ < target) {
        const int64_t step = std::min(kStepNs, target - integratedToNs_);
        const int32_t currentUa = currentAt(integratedToNs_, chargeUah_);
        const double delta = currentUa * (static_cast<double>(step) / kNsPerHour);
        const double before = chargeUah_;
        chargeUah_ = std::clamp(chargeUah_ + delta, 0.0, static_cast<double>(script_.capacityUah));
        if (chargeUah_ > before) chargedTotalUah_ += chargeUah_ - before;
        integratedToNs_ += step;
    }

    const int64_t now = integratedToNs_;
    const bool ac = chargerOnline(Charger::Ac, now), usb = chargerOnline(Charger::Usb, now),
               wireless = chargerOnline(Charger::Wireless, now);
    const bool plugged = ac || usb || wireless;
    const auto level =
            static_cast<int32_t>(std::floor(chargeUah_ * 100.0 / script_.capacityUah + 1e-9));
    const int32_t currentUa = currentAt(now, chargeUah_);
    const bool full = plugged && level >= 100;
    BatteryStatus status = full ? BatteryStatus::FULL
                                : (plugged ? BatteryStatus::CHARGING : BatteryStatus::DISCHARGING);
    if (statusOverride_) status = *statusOverride_;

    HealthInfo info{};
    auto& battery = info.legacy.legacy;
    battery.chargerAcOnline = ac;
    battery.chargerUsbOnline = usb;
    battery.chargerWirelessOnline = wireless;
    battery.maxChargingCurrent = ac         ? script_.acChargeUa
                                 : usb      ? script_.usbChargeUa
                                 : wireless ? script_.wirelessChargeUa
                                            : 0;
    battery.maxChargingVoltage = plugged ? 5000000 : 0;
    battery.batteryStatus = status;
    battery.batteryHealth = health_;
    battery.batteryPresent = true;
    battery.batteryLevel = level;
    battery.batteryVoltage = 3500 + 7 * level + (plugged && !full ? 100 : 0);  // mV
    battery.batteryTemperature = 250 + (plugged ? 60 : 0) + (interactiveAt_(now) ? 40 : 0);
    battery.batteryCurrent = currentUa;
    battery.batteryCycleCount = 100 + static_cast<int32_t>(chargedTotalUah_ / script_.capacityUah);
    battery.batteryFullCharge = script_.capacityUah;
    battery.batteryChargeCounter = static_cast<int32_t>(chargeUah_);
    battery.batteryTechnology = "Li-ion";
    info.legacy.batteryCurrentAverage = currentUa;
    info.batteryCapacityLevel = capacityLevel(level);
    if (full) {
        info.batteryChargeTimeToFullNowSeconds = 0;
    } else if (plugged) {
        info.batteryChargeTimeToFullNowSeconds =
                static_cast<int64_t>((script_.capacityUah - chargeUah_) / currentUa * 3600.0);
    } else {
        info.batteryChargeTimeToFullNowSeconds = -1;  // unsupported while discharging
    }
    info.batteryFullChargeDesignCapacityUah = script_.capacityUah;
    HealthReading reading;
    reading.info = info;
    reading.currentNowUa = currentUa;
    reading.currentAverageUa = currentUa;
    reading.chargeCounterUah = battery.batteryChargeCounter;
    reading.capacityPercent = level;
    return reading;
}

HealthReading SimHealth::read() {
    threadsafety::MutexLock lock(mutex_);
    return readLocked();
}

}  // namespace sim
