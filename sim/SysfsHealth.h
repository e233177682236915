// A health HAL 2.1 that reads the Linux power-supply class under the file-system root
// (hostplatform::fsRoot()) as the platform's health daemon does: a workstation's or laptop's own
// /sys, or a tree captured from a headset. Every call reads the files again.
//
//   /sys/class/power_supply/battery/type               "Battery\n"
//   /sys/class/power_supply/battery/status             "Charging\n"   Unknown|Charging|
//                                                                     Discharging|Not charging|Full
//   /sys/class/power_supply/battery/health             "Good\n"       Good|Overheat|Dead|Cold|...
//   /sys/class/power_supply/battery/present            "1\n"
//   /sys/class/power_supply/battery/capacity           "62\n"         percent
//   /sys/class/power_supply/battery/capacity_level     "Normal\n"     Critical|Low|Normal|High|Full
//   /sys/class/power_supply/battery/current_now        "-412000\n"    µA, > 0 while charging on
//                                                                     Android kernels (many laptops
//                                                                     report the discharge > 0)
//   /sys/class/power_supply/battery/current_avg        "-398000\n"    µA
//   /sys/class/power_supply/battery/voltage_now        "3871000\n"    µV (the HAL gives mV)
//   /sys/class/power_supply/battery/charge_counter     "3105000\n"    µAh
//   /sys/class/power_supply/battery/charge_full        "4980000\n"    µAh
//   /sys/class/power_supply/battery/charge_full_design "5000000\n"    µAh
//   /sys/class/power_supply/battery/cycle_count        "112\n"
//   /sys/class/power_supply/battery/temp               "291\n"        tenths of °C
//   /sys/class/power_supply/battery/time_to_full_now   "1800\n"       seconds
//   /sys/class/power_supply/battery/technology         "Li-ion\n"
//   /sys/class/power_supply/usb/type                   "USB\n"        a charger, see below
//   /sys/class/power_supply/usb/online                 "1\n"          0 = not plugged in
//   /sys/class/power_supply/usb/current_max            "1500000\n"    µA
//   /sys/class/power_supply/usb/voltage_max            "5000000\n"    µV
//   /sys/class/power_supply/hid-xx-battery/scope       "Device\n"     a device's own battery
//
// Supplies are taken in name order. Each battery attribute comes from the first "Battery"
// supply that has it, leaving out those whose scope is "Device" (a controller's or a stylus's
// battery). Chargers by type: Mains, UPS, USB_DCP, USB_HVDCP, USB_CDP, USB_ACA, USB_C and USB_PD
// are AC; USB and USB_PD_DRP are USB; Wireless is wireless; Dock has no flag in this HAL version;
// others are ignored. A charger is online when its `online` file starts with anything but '0';
// one without `online` is offline. The charging limits are the current_max / voltage_max pair of
// the online charger with the highest power (voltage 5 V when it has no voltage_max; negative
// limits read as 0).
//
// What is missing reads as the daemon's defaults: status and health UNKNOWN, level, voltage,
// temperature and counters 0, time to full -1 (unsupported), capacity level UNSUPPORTED; the
// single-value getters (current, average current, charge counter, capacity) then answer
// NOT_SUPPORTED. Warm and Cool health count as GOOD, Hot as OVERHEAT.
//
// A file that is there but unusable reads as missing, and is logged once per file and change of
// its contents (tag "SysfsHealth"): a number that is not decimal, does not fit 32 bits or is out
// of its range (capacity 0 to 100; temperature not below absolute zero; voltages, counters,
// charge, cycles, time to full and charger limits not negative), a status, health or capacity
// level outside the tables, an empty online or present. The getter of such a value answers
// UNKNOWN rather than NOT_SUPPORTED, and an unusable capacity makes the health record getters
// answer UNKNOWN (the record would hold a made-up level of 0) and update() push nothing.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HealthHal.h"
#include "SysfsText.h"

namespace sim {

// Parsing of power-supply text, apart from reading it (the contents come from files of any
// origin).
namespace powersupply {

enum class SupplyType { Unknown, Battery, Ac, Usb, Wireless, Dock };

SupplyType supplyTypeOf(std::string_view typeText);
android::hardware::health::V1_0::BatteryStatus statusOf(std::string_view text);
android::hardware::health::V1_0::BatteryHealth healthOf(std::string_view text);
android::hardware::health::V2_1::BatteryCapacityLevel capacityLevelOf(std::string_view text);

// The files read from every supply directory, in the order of kAttributeFiles.
enum Attribute : size_t {
    kType,
    kOnline,
    kPresent,
    kStatus,
    kHealth,
    kCapacity,
    kCurrentNow,
    kCurrentAvg,
    kVoltageNow,
    kChargeCounter,
    kChargeFull,
    kChargeFullDesign,
    kCycleCount,
    kTemp,
    kTechnology,
    kTimeToFullNow,
    kCapacityLevel,
    kCurrentMax,
    kVoltageMax,
    kScope,
    kAttributeCount,
};
extern const char* const kAttributeFiles[kAttributeCount];

// The texts of one supply directory's files, by Attribute; empty for a file that could not be
// read.
using SupplyFiles = std::array<std::optional<std::string>, kAttributeCount>;

// A file a reading could not use, and why ("not a number: '6x'").
struct UnusableFile {
    size_t supply;  // index in the supplies read
    Attribute attribute;
    std::string why;
};

// The health daemon's reading of these supplies (in name order); the files it could not use go
// to `unusable` when given.
HealthReading readingOf(const std::vector<SupplyFiles>& supplies,
                        std::vector<UnusableFile>* unusable = nullptr);

}  // namespace powersupply

class SysfsHealth : public HealthHal {
protected:
    HealthReading read() override;

private:
    sysfs::UnusableFileLog unusable_{sysfs::kHealthLogTag};
};

}  // namespace sim
