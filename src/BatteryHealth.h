// What the two battery collectors (BatteryStats, BatteryStatsStates) share (library-internal):
// the health HAL 2.1 names they use, the health-record read, the charging test, the
// missing-service log line and the power-source text of a snapshot.
#pragma once

#include <android/hardware/health/2.1/IHealth.h>

#include <string>

#include "ProviderSupport.h"

namespace Vistrel::battery {

using android::hardware::Return;
using android::hardware::health::V1_0::BatteryStatus;
using android::hardware::health::V2_0::Result;
using android::hardware::health::V2_1::HealthInfo;
using android::hardware::health::V2_1::IHealth;

inline bool isChargingStatus(BatteryStatus status) {
    return status == BatteryStatus::CHARGING || status == BatteryStatus::FULL;
}

// getHealthInfo_2_1 into `info`. A read fails when the transport fails or the HAL answers
// anything but SUCCESS; the collectors treat that as an expected, passing condition, so it is
// logged ("getHealthInfo_2_1() failed") at info severity. False on failure.
inline bool readHealthInfo(IHealth& hal, HealthInfo& info) {
    Result result = Result::UNKNOWN;
    const Return<void> ret = hal.getHealthInfo_2_1([&](Result r, const HealthInfo& value) {
        result = r;
        info = value;
    });
    if (!ret.isOk() || result != Result::SUCCESS) {
        logInfo("getHealthInfo_2_1() failed");
        return false;
    }
    return true;
}

// Logged by both collectors when they have no HAL. The state machine uses the health
// collector's text too, so one search for it finds every battery collector left without its
// service.
inline void logHealthMissing() {
    logError("BatteryStats: health not initialized");
}

// Put before the first word only. Writable data, as in the device library. One copy serves both
// collectors: nothing writes it, so sharing it changes nothing a caller sees, and one definition
// keeps the two collectors' power-source texts from ever differing.
inline char kAppendSeparator[] = " ";

// Replaces `target` with `text`, with the separator in front when `target` was empty. The
// previous contents are discarded: the result holds one word, not a list.
inline void append(std::string& target, const char* text) {
    const std::string prefix = target.empty() ? kAppendSeparator : "";
    target = prefix + text;
}

// The power-source step of a snapshot: appends "AC", "USB", "WIRELESS" in that order for each
// charger online, so the scratch text ends up holding the last of them ("NONE" while it has
// never held any) and keeps its old text when none is online; powerSource copies it. Readers
// of the records expect exactly these texts, the blank before the first source seen included.
inline void updatePowerSource(const android::hardware::health::V1_0::HealthInfo& battery,
                              std::string& scratch, std::string& powerSource) {
    if (battery.chargerAcOnline) append(scratch, "AC");
    if (battery.chargerUsbOnline) append(scratch, "USB");
    if (battery.chargerWirelessOnline) append(scratch, "WIRELESS");
    if (scratch.empty()) scratch = "NONE";
    powerSource = scratch;
}

}  // namespace Vistrel::battery
