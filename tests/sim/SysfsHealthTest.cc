// The power-supply sysfs health HAL on the captured headset tree, on a root without the class,
// and its reading of supply attributes (missing files, chargers, signs, units, bad numbers).
#include "SysfsHealth.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using android::hardware::health::V1_0::BatteryHealth;
using android::hardware::health::V1_0::BatteryStatus;
using android::hardware::health::V2_0::Result;
using android::hardware::health::V2_1::BatteryCapacityLevel;
using android::hardware::health::V2_1::HealthInfo;
using sim::powersupply::readingOf;
using sim::powersupply::SupplyFiles;
using testing_support::FixtureTree;

// A supply's files by name, e.g. {{"type", "USB\n"}, {"online", "1\n"}}.
SupplyFiles supply(std::initializer_list<std::pair<std::string_view, const char*>> files) {
    SupplyFiles texts;
    for (const auto& [name, text] : files) {
        const auto* const* file = std::find(std::begin(sim::powersupply::kAttributeFiles),
                                            std::end(sim::powersupply::kAttributeFiles), name);
        texts[file - std::begin(sim::powersupply::kAttributeFiles)] = text;
    }
    return texts;
}

HealthInfo infoOf(sim::SysfsHealth& hal) {
    HealthInfo info{};
    hal.getHealthInfo_2_1([&](Result result, const HealthInfo& value) {
        EXPECT_EQ(result, Result::SUCCESS);
        info = value;
    });
    return info;
}

TEST(SysfsHealth, ReadsTheCapturedHeadset) {
    FixtureTree tree("headset-capture");
    android::sp<sim::SysfsHealth> hal = new sim::SysfsHealth;
    const HealthInfo info = infoOf(*hal);
    const auto& b = info.legacy.legacy;
    EXPECT_EQ(b.batteryStatus, BatteryStatus::CHARGING);
    EXPECT_EQ(b.batteryHealth, BatteryHealth::GOOD);
    EXPECT_EQ(info.batteryCapacityLevel, BatteryCapacityLevel::NORMAL);
    EXPECT_EQ(b.batteryTechnology, "Li-ion");
    EXPECT_EQ(std::make_tuple(b.batteryPresent, b.chargerAcOnline, b.chargerUsbOnline,
                              b.chargerWirelessOnline),
              std::make_tuple(true, false, true, false));
    // Level, voltage (mV from µV), current, temperature, charge counter, full charge, cycles,
    // maximum charging current, design capacity and time to full, as the HAL reports them.
    EXPECT_EQ(std::vector<int64_t>({b.batteryLevel, b.batteryVoltage, b.batteryCurrent,
                                    b.batteryTemperature, b.batteryChargeCounter,
                                    b.batteryFullCharge, b.batteryCycleCount, b.maxChargingCurrent,
                                    info.batteryFullChargeDesignCapacityUah,
                                    info.batteryChargeTimeToFullNowSeconds}),
              std::vector<int64_t>(
                      {62, 3850, 1250000, 335, 3087000, 4980000, 112, 1500000, 5000000, 3140}));
    hal->getCurrentNow([](Result result, int32_t value) {
        EXPECT_EQ(result, Result::SUCCESS);
        EXPECT_EQ(value, 1250000);
    });

    tree.write("/sys/class/power_supply/battery/capacity", "63\n");
    EXPECT_EQ(infoOf(*hal).legacy.legacy.batteryLevel, 63) << "every call reads again";
}

