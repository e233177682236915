// BatteryStats: follows the battery through the health HAL 2.1 (instance "default").
//
// Every sample (10 s) refreshes the HAL, reads the instantaneous current and the health record,
// and pushes current (mA) and voltage (mV) into two rings of kRingSize entries. It returns
// ("HealthInfo", "BatteryCollector") when status, health or level differ from the last
// snapshot's, when 601 s or more have passed since the last snapshot (or the acquire), and on the
// first successful sample of the process. snapshot() turns the newest health record and the
// rings into the record below; it fails until one sample has succeeded.
//
// Process-wide: the first-sample and first-snapshot flags are shared by every instance and are
// never reset. Calls are not synchronised; the host serialises them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <android/hardware/health/2.1/IHealth.h>
#include <utils/StrongPointer.h>

#include "Provider.h"

namespace Vistrel {

class BatteryStats : public Provider {
public:
    static constexpr int32_t kRingSize = 200;

    BatteryStats() = default;
    ~BatteryStats() override;

    const char* name() const override;
    // Stamps lastSnapshotNs with nowNs() (always), then connects to the health HAL unless already
    // connected. The router is not kept.
    bool acquireResources(NotificationRouter router, IClockReader& clock) override;
    // With force: samples first (dropping its notification). False before any successful
    // sample, without a HAL, or when the health read fails; the record keeps its values then.
    bool snapshot(IClockReader& clock, bool force) override;
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // Members in their fixed order. The host reads the record, isCharging through the voltage
    // statistics, after a successful snapshot(); the rest is working state.
    bool isCharging = false;         // batteryStatus is CHARGING (2) or FULL (5)
    std::string powerSourceScratch;  // working text of the power-source step; never cleared
    std::string powerSource;         // copy of the scratch text, or "NONE"
    std::string statusText;          // name of batteryStatus ("?!?" unnamed, "???" beyond)
    std::string healthText;          // name of batteryHealth
    int32_t health = 0;              // raw batteryHealth
    int32_t status = 0;              // raw batteryStatus
    float level = 0;                 // percent
    float previousLevel = 0;         // level before the latest snapshot
    float chargeTimeToFullSeconds = 0;
    float fullChargeMah = 0;
    float previousFullChargeMah = 0;  // fullChargeMah before it last changed
    float chargeCounterMah = 0;
    float previousChargeCounterMah = 0;  // chargeCounterMah before it last changed
    int32_t cycleCount = 0;
    float currentLastMa = 0, currentMaxMa = 0, currentMinMa = 0, currentAvgMa = 0;
    float voltageLastMv = 0, voltageMaxMv = 0, voltageMinMv = 0, voltageAvgMv = 0;
    // Always 0.0. The host reads the members at their fixed positions, so the slot stays.
    float reserved[8] = {};
    int32_t ringIndex = 0;  // next write position in both rings
    int32_t ringCount = 0;  // valid entries, saturating at kRingSize
    float currentRingMa[kRingSize] = {};
    float voltageRingMv[kRingSize] = {};
    int64_t lastSnapshotNs = 0;  // nowNs() of the last successful snapshot or acquire
    android::sp<android::hardware::health::V2_1::IHealth> healthService;  // null until acquired
};

}  // namespace Vistrel
