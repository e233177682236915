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

constexpr int64_t kMinuteNs = INT64_C(60000000000);

Info read(SimHealth& hal) {
    Info info{};
    Result result = Result::UNKNOWN;
    EXPECT_TRUE(hal.getHealthInfo_2_1([&](Result r, const Info& i) {
                       result = r;
                       info = i;
                   }).isOk());
    EXPECT_EQ(result, Result::SUCCESS);
    return info;
}

struct SimBattery : testing::Test {
    android::sp<SimHealth> make(BatteryScript script, bool interactive) {
        return new SimHealth(script, [this] { return now; },
                             [interactive](int64_t) { return interactive; });
    }
    int64_t now = 0;
};

TEST_F(SimBattery, DrainsFasterWhileInteractive) {
    BatteryScript script;
    script.startLevelPercent = 50;
    auto active = make(script, true);
    auto idle = make(script, false);
    now = 60 * kMinuteNs;
    EXPECT_EQ(read(*active).legacy.legacy.batteryLevel, 20) << "1.5 A for 1 h of 5 Ah";
    const Info info = read(*idle);
    EXPECT_EQ(info.legacy.legacy.batteryLevel, 45);
    EXPECT_EQ(info.legacy.legacy.batteryStatus, BatteryStatus::DISCHARGING);
    EXPECT_EQ(info.batteryChargeTimeToFullNowSeconds, -1);
    int32_t current = 0;
    active->getCurrentNow([&](Result, int32_t v) { current = v; }).isOk();
    EXPECT_EQ(current, -1500000);
}

TEST_F(SimBattery, ChargesWithTheStrongestChargerUntilFull) {
    BatteryScript script;
    script.startLevelPercent = 40;
    script.chargers = {{0, 90 * kMinuteNs, Charger::Usb}, {30 * kMinuteNs, 90 * kMinuteNs, Charger::Ac}};
    auto hal = make(script, true);
    now = 30 * kMinuteNs;
    EXPECT_EQ(read(*hal).legacy.legacy.batteryLevel, 52) << "USB: 25 % an hour";
    now = 60 * kMinuteNs;
    Info info = read(*hal);
    EXPECT_EQ(info.legacy.legacy.batteryLevel, 82) << "AC: 60 % an hour";
    EXPECT_EQ(info.legacy.legacy.batteryStatus, BatteryStatus::CHARGING);
    EXPECT_TRUE(info.legacy.legacy.chargerAcOnline && info.legacy.legacy.chargerUsbOnline);
    EXPECT_GT(info.batteryChargeTimeToFullNowSeconds, 0);
    now = 80 * kMinuteNs;
    info = read(*hal);
    EXPECT_EQ(info.legacy.legacy.batteryLevel, 100);
    EXPECT_EQ(info.legacy.legacy.batteryStatus, BatteryStatus::FULL);
    EXPECT_EQ(info.batteryChargeTimeToFullNowSeconds, 0);
}

TEST_F(SimBattery, StatusAndHealthCanBeSteered) {
    auto hal = make(BatteryScript{}, false);
    hal->setStatusOverride(BatteryStatus::NOT_CHARGING);
    hal->setHealth(BatteryHealth::OVERHEAT);
    Info info = read(*hal);
    EXPECT_EQ(info.legacy.legacy.batteryStatus, BatteryStatus::NOT_CHARGING);
    EXPECT_EQ(info.legacy.legacy.batteryHealth, BatteryHealth::OVERHEAT);
    hal->setStatusOverride(std::nullopt);
    EXPECT_EQ(read(*hal).legacy.legacy.batteryStatus, BatteryStatus::DISCHARGING);
}

TEST_F(SimBattery, PowerChangesAreTheEdgesOfAnyChargerPluggedIn) {
    auto hal = make(BatteryScript::defaults(), true);
    std::vector<std::tuple<int64_t, bool, Charger>> changes;
    int64_t t = 0;
    while (auto change = hal->nextPowerChangeAfter(t)) {
        if (change->atNs > 8 * 60 * kMinuteNs) break;
        changes.emplace_back(change->atNs / kMinuteNs, change->connected, change->charger);
        t = change->atNs;
    }
    // USB plugged 1:30-1:50 while AC is in is no edge; the plan repeats after four hours.
    EXPECT_EQ(changes, (std::vector<std::tuple<int64_t, bool, Charger>>{
                           {65, true, Charger::Ac},
                           {170, false, Charger::Ac},
                           {200, true, Charger::Wireless},
                           {230, false, Charger::Wireless},
                           {305, true, Charger::Ac},
                           {410, false, Charger::Ac},
                           {440, true, Charger::Wireless},
                           {470, false, Charger::Wireless}}));
    EXPECT_FALSE(make(BatteryScript{}, true)->nextPowerChangeAfter(0)) << "no chargers, no edges";
}