// Junk, an empty file, a level out of range: said once per file and change, and answered as
// unknown rather than as a level of 0.
TEST(SysfsHealth, AnUnusableCapacityIsSaidOnceAndAnsweredUnknown) {
    FixtureTree tree("headset-capture");
    android::sp<sim::SysfsHealth> hal = new sim::SysfsHealth;
    const std::string capacity = "/sys/class/power_supply/battery/capacity";
    const std::pair<const char*, const char*> cases[] = {
            {"\x93\x01", "not a number: '\\x93\\x01'"},
            {"", "not a number: ''"},
            {"101\n", "out of range: '101\\x0a' (0 to 100)"},
    };
    for (const auto& [text, why] : cases) {
        tree.write(capacity, text);
        logcapture::clear();
        for (int read = 0; read < 2; ++read) {
            hal->getCapacity([](Result result, int32_t) { EXPECT_EQ(result, Result::UNKNOWN); });
            hal->getHealthInfo_2_1(
                    [](Result result, const HealthInfo&) { EXPECT_EQ(result, Result::UNKNOWN); });
        }
        EXPECT_EQ(logcapture::entries(),
                  (std::vector<logcapture::Entry>{
                          {ANDROID_LOG_WARN, "SysfsHealth", "Ignoring " + capacity + ": " + why}}));
    }
}

TEST(SysfsHealth, WithoutPowerSuppliesAnswersDefaultsAndNotSupported) {
    FixtureTree tree("");
    android::sp<sim::SysfsHealth> hal = new sim::SysfsHealth;
    const HealthInfo info = infoOf(*hal);
    EXPECT_EQ(info.legacy.legacy.batteryStatus, BatteryStatus::UNKNOWN);
    EXPECT_FALSE(info.legacy.legacy.batteryPresent);
    EXPECT_EQ(info.batteryChargeTimeToFullNowSeconds, -1);
    EXPECT_EQ(info.batteryCapacityLevel, BatteryCapacityLevel::UNSUPPORTED);
    hal->getCurrentNow([](Result result, int32_t) { EXPECT_EQ(result, Result::NOT_SUPPORTED); });
    hal->getChargeCounter([](Result result, int32_t) { EXPECT_EQ(result, Result::NOT_SUPPORTED); });
}

TEST(SysfsHealth, ChargersComeFromTheOnlineOfTheirType) {
    const auto chargers = [](const SupplyFiles& files) {
        const auto& b = readingOf({files}).info.legacy.legacy;
        return std::make_tuple(b.chargerAcOnline, b.chargerUsbOnline, b.chargerWirelessOnline);
    };
    using T = std::tuple<bool, bool, bool>;
    EXPECT_EQ(chargers(supply({{"type", "Mains\n"}, {"online", "1\n"}})), T(true, false, false));
    EXPECT_EQ(chargers(supply({{"type", "USB_PD\n"}, {"online", "1"}})), T(true, false, false));
    EXPECT_EQ(chargers(supply({{"type", "USB\n"}, {"online", "2\n"}})), T(false, true, false));
    EXPECT_EQ(chargers(supply({{"type", "Wireless\n"}, {"online", "1\n"}})), T(false, false, true));
    EXPECT_EQ(chargers(supply({{"type", "USB\n"}, {"online", "0\n"}})), T(false, false, false));
    EXPECT_EQ(chargers(supply({{"type", "USB\n"}})), T(false, false, false)) << "no online file";
    EXPECT_EQ(chargers(supply({{"type", "USB\n"}, {"online", ""}})), T(false, false, false));
    EXPECT_EQ(chargers(supply({{"type", "BMS\n"}, {"online", "1\n"}})), T(false, false, false));
    EXPECT_EQ(chargers(supply({{"online", "1\n"}})), T(false, false, false)) << "no type file";
    EXPECT_EQ(chargers(supply({{"type", "USB_HVDCP\n"}, {"online", "1\n"}})), T(true, false, false));
}

