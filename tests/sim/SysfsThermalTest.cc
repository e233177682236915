// The sysfs thermal HAL against the hand-made headset tree, and its parsing of sysfs text.
#include "SysfsThermal.h"

#include <gtest/gtest.h>

#include <android/log.h>

#include <cmath>

#include "FakeThermal.h"
#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using sim::ThermalHal;
using testing_support::FixtureTree;
using Code = android::hardware::thermal::V1_0::ThermalStatusCode;
using Status = android::hardware::thermal::V1_0::ThermalStatus;
using Type = ThermalHal::TemperatureType;
using Cooling = ThermalHal::CoolingType;
namespace sysfs = sim::sysfs;

const std::string kZones = "/sys/class/thermal/thermal_zone";

std::vector<ThermalHal::Temperature> temperatures(ThermalHal& hal, Status* status = nullptr) {
    std::vector<ThermalHal::Temperature> all;
    hal.getCurrentTemperatures(false, Type::UNKNOWN, [&](const Status& s, const auto& list) {
        if (status) *status = s;
        all = list;
    });
    return all;
}

TEST(SysfsThermal, ReadsTheCapturedHeadsetTree) {
    FixtureTree tree("thermal-headset");
    android::sp<sim::SysfsThermal> hal = new sim::SysfsThermal;
    const auto all = temperatures(*hal);
    ASSERT_EQ(all.size(), 17u);
    const std::tuple<size_t, const char*, Type, float> expected[] = {
            {0, "aoss0-usr", Type::UNKNOWN, 38.1f},   {1, "cpu-0-0-usr", Type::CPU, 48.3f},
            {5, "gpuss-0-usr", Type::GPU, 49.4f},     {7, "nspss-0-usr", Type::NPU, 41.2f},
            {8, "skin-msm-therm", Type::SKIN, 36.4f}, {10, "usb-conn-therm", Type::USB_PORT, 31},
            {11, "vbat", Type::BCL_VOLTAGE, 3850},    {13, "soc", Type::BCL_PERCENTAGE, 62}};
    for (const auto& [zone, name, type, value] : expected) {
        EXPECT_EQ(all[zone].name, name);
        EXPECT_EQ(all[zone].type, type) << name;
        EXPECT_FLOAT_EQ(all[zone].value, value) << name << ": degrees, BCL zones as they are";
    }
    EXPECT_TRUE(std::isnan(all[16].value)) << "camera-therm's empty temp";
    EXPECT_EQ(toString(all[8].throttlingStatus), "LIGHT") << "past its active trip";
    EXPECT_EQ(toString(all[1].throttlingStatus), "NONE");

    std::vector<std::tuple<std::string, Cooling, uint64_t>> devices;
    hal->getCurrentCoolingDevices(false, {}, [&](const Status&, const auto& list) {
        for (const auto& d : list) devices.emplace_back(d.name, d.type, d.value);
    });
    EXPECT_EQ(devices, (decltype(devices){{"thermal-cpufreq-0", Cooling::CPU, 0},
                                          {"thermal-cpufreq-4", Cooling::CPU, 2},
                                          {"gpu", Cooling::GPU, 1},
                                          {"pwm-fan", Cooling::FAN, 2},
                                          {"cdsp", Cooling::NPU, 0},
                                          {"battery", Cooling::BATTERY, 0},
                                          {"panel0-backlight", Cooling::COMPONENT, 0},
                                          {"modem_tj", Cooling::MODEM, 0}}))
            << "in device number order: 10 after 6";

    hal->getTemperatureThresholds(true, Type::SKIN, [](const Status&, const auto& list) {
        ASSERT_EQ(list.size(), 2u);
        const auto& hot = list[0].hotThrottlingThresholds;
        EXPECT_EQ(std::vector<float>({hot[1], hot[2], hot[3]}), (std::vector<float>{36, 41, 45}));
        EXPECT_TRUE(std::isnan(hot[0]) && std::isnan(hot[6]));
    });
}

TEST(SysfsThermal, ASeverityRiseBetweenReadsCallsBackOnce) {
    FixtureTree tree("thermal-headset");
    android::sp<sim::SysfsThermal> hal = new sim::SysfsThermal;
    android::sp<testing_support::RecordingThermalCallback> callback =
            new testing_support::RecordingThermalCallback;
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
    android::sp<sim::SysfsThermal> hal = new sim::SysfsThermal;
    Status status{};
    EXPECT_TRUE(temperatures(*hal, &status).empty());
    EXPECT_EQ(status.debugMessage, "cannot read /sys/class/thermal: No such file or directory");

    tree.write(kZones + "2/temp", "1000\n");  // no type
    tree.write(kZones + "x/type", "cpu\n");   // not numbered
    tree.write(kZones + "10/type", "\n");     // blank type
    tree.write(kZones + "11/type", "CPU-big\n");
    tree.write(kZones + "11/temp", "-300000\n");  // below absolute zero
    tree.write("/sys/class/thermal/cooling_device0/type", "fan\n");
    tree.write("/sys/class/thermal/cooling_device0/cur_state", "-1\n");
    logcapture::clear();
    temperatures(*hal);
    const auto all = temperatures(*hal, &status);
    EXPECT_EQ(status.code, Code::SUCCESS);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].type, Type::CPU) << "types match regardless of case";
    EXPECT_TRUE(std::isnan(all[0].value));
    hal->getCurrentCoolingDevices(
            false, {}, [](const Status&, const auto& list) { EXPECT_EQ(list.size(), 0u); });
    const auto warning = [](const std::string& text) {
        return logcapture::Entry{ANDROID_LOG_WARN, "SysfsThermal", "Ignoring " + text};
    };
    EXPECT_EQ(
            logcapture::entries(),
            (std::vector<logcapture::Entry>{
                    warning(kZones + "10/type: empty"),
                    warning(kZones + "11/temp: out of range: '-300000\\x0a'"),
                    warning("/sys/class/thermal/cooling_device0/cur_state: negative: '-1\\x0a'")}))
            << "once per file, not per read";
}

TEST(SysfsText, IntegersNamesAndTypeTables) {
    EXPECT_EQ(sysfs::parseInteger("-2500\n"), -2500);
    EXPECT_EQ(sysfs::parseInteger("-9223372036854775808"), INT64_MIN);
    for (const char* bad : {"", "-", " 5", "12a", "9223372036854775808", "-9223372036854775809"}) {
        EXPECT_FALSE(sysfs::parseInteger(bad)) << bad;
    }
    EXPECT_EQ(sysfs::parseName("cpu 0 \t\nsecond line"), "cpu 0");
    EXPECT_FALSE(sysfs::parseName(" \nname"));
    const std::pair<const char*, Type> zones[] = {
            {"ibat-lvl0", Type::BCL_CURRENT}, {"x86_pkg_temp", Type::CPU},
            {"bms", Type::BATTERY},           {"pa_therm0", Type::POWER_AMPLIFIER},
            {"acpitz", Type::UNKNOWN},        {"my-cpu", Type::UNKNOWN}};
    for (const auto& [name, type] : zones) EXPECT_EQ(sysfs::zoneTypeOf(name), type) << name;
    EXPECT_EQ(sysfs::coolingTypeOf("thermal-devfreq-0"), Cooling::COMPONENT);
}

}  // namespace