TEST(SimHeadset, CoincidingScreenAndPowerEventsAreBothReported) {
    sim::HeadsetConfig config;
    config.interactive = *sim::InteractiveScript::parse("65m on, 35m off", nullptr);
    sim::Headset headset(config, [] { return INT64_C(0); });
    const auto events = headset.nextEventsAfter(0);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].atNs, 65 * kMinuteNs);
    EXPECT_EQ(events[0].name, "ScreenOff");
    EXPECT_EQ(events[1].atNs, 65 * kMinuteNs);
    EXPECT_EQ(events[1].name, "PowerConnected");
}

TEST(SimHeadset, MergesScreenAndPowerEventsAndServesTheHalWhileAlive) {
    int64_t now = 0;
    {
        sim::Headset headset(sim::HeadsetConfig{}, [&now] { return now; });
        ASSERT_NE(android::hardware::health::V2_1::IHealth::getService("default"), nullptr);
        ASSERT_NE(android::hardware::health::V2_0::IHealth::getService("default"), nullptr);
        std::vector<std::string> events;
        int64_t t = 0;
        for (auto next = headset.nextEventsAfter(t);
             !next.empty() && next.front().atNs <= 4 * 60 * kMinuteNs;
             next = headset.nextEventsAfter(t)) {
            ASSERT_EQ(next.size(), 1u);
            events.push_back(std::to_string(next[0].atNs / kMinuteNs) + " " + next[0].name + " " +
                             next[0].detail);
            t = next[0].atNs;
        }
        EXPECT_EQ(events, (std::vector<std::string>{
                              "40 ScreenOff not interactive", "60 ScreenOn interactive",
                              "65 PowerConnected AC", "100 ScreenOff not interactive",
                              "120 ScreenOn interactive", "160 ScreenOff not interactive",
                              "170 PowerDisconnected AC", "180 ScreenOn interactive",
                              "200 PowerConnected WIRELESS", "220 ScreenOff not interactive",
                              "230 PowerDisconnected WIRELESS", "240 ScreenOn interactive"}));
    }
    EXPECT_EQ(android::hardware::health::V2_1::IHealth::getService("default"), nullptr);
    EXPECT_EQ(android::hardware::health::V2_0::IHealth::getService("default"), nullptr);
}

TEST(SimHeadset, UpdatePushesTheNewestInfoToRegisteredCallbacks) {
    struct Callback : android::hardware::health::V2_1::IHealthInfoCallback {
        android::hardware::Return<void> healthInfoChanged(
            const android::hardware::health::V2_0::HealthInfo&) override {
            ++legacyCalls;
            return android::hardware::Void();
        }
        android::hardware::Return<void> healthInfoChanged_2_1(const Info& info) override {
            levels.push_back(info.legacy.legacy.batteryLevel);
            return android::hardware::Void();
        }
        int legacyCalls = 0;
        std::vector<int32_t> levels;
    };
    int64_t now = 0;
    sim::Headset headset(sim::HeadsetConfig{}, [&now] { return now; });
    android::sp<Callback> callback = new Callback;
    EXPECT_EQ(headset.health().registerCallback(callback), Result::SUCCESS);
    now = 20 * kMinuteNs;
    EXPECT_EQ(headset.health().update(), Result::SUCCESS);
    EXPECT_EQ(callback->levels, (std::vector<int32_t>{22, 12}));
    EXPECT_EQ(callback->legacyCalls, 0) << "a 2.1 callback only hears the 2.1 method";
    EXPECT_EQ(headset.health().unregisterCallback(callback), Result::SUCCESS);
    EXPECT_EQ(headset.health().unregisterCallback(callback), Result::NOT_FOUND);
}

}  // namespace
