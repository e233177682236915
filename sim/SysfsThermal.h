// A thermal HAL 2.0 that reads a Linux thermal sysfs tree, under the file-system root
// (hostplatform::fsRoot()): a workstation's own /sys, or a tree captured from a headset.
//
//   /sys/class/thermal/thermal_zone3/type               "cpu-1-0-usr\n"
//   /sys/class/thermal/thermal_zone3/temp               "48300\n"     millidegrees Celsius
//   /sys/class/thermal/thermal_zone3/trip_point_0_type  "passive\n"   active|passive|hot|critical
//   /sys/class/thermal/thermal_zone3/trip_point_0_temp  "95000\n"     millidegrees Celsius
//   /sys/class/thermal/cooling_device0/type             "thermal-cpufreq-0\n"
//   /sys/class/thermal/cooling_device0/cur_state        "2\n"         throttle state, 0 = none
//
// Each zone is one sensor named by its type, in zone number order (two zones may share a
// name). Its value is the temperature in degrees, except for the battery current-limit zones
// (vbat, ibat, soc), which the kernel reports in mV, mA and percent and are passed on as they
// are. Its throttling severity is the highest one of the trip points it has reached, by trip
// type: active LIGHT, passive MODERATE, hot SEVERE, critical SHUTDOWN. A zone without a
// readable type is skipped; one whose temp is unreadable reports NAN (the HAL's "unavailable")
// and NONE.
//
// A file that is there but unusable is logged once per file and change of its contents (tag
// "SysfsThermal"), and read as missing: an empty zone or cooling-device type, a temperature that
// is not a decimal number or out of range (below absolute zero or above 1000 degrees; a battery
// percentage outside 0 to 100; a negative battery voltage), a trip point of an unknown type or an
// unusable temperature, a cur_state that is not a number or is negative. A cooling device whose
// cur_state is unusable is left out.
//
// Zone type -> TemperatureType, by the lower-case type's prefix, first match wins; anything
// else is UNKNOWN:
//
//   vbat            BCL_VOLTAGE        gpu                  GPU
//   ibat            BCL_CURRENT        battery, bms         BATTERY
//   soc             BCL_PERCENTAGE     skin, xo-therm       SKIN
//   cpu, apc,       CPU                usb                  USB_PORT
//   x86_pkg                            pa-therm, pa_therm   POWER_AMPLIFIER
//                                      npu, nsp             NPU
//
// Cooling-device type -> CoolingType, by a part of the lower-case type: fan FAN, cpu CPU,
// gpu or kgsl GPU, battery or charge BATTERY, modem MODEM, npu or cdsp NPU, else COMPONENT.
//
// A throttling callback fires when a zone's severity has risen since the previous read of the
// temperatures. Thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "SysfsText.h"
#include "ThermalHal.h"
#include "ThreadSafety.h"

namespace sim {

// Parsing of thermal sysfs text (helpers in SysfsText.h), apart from reading it.
namespace sysfs {

ThermalHal::TemperatureType zoneTypeOf(std::string_view zoneType);
ThermalHal::CoolingType coolingTypeOf(std::string_view deviceType);

// The texts of one thermal zone's files; a file that could not be read is empty.
struct ZoneFiles {
    std::optional<std::string> type;
    std::optional<std::string> temp;
    std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>>
            trips;  // type, temp
};

struct Zone {
    ThermalHal::Temperature temperature;
    ThermalHal::TemperatureThreshold threshold;
};

// Files of a zone or cooling device that could not be used: the file's name in the entry's
// directory ("temp", "trip_point_0_type"), and why.
using UnusableFiles = std::vector<std::pair<std::string, std::string>>;

// Empty when the zone has no usable type. The unusable files go to `unusable` when given.
std::optional<Zone> parseZone(const ZoneFiles& files, UnusableFiles* unusable = nullptr);
// Empty when the type is unusable or cur_state is not a non-negative integer.
std::optional<ThermalHal::CoolingDevice> parseCoolingDevice(
        const std::optional<std::string>& type, const std::optional<std::string>& curState,
        UnusableFiles* unusable = nullptr);

}  // namespace sysfs

class SysfsThermal : public ThermalHal {
protected:
    ThermalStatus readTemperatures(std::vector<Temperature>& out) override EXCLUDES(mutex_);
    ThermalStatus readCoolingDevices(std::vector<CoolingDevice>& out) override;
    ThermalStatus readThresholds(std::vector<TemperatureThreshold>& out) override;

private:
    // Every zone in zone number order, with its directory name; FAILURE without the directory.
    ThermalStatus readZones(std::vector<std::pair<std::string, sysfs::Zone>>& zones);

    threadsafety::Mutex mutex_;
    std::map<std::string, int32_t> lastSeverity_ GUARDED_BY(mutex_);  // by zone directory
    sysfs::UnusableFileLog unusableLog_{sysfs::kThermalLogTag};
};

}  // namespace sim
