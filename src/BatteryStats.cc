#include "BatteryStats.h"

#include <algorithm>
#include <cstddef>

#include "BatteryHealth.h"
#include "ProviderSupport.h"
#include "Timing.h"

namespace Vistrel {
namespace {

using namespace battery;

constexpr int64_t kChangeIntervalNs = INT64_C(601000000000);  // 601 s

// Index = raw HAL value. "?!?": inside the table but unnamed; "???": beyond the table.
const char* const kStatusNames[] = {"?!?",          "UNKNOWN", "CHARGING", "DISCHARGING",
                                    "NOT_CHARGING", "FULL",    "?!?"};
const char* const kHealthNames[] = {
        "?!?",  "UNKNOWN", "GOOD", "OVERHEAT", "DEAD", "OVER_VOLTAGE", "UNSPECIFIED_FAILURE",
        "COLD", "?!?"};

template <size_t N>
const char* nameOf(const char* const (&table)[N], int32_t value) {
    // Unsigned, so negative values land beyond the table.
    return static_cast<uint32_t>(value) <= N - 1 ? table[value] : "???";
}

// Process-wide one-shot flags, shared by every instance.
bool firstSampleDone = false;
bool firstSnapshotDone = false;

bool updateHealth(IHealth& hal) {
    Return<Result> result = hal.update();
    if (!result.isOk() || static_cast<Result>(result) != Result::SUCCESS) {
        logError("BatteryStats: health->update() failed");
        return false;
    }
    return true;
}

bool readCurrentNow(IHealth& hal, int64_t& currentUa) {
    Result result = Result::UNKNOWN;
    currentUa = -1;
    const Return<void> ret = hal.getCurrentNow([&](Result r, int32_t value) {
        result = r;
        currentUa = value;
    });
    if (!ret.isOk() || result != Result::SUCCESS) {
        logInfo("getCurrentNow() failed");
        return false;
    }
    return true;
}

struct RingStatistics {
    float last, max, min, average;
};

// Statistics of the newest `count` entries of `ring`, whose next write position is `next`.
RingStatistics ringStatistics(const float (&ring)[BatteryStats::kRingSize], int32_t next,
                              int32_t count) {
    constexpr int32_t size = BatteryStats::kRingSize;
    int32_t index = (next + size - 1) % size;
    const float newest = ring[index];
    RingStatistics s{newest, newest, newest, 0};
    float sum = newest;
    for (int32_t i = 1; i < count; ++i) {
        index = (index + size - 1) % size;
        const float value = ring[index];
        sum += value;
        if (value > s.max) s.max = value;
        if (value < s.min) s.min = value;
    }
    s.average = sum / static_cast<float>(count);
    return s;
}

}  // namespace

BatteryStats::~BatteryStats() = default;

const char* BatteryStats::name() const {
    return "BatteryStats";
}

SamplePeriod BatteryStats::sampleRate() const {
    return std::chrono::milliseconds(10000);
}

bool BatteryStats::acquireResources(NotificationRouter, IClockReader& clock) {
    lastSnapshotNs = clock.nowNs();
    if (healthService != nullptr) return true;
    healthService = IHealth::getService("default", false);
    if (healthService == nullptr) {
        logError("BatteryStats: health not initialized or service died");
        return false;
    }
    return true;
}

std::optional<Notification> BatteryStats::sample(IClockReader& clock) {
    if (healthService == nullptr) {
        logHealthMissing();
        return std::nullopt;
    }
    if (!updateHealth(*healthService)) return std::nullopt;
    const int64_t now = clock.nowNs();
    int64_t currentUa = -1;
    if (!readCurrentNow(*healthService, currentUa)) return std::nullopt;
    HealthInfo info{};
    if (!readHealthInfo(*healthService, info)) return std::nullopt;
    const auto& battery = info.legacy.legacy;

    voltageRingMv[ringIndex] = static_cast<float>(battery.batteryVoltage);
    currentRingMa[ringIndex] = static_cast<float>(static_cast<double>(currentUa) / 1000.0);

    // Against the last snapshot's values, not the last sample's.
    const bool changed = difference(now, lastSnapshotNs) >= kChangeIntervalNs ||
                         static_cast<int32_t>(battery.batteryStatus) != status ||
                         static_cast<int32_t>(battery.batteryHealth) != health ||
                         static_cast<float>(battery.batteryLevel) != level;

    ringCount = std::min(ringCount + 1, kRingSize);
    ringIndex = (ringIndex + 1) % kRingSize;

    if (!changed && firstSampleDone) return std::nullopt;
    firstSampleDone = true;
    return Notification{"HealthInfo", "BatteryCollector"};
}

bool BatteryStats::snapshot(IClockReader& clock, bool force) {
    if (force) forceSample(*this, clock, "BatteryStats: force sampled in snapshot");
    if (ringCount == 0) return false;
    if (healthService == nullptr) {
        logHealthMissing();
        return false;
    }
    HealthInfo info{};
    if (!readHealthInfo(*healthService, info)) return false;
    const auto& battery = info.legacy.legacy;

    status = static_cast<int32_t>(battery.batteryStatus);
    health = static_cast<int32_t>(battery.batteryHealth);
    isCharging = isChargingStatus(battery.batteryStatus);
    healthText = nameOf(kHealthNames, health);
    statusText = nameOf(kStatusNames, status);

    updatePowerSource(battery, powerSourceScratch, powerSource);

    previousLevel = level;
    level = static_cast<float>(battery.batteryLevel);
    const float fullCharge = static_cast<float>(battery.batteryFullCharge) / 1000.0f;
    if (fullCharge != fullChargeMah) {
        previousFullChargeMah = fullChargeMah;
        fullChargeMah = fullCharge;
    }
    const float chargeCounter = static_cast<float>(battery.batteryChargeCounter) / 1000.0f;
    if (chargeCounter != chargeCounterMah) {
        previousChargeCounterMah = chargeCounterMah;
        chargeCounterMah = chargeCounter;
    }
    chargeTimeToFullSeconds = static_cast<float>(info.batteryChargeTimeToFullNowSeconds);

    if (!firstSnapshotDone) {
        firstSnapshotDone = true;
        previousLevel = level;
        previousFullChargeMah = fullChargeMah;
        previousChargeCounterMah = chargeCounterMah;
    }

    cycleCount = battery.batteryCycleCount;
    std::fill(std::begin(reserved), std::end(reserved), 0.0f);

    const RingStatistics current = ringStatistics(currentRingMa, ringIndex, ringCount);
    currentLastMa = current.last;
    currentMaxMa = current.max;
    currentMinMa = current.min;
    currentAvgMa = current.average;
    const RingStatistics voltage = ringStatistics(voltageRingMv, ringIndex, ringCount);
    voltageLastMv = voltage.last;
    voltageMaxMv = voltage.max;
    voltageMinMv = voltage.min;
    voltageAvgMv = voltage.average;

    lastSnapshotNs = clock.nowNs();
    return true;
}

}  // namespace Vistrel
