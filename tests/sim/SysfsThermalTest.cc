// The sysfs thermal HAL against the hand-made headset tree, and its parsing of sysfs text.
#include "SysfsThermal.h"

#include <gtest/gtest.h>

#include <cmath>

#include "FakeThermal.h"
#include "FixtureTree.h"

namespace {

using sim::SysfsThermal;
using sim::ThermalHal;
using testing_support::FixtureTree;
using testing_support::RecordingThermalCallback;
using Code = android::hardware::thermal::V1_0::ThermalStatusCode;
using Status = android::hardware::thermal::V1_0::ThermalStatus;
using Type = ThermalHal::TemperatureType;
using Cooling = ThermalHal::CoolingType;
using Severity = android::hardware::thermal::V2_0::ThrottlingSeverity;
namespace sysfs = sim::sysfs;

const std::string kZones = "/sys/class/thermal/thermal_zone";

std::vector<ThermalHal::Temperature> temperatures(ThermalHal& hal, Status* status = nullptr) {
    std::vector<ThermalHal::Temperature> all;
    EXPECT_TRUE(
            hal.getCurrentTemperatures(false, Type::UNKNOWN, [&](const Status& s, const auto& list) {
                   if (status) *status = s;
                   all = list;
               }).isOk());
    return all;
}

TEST(SysfsThermal, ReadsTheCapturedHeadsetTree) {
    FixtureTree tree("thermal-headset");
    android::sp<SysfsThermal> hal = new SysfsThermal;
    const auto all = temperatures(*hal);
    ASSERT_EQ(all.size(), 17u);
    const auto at = [&](size_t zone, const char* name, Type type, float value) {
        EXPECT_EQ(all[zone].name, name) << zone;
        EXPECT_EQ(all[zone].type, type) << name;
        EXPECT_FLOAT_EQ(all[zone].value, value) << name;
    };
    at(0, "aoss0-usr", Type::UNKNOWN, 38.1f);
    at(1, "cpu-0-0-usr", Type::CPU, 48.3f);
    at(5, "gpuss-0-usr", Type::GPU, 49.4f);
    at(7, "nspss-0-usr", Type::NPU, 41.2f);
    at(8, "skin-msm-therm", Type::SKIN, 36.4f);
    at(9, "battery", Type::BATTERY, 33.5f);
    at(10, "usb-conn-therm", Type::USB_PORT, 31.0f);
    at(11, "vbat", Type::BCL_VOLTAGE, 3850);  // mV, as the kernel gives it
    at(13, "soc", Type::BCL_PERCENTAGE, 62);
    at(14, "xo-therm", Type::SKIN, 34.8f);
    EXPECT_EQ(all[16].name, "camera-therm");
    EXPECT_TRUE(std::isnan(all[16].value)) << "an unreadable temp is NAN";
    EXPECT_EQ(all[8].throttlingStatus, Severity::LIGHT) << "past its active trip";
    EXPECT_EQ(all[1].throttlingStatus, Severity::NONE);

    std::vector<std::tuple<std::string, Cooling, uint64_t>> devices;
    hal->getCurrentCoolingDevices(false, Cooling::FAN, [&](const Status& s, const auto& list) {
        EXPECT_EQ(s.code, Code::SUCCESS);
        for (const auto& d : list) devices.emplace_back(d.name, d.type, d.value);
    });
    EXPECT_EQ(devices, (decltype(devices){{"thermal-cpufreq-0", Cooling::CPU, 0},
                                          {"thermal-cpufreq-4", Cooling::CPU, 2},
                                          {"gpu", Cooling::GPU, 1},
                                          {"pwm-fan", Cooling::FAN, 2},
                                          {"cdsp", Cooling::NPU, 0},
                                          {"battery", Cooling::BATTERY, 0},
                                          {"panel0-backlight", Cooling::COMPONENT, 0},
                                          {"modem_tj", Cooling::MODEM, 0}}));

    hal->getTemperatureThresholds(true, Type::SKIN, [](const Status&, const auto& list) {
        ASSERT_EQ(list.size(), 2u);
        const auto& hot = list[0].hotThrottlingThresholds;
        EXPECT_EQ(std::vector<float>({hot[1], hot[2], hot[3]}), (std::vector<float>{36, 41, 45}));
        EXPECT_TRUE(std::isnan(hot[0]) && std::isnan(hot[6]));
    });
}

TEST(SysfsThermal, ASeverityRiseBetweenReadsCallsBackOnce) {
    FixtureTree tree("thermal-headset");
    android::sp<SysfsThermal> hal = new SysfsThermal;
    android::sp<RecordingThermalCallback> callback = new RecordingThermalCallback;
    hal->registerThermalChangedCallback(callback, false, Type::UNKNOWN, [](const Status&) {});
    temperatures(*hal);
    tree.write(kZones + "3/temp", "96000\n");  // past the passive trip
    temperatures(*hal);
    temperatures(*hal);
    tree.write(kZones + "3/temp", "52000\n");
    temperatures(*hal);
    EXPECT_EQ(callback->received(), (std::vector<std::string>{"cpu-1-0-usr:MODERATE"}));
}

TEST(SysfsThermal, MissingTreeFailsAndUnusableEntriesAreSkipped) {
    FixtureTree tree("");
    android::sp<SysfsThermal> hal = new SysfsThermal;
    Status status{};
    EXPECT_TRUE(temperatures(*hal, &status).empty());
    EXPECT_EQ(status.code, Code::FAILURE);
    EXPECT_EQ(status.debugMessage, "cannot read /sys/class/thermal: No such file or directory");

    tree.write(kZones + "2/temp", "1000\n");  // no type: skipped
    tree.write(kZones + "x/type", "cpu\n");   // not numbered: skipped
    tree.write(kZones + "10/type", "\n");     // blank type: skipped
    tree.write(kZones + "11/type", "CPU-big\n");
    tree.write("/sys/class/thermal/cooling_device0/type", "fan\n");
    tree.write("/sys/class/thermal/cooling_device0/cur_state", "-1\n");
    const auto all = temperatures(*hal, &status);
    EXPECT_EQ(status.code, Code::SUCCESS);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].type, Type::CPU) << "types match regardless of case";
    hal->getCurrentCoolingDevices(false, Cooling::FAN, [](const Status& s, const auto& list) {
        EXPECT_EQ(s.code, Code::SUCCESS);
        EXPECT_EQ(list.size(), 0u);
    });
}

