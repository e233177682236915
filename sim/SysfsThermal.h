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
// readable type is skipped; one whose temp is unreadable reports NAN and NONE.
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

// Empty when the zone has no usable type.
std::optional<Zone> parseZone(const ZoneFiles& files);
// Empty when the type is unusable or cur_state is not a non-negative integer.
std::optional<ThermalHal::CoolingDevice> parseCoolingDevice(
        const std::optional<std::string>& type, const std::optional<std::string>& curState);

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
};

}  // namespace sim
