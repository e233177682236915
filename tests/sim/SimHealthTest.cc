// The simulated headset's health HAL and its power events.
#include "SimHealth.h"

#include <gtest/gtest.h>

#include "Headset.h"

namespace {

using sim::BatteryScript;
using sim::Charger;
using sim::SimHealth;
using Info = android::hardware::health::V2_1::HealthInfo;
using Result = android::hardware::health::V2_0::Result;
using android::hardware::health::V1_0::BatteryHealth;
using android::hardware::health::V1_0::BatteryStatus;
namespace V2_0 = android::hardware::health::V2_0;
namespace V2_1 = android::hardware::health::V2_1;

constexpr int64_t kMinuteNs = INT64_C(60000000000);

android::hardware::health::V1_0::HealthInfo read(SimHealth& hal, Info* full = nullptr) {
    Info info{};
    EXPECT_TRUE(hal.getHealthInfo_2_1([&](Result r, const Info& i) {
                       EXPECT_EQ(r, Result::SUCCESS);
                       info = i;
                   }).isOk());
    if (full != nullptr) *full = info;
    return info.legacy.legacy;
}

struct SimBattery : testing::Test {
    android::sp<SimHealth> make(BatteryScript script, bool interactive) {
        return new SimHealth(
                script, [this] { return now; }, [interactive](int64_t) { return interactive; });
    }
    int64_t now = 0;
};

TEST_F(SimBattery, DrainsFasterWhileInteractiveAndCanBeSteered) {
    BatteryScript script;
    auto active = make(script, true);
    auto idle = make(script, false);
    now = 60 * kMinuteNs;
    EXPECT_EQ(read(*active).batteryLevel, 20) << "1.5 A for 1 h of 5 Ah";
    int32_t current = 0;
    EXPECT_TRUE(active->getCurrentNow([&](Result, int32_t v) { current = v; }).isOk());
    EXPECT_EQ(current, -1500000);
    Info info{};
    EXPECT_EQ(read(*idle, &info).batteryLevel, 45);
    EXPECT_EQ(info.batteryChargeTimeToFullNowSeconds, -1);
    idle->setStatusOverride(BatteryStatus::NOT_CHARGING);
    idle->setHealth(BatteryHealth::OVERHEAT);
    EXPECT_EQ(read(*idle).batteryHealth, BatteryHealth::OVERHEAT);
    EXPECT_EQ(read(*idle).batteryStatus, BatteryStatus::NOT_CHARGING);
    idle->setStatusOverride(std::nullopt);
    EXPECT_EQ(read(*idle).batteryStatus, BatteryStatus::DISCHARGING);
}

TEST_F(SimBattery, ChargesWithTheStrongestChargerUntilFull) {
    BatteryScript script;
    script.startLevelPercent = 40;
    script.chargers = {{0, 90 * kMinuteNs, Charger::Usb},
                       {30 * kMinuteNs, 90 * kMinuteNs, Charger::Ac}};
    auto hal = make(script, true);
    now = 30 * kMinuteNs;
    EXPECT_EQ(read(*hal).batteryLevel, 52) << "USB: 25 % an hour";
    now = 60 * kMinuteNs;
    Info info{};
    const auto battery = read(*hal, &info);
    EXPECT_EQ(battery.batteryLevel, 82) << "AC: 60 % an hour";
    EXPECT_EQ(battery.batteryStatus, BatteryStatus::CHARGING);
    EXPECT_TRUE(battery.chargerAcOnline && battery.chargerUsbOnline &&
                !battery.chargerWirelessOnline);
    EXPECT_GT(info.batteryChargeTimeToFullNowSeconds, 0);
    now = 80 * kMinuteNs;
    EXPECT_EQ(read(*hal, &info).batteryLevel, 100);
    EXPECT_EQ(info.legacy.legacy.batteryStatus, BatteryStatus::FULL);
    EXPECT_EQ(info.batteryChargeTimeToFullNowSeconds, 0);
}

TEST_F(SimBattery, PowerChangesAreTheEdgesOfAnyChargerPluggedInAndRepeatEachCycle) {
    auto hal = make(BatteryScript::defaults(), true);
    const auto next = [&](int64_t minute) {
        const auto change = hal->nextPowerChangeAfter(minute * kMinuteNs);
        return change ? std::tuple(change->atNs / kMinuteNs, change->connected, change->charger)
                      : std::tuple(INT64_C(-1), false, Charger::Ac);
    };
    // USB plugged 1:30-1:50 while AC is in is no edge; the plan repeats after four hours.
    EXPECT_EQ(next(65), std::tuple(INT64_C(170), false, Charger::Ac));
    EXPECT_EQ(next(230), std::tuple(INT64_C(305), true, Charger::Ac));
    EXPECT_EQ(next(440), std::tuple(INT64_C(470), false, Charger::Wireless));
    EXPECT_FALSE(make(BatteryScript{}, true)->nextPowerChangeAfter(0)) << "no chargers, no edges";
}

TEST(SimHeadset, CoincidingScreenAndPowerEventsAreBothReported) {
    sim::HeadsetConfig config;
    config.interactive = sim::InteractiveScript({{65 * kMinuteNs, true}, {35 * kMinuteNs, false}});
    sim::Headset headset(config, [] { return INT64_C(0); });
    const auto events = headset.nextEventsAfter(0);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_TRUE(events[0].atNs == 65 * kMinuteNs && events[1].atNs == 65 * kMinuteNs);
    EXPECT_EQ(events[0].name + " " + events[1].name, "ScreenOff PowerConnected");
}

TEST(SimHeadset, MergesScreenAndPowerEventsAndServesTheHalWhileAlive) {
    {
        sim::Headset headset(sim::HeadsetConfig{}, [] { return INT64_C(0); });
        EXPECT_NE(V2_1::IHealth::getService("default"), nullptr);
        EXPECT_NE(V2_0::IHealth::getService("default"), nullptr);
        std::string events;
        for (auto next = headset.nextEventsAfter(0);
             !next.empty() && next[0].atNs <= 120 * kMinuteNs;
             next = headset.nextEventsAfter(next[0].atNs)) {
            ASSERT_EQ(next.size(), 1u);
            events += std::to_string(next[0].atNs / kMinuteNs) + " " + next[0].name + " " +
                      next[0].detail + ", ";
        }
        EXPECT_EQ(events,
                  "40 ScreenOff not interactive, 60 ScreenOn interactive, 65 PowerConnected AC, "
                  "100 ScreenOff not interactive, 120 ScreenOn interactive, ");
    }
    EXPECT_EQ(V2_1::IHealth::getService("default"), nullptr);
    EXPECT_EQ(V2_0::IHealth::getService("default"), nullptr);
}

}  // namespace