TEST(SysfsText, IntegersNamesAndTypeTables) {
    EXPECT_EQ(sysfs::parseInteger("45300\n"), 45300);
    EXPECT_EQ(sysfs::parseInteger("-2500"), -2500);
    EXPECT_EQ(sysfs::parseInteger("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(sysfs::parseInteger("-9223372036854775808"), INT64_MIN);
    for (const char* bad : {"", "-", "\n", " 5", "5 1", "12a", "0x10", "9223372036854775808",
                            "-9223372036854775809"}) {
        EXPECT_FALSE(sysfs::parseInteger(bad)) << bad;
    }
    EXPECT_EQ(sysfs::parseName("cpu 0 \t\nsecond line"), "cpu 0");
    EXPECT_FALSE(sysfs::parseName(" \nname"));

    const std::pair<const char*, Type> zones[] = {{"vbat", Type::BCL_VOLTAGE},
                                                  {"ibat-lvl0", Type::BCL_CURRENT},
                                                  {"socd", Type::BCL_PERCENTAGE},
                                                  {"apc1-cpu0", Type::CPU},
                                                  {"x86_pkg_temp", Type::CPU},
                                                  {"GPU", Type::GPU},
                                                  {"bms", Type::BATTERY},
                                                  {"pa_therm0", Type::POWER_AMPLIFIER},
                                                  {"nsp0", Type::NPU},
                                                  {"acpitz", Type::UNKNOWN},
                                                  {"my-cpu", Type::UNKNOWN}};
    for (const auto& [name, type] : zones) EXPECT_EQ(sysfs::zoneTypeOf(name), type) << name;
    EXPECT_EQ(sysfs::coolingTypeOf("thermal-devfreq-0"), Cooling::COMPONENT);
    EXPECT_EQ(sysfs::coolingTypeOf("Processor"), Cooling::COMPONENT);
    EXPECT_EQ(sysfs::coolingTypeOf("charge-limit"), Cooling::BATTERY);
}

}  // namespace