TEST(SysfsHealth, LimitsComeFromTheMostPowerfulOnlineCharger) {
    const auto limits = [](std::initializer_list<SupplyFiles> supplies) {
        const auto& b = readingOf(supplies).info.legacy.legacy;
        return std::make_pair(b.maxChargingCurrent, b.maxChargingVoltage);
    };
    using P = std::pair<int32_t, int32_t>;
    const SupplyFiles usb = supply({{"type", "USB\n"},
                                    {"online", "1\n"},
                                    {"current_max", "3000000\n"},
                                    {"voltage_max", "5000000\n"}});
    const SupplyFiles wireless = supply({{"type", "Wireless\n"},
                                         {"online", "1\n"},
                                         {"current_max", "1000000\n"},
                                         {"voltage_max", "20000000\n"}});
    EXPECT_EQ(limits({wireless, usb}), P(1000000, 20000000)) << "20 W over 15 W, as a pair";
    EXPECT_EQ(limits({supply({{"type", "Mains\n"}, {"online", "1\n"}, {"current_max", "2000000"}})}),
              P(2000000, 5000000))
            << "no voltage_max: a 5 V bus";
    EXPECT_EQ(limits({supply({{"type", "Dock\n"}, {"online", "1\n"}, {"current_max", "900000"}})}),
              P(900000, 5000000))
            << "a dock counts for the limits";
    EXPECT_EQ(limits({supply({{"type", "USB\n"}, {"online", "0\n"}, {"current_max", "9"}})}),
              P(0, 0));
}

TEST(SysfsHealth, ADevicesOwnBatteryIsNotTheSystemBattery) {
    const sim::HealthReading r = readingOf({
            supply({{"type", "Battery\n"}, {"scope", "Device\n"}, {"capacity", "15\n"}}),
            supply({{"type", "Battery\n"}, {"scope", "System\n"}, {"capacity", "80\n"}}),
    });
    EXPECT_EQ(r.info.legacy.legacy.batteryLevel, 80);
    EXPECT_FALSE(readingOf({supply({{"type", "Battery\n"}, {"scope", "Device\n"}})})
                         .info.legacy.legacy.batteryPresent)
            << "no system battery";
}

TEST(SysfsHealth, BatteryAttributesKeepSignsAndUnitsAndRefuseBadNumbers) {
    const sim::HealthReading r = readingOf({
            supply({{"type", "Battery\n"},
                    {"current_now", "-412000\n"},
                    {"voltage_now", "3871999\n"},
                    {"temp", "-52\n"},
                    {"charge_counter", "99999999999\n"},
                    {"capacity", "6x\n"},
                    {"status", "Not charging\n"},
                    {"health", "Warm\n"}}),
            supply({{"type", "Battery\n"},
                    {"capacity", "40\n"},
                    {"status", "Full\n"},
                    {"charge_full", "3000"}}),
    });
    const auto& b = r.info.legacy.legacy;
    // Discharging stays negative; µV to mV truncates; tenths of a degree below zero.
    EXPECT_EQ(std::vector<int64_t>({r.currentNowUa.value, b.batteryCurrent, b.batteryVoltage,
                                    b.batteryTemperature}),
              std::vector<int64_t>({-412000, -412000, 3871, -52}));
    EXPECT_EQ(r.chargeCounterUah.result, Result::UNKNOWN) << "beyond 32 bits";
    EXPECT_EQ(r.capacityPercent.result, Result::UNKNOWN)
            << "the first battery's file, not a number";
    EXPECT_EQ(r.infoResult, Result::UNKNOWN) << "no level: no health record";
    EXPECT_EQ(b.batteryLevel, 0);
    EXPECT_EQ(b.batteryStatus, BatteryStatus::NOT_CHARGING) << "the first battery's status";
    EXPECT_EQ(b.batteryFullCharge, 3000) << "from the second battery, the first has none";
    EXPECT_EQ(b.batteryHealth, BatteryHealth::GOOD) << "Warm counts as GOOD";
    EXPECT_EQ(r.currentAverageUa.result, Result::NOT_SUPPORTED);
    EXPECT_EQ(readingOf({supply({{"type", "Battery"}, {"status", "Exploding\n"}})})
                      .info.legacy.legacy.batteryStatus,
              BatteryStatus::UNKNOWN);
}

}  // namespace
