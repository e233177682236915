#include "BatteryStatsStates.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FakeHealth.h"
#include "LogCapture.h"
#include "hostplatform/Power.h"

namespace {

using testing_support::FakeClock;
using testing_support::FakeHealth;
using Vistrel::BatteryState;
using Vistrel::BatteryStatsStates;
using Method = FakeHealth::Method;
using S = BatteryState;
using Log = std::vector<logcapture::Entry>;

const logcapture::Entry kNotInitialized{ANDROID_LOG_ERROR, "Vistrel",
                                        "BatteryStats: health not initialized"};
const logcapture::Entry kReadFailed{ANDROID_LOG_INFO, "Vistrel", "getHealthInfo_2_1() failed"};
const logcapture::Entry kForced{ANDROID_LOG_INFO, "Vistrel",
                                "BatteryStatsStates: force sampled in snapshot"};

logcapture::Entry action(const std::string& name) {
    return {ANDROID_LOG_INFO, "Vistrel", "BatteryStatsStates::" + name + "()"};
}

// A BatteryStatsStates connected to a registered fake (discharging, 50 %) on an interactive
// device, acquired at time stamp 100.
struct BatteryStatesConnected : testing::Test {
    void SetUp() override {
        hal->registerDefault();
        hostplatform::setInteractiveSource([this] { return interactive; });
        clock.timestamp = 100;
        ASSERT_TRUE(states.acquireResources(nullptr, clock));
        logcapture::clear();
    }
    void TearDown() override {
        hostplatform::resetInteractiveSource();
        hostplatform::clearServices();
    }

    bool interactive = true;
    android::sp<FakeHealth> hal = new FakeHealth;
    testing_support::SampleCounting<BatteryStatsStates> states;
    FakeClock clock;
};

TEST(BatteryStatsStatesWithoutHal, AcquireBuildsTheTableButFailsAndTransitionsSkipTheAction) {
    BatteryStatsStates states;
    FakeClock clock;
    EXPECT_STREQ(states.name(), "BatteryStatsStates");
    EXPECT_EQ(states.sampleRate(), Vistrel::SamplePeriod(std::chrono::milliseconds(60000)));
    // The predicates are functions of the value's bits, also beyond the four states.
    const std::tuple<int32_t, bool, bool> predicates[] = {
            {0, true, false},  {1, true, true},    {2, false, false}, {3, false, true},
            {5, false, false}, {-1, false, false}, {-3, false, false}};
    for (const auto& [value, active, charging] : predicates) {
        EXPECT_EQ(BatteryStatsStates::isActive(static_cast<S>(value)), active) << value;
        EXPECT_EQ(BatteryStatsStates::isCharging(static_cast<S>(value)), charging) << value;
    }
    states.notify("PowerConnected", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveDischarging) << "no table before the acquire";
    clock.timestamp = 7;
    clock.now = 70;
    EXPECT_FALSE(states.acquireResources(nullptr, clock));
    EXPECT_EQ(states.transitions.size(), 22u);
    EXPECT_EQ(states.currentState, S::InactiveCharging);
    EXPECT_EQ(states.stateStartStamp, 7);
    EXPECT_EQ(states.lastSnapshotNs, 70);

    clock.timestamp = 8;
    states.notify("ScreenOn", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveCharging) << "the state moves without a HAL";
    EXPECT_EQ(states.stateStartStamp, 8);
    EXPECT_EQ(states.levelAtEvent, -1.0f);
    EXPECT_FALSE(states.sample(clock));
    EXPECT_FALSE(states.snapshot(clock, false));
    EXPECT_FALSE(states.snapshot(clock, true));
    EXPECT_EQ(logcapture::entries(),
              (Log{{ANDROID_LOG_ERROR, "Vistrel",
                    "BatteryStatsStates: health HAL V2.1 not available or dead"},
                   kNotInitialized,
                   kNotInitialized,
                   kNotInitialized,
                   kForced,
                   kNotInitialized,
                   kNotInitialized}));
}

TEST_F(BatteryStatesConnected, TheTableHasExactlyTheseTwentyTwoEntries) {
    constexpr S AD = S::ActiveDischarging, AC = S::ActiveCharging, ID = S::InactiveDischarging,
                IC = S::InactiveCharging;
    const struct {
        S from;
        const char* event;
        S to;
        const char* action;
    } table[] = {
            {AD, "PowerConnected", AC, "chargeStartEvent"},
            {AD, "PowerDisconnected", AD, "nullEvent"},
            {AD, "ScreenOff", ID, "activeEndEvent"},
            {AD, "ScreenOn", AD, "nullEvent"},
            {AD, "BatteryLow", AD, "shutdownEvent"},
            {ID, "PowerConnected", IC, "chargeStartEvent"},
            {ID, "PowerDisconnected", ID, "nullEvent"},
            {ID, "ScreenOff", ID, "nullEvent"},
            {ID, "ScreenOn", AD, "activeStartEvent"},
            {ID, "BatteryLow", ID, "shutdownEvent"},
            {AC, "PowerConnected", AC, "chargeStartEvent"},
            {AC, "PowerDisconnected", AD, "chargeEndEvent"},
            {AC, "ScreenOff", IC, "activeEndEvent"},
            {AC, "ScreenOn", AC, "nullEvent"},
            {AC, "BatteryLow", AC, "shutdownEvent"},
            {AC, "BatteryFull", AC, "batteryFullEvent"},
            {IC, "PowerConnected", IC, "chargeStartEvent"},
            {IC, "PowerDisconnected", ID, "chargeEndEvent"},
            {IC, "ScreenOff", IC, "nullEvent"},
            {IC, "ScreenOn", AC, "activeStartEvent"},
            {IC, "BatteryLow", IC, "shutdownEvent"},
            {IC, "BatteryFull", IC, "batteryFullEvent"},
    };
    ASSERT_EQ(states.transitions.size(), 22u);
    for (const auto& t : table) {
        states.currentState = t.from;
        logcapture::clear();
        states.notify(t.event, "ignored detail", clock);
        EXPECT_EQ(states.currentState, t.to) << t.event << " from " << static_cast<int>(t.from);
        EXPECT_EQ(states.previousState, t.from);
        EXPECT_EQ(logcapture::entries(), Log{action(t.action)}) << t.event;
    }
}

TEST_F(BatteryStatesConnected, EventsWithoutAnEntryChangeNothingButASelfTransitionMovesOn) {
    hal->setChargers(false, true, false);
    ASSERT_TRUE(states.snapshot(clock, false));
    ASSERT_EQ(states.statePowerSource, " USB");
    clock.timestamp = 250;
    hal->setLevel(48);
    for (const char* event : {"BatteryFull", "screenon", ""}) {  // BatteryFull: only while charging
        states.notify(event, "", clock);
        EXPECT_EQ(states.currentState, S::ActiveDischarging) << event;
        EXPECT_EQ(states.stateStartStamp, 100);
        EXPECT_EQ(states.statePowerSource, " USB");
        EXPECT_EQ(states.levelAtEvent, 50.0f);
    }
    EXPECT_TRUE(logcapture::entries().empty());

    states.notify("ScreenOn", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveDischarging);
    EXPECT_EQ(states.previousState, S::ActiveDischarging);
    EXPECT_EQ(states.previousStateStartStamp, 100);
    EXPECT_EQ(states.stateStartStamp, 250);
    EXPECT_EQ(states.previousStatePowerSource, " USB");
    EXPECT_EQ(states.statePowerSource, "");
    EXPECT_EQ(states.previousLevelAtEvent, 50.0f) << "filled in by the snapshot";
    EXPECT_EQ(states.levelAtEvent, 48.0f);
    EXPECT_EQ(logcapture::entries(), Log{action("nullEvent")});
}

TEST_F(BatteryStatesConnected,
       LevelsAtEventsAndAFailedReadThatMovesTheStateButSkipsLevelsAndAction) {
    hal->setLevel(37);
    states.notify("PowerConnected", "", clock);
    EXPECT_EQ(states.levelAtEvent, 37.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 37.0f) << "the first transition's own level";
    states.statePowerSource = "AC";
    hal->setLevel(41);
    for (const auto& fault : FakeHealth::kBothFaults) {
        hal->failNext(Method::HealthInfo21, fault);
        const S before = states.currentState;
        const int64_t stampBefore = states.stateStartStamp;
        clock.timestamp += 10;
        logcapture::clear();
        states.notify("ScreenOff", "", clock);
        EXPECT_EQ(states.currentState, S::InactiveCharging);
        EXPECT_EQ(states.previousState, before);
        EXPECT_EQ(states.previousStateStartStamp, stampBefore);
        EXPECT_EQ(states.stateStartStamp, clock.timestamp);
        EXPECT_EQ(states.statePowerSource, "");
        EXPECT_EQ(states.levelAtEvent, 37.0f);
        EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
    }
    EXPECT_EQ(states.previousStatePowerSource, "") << "moved twice";
    states.notify("ScreenOn", "", clock);
    EXPECT_EQ(states.levelAtEvent, 41.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 37.0f);
}

TEST_F(BatteryStatesConnected, EveryAcquireRebuildsAndDerivesTheStartingStateKeepingTheStamp) {
    const struct {
        int32_t status;
        bool interactive;
        S expected;
    } cases[] = {
            {3, true, S::ActiveDischarging},    {3, false, S::InactiveDischarging},
            {2, true, S::ActiveCharging},       {5, false, S::InactiveCharging},
            {4, false, S::InactiveDischarging}, {1, true, S::ActiveDischarging},
    };
    for (const auto& c : cases) {
        hal->setStatus(c.status);
        interactive = c.interactive;
        clock.timestamp += 1;
        states.transitions.clear();
        ASSERT_TRUE(states.acquireResources(nullptr, clock));
        EXPECT_EQ(states.transitions.size(), 22u);
        EXPECT_EQ(states.currentState, c.expected) << c.status << " " << c.interactive;
        EXPECT_EQ(states.stateStartStamp, clock.timestamp) << "the stamp of createFSM";
        EXPECT_EQ(states.isChargingNow, c.status == 2 || c.status == 5);
    }
    hal->failNext(Method::HealthInfo21, FakeHealth::kTransport);
    clock.now = 1234;
    logcapture::clear();
    EXPECT_TRUE(states.acquireResources(nullptr, clock));
    EXPECT_EQ(states.currentState, S::InactiveCharging) << "a failed read keeps the fresh state";
    EXPECT_EQ(states.lastSnapshotNs, 1234);
    EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
}

TEST_F(BatteryStatesConnected, FullOncePerRiseToNinetyLowOncePerNewLevelAtThreeOrBelowDischarging) {
    const char* const full = "BatteryFull BatteryStateCollector";
    const char* const low = "BatteryLow BatteryExtremeLow";
    const struct {
        int32_t level, status;
        const char* notified;
    } steps[] = {
            {95, 2, ""},  // never "BatteryFull" on the first sample
            {96, 2, ""}, {89, 2, ""}, {90, 2, full}, {100, 5, ""}, {88, 2, ""}, {92, 2, full},
            {91, 2, ""}, {4, 3, ""},  {3, 3, low},   {3, 3, ""},   {2, 3, low}, {2, 2, ""},
            {1, 2, ""},  {1, 3, ""},  {0, 3, low},   {3, 4, ""},   {3, 3, ""},  {-1, 3, low},
    };
    for (const auto& s : steps) {
        hal->setLevel(s.level);
        hal->setStatus(s.status);
        const auto n = states.sample(clock);
        EXPECT_EQ(n ? n->name + " " + n->detail : "", s.notified)
                << s.level << " status " << s.status;
    }
    hal->setLevel(80);
    states.sample(clock);
    hal->setLevel(91);
    hal->failNext(Method::HealthInfo21, FakeHealth::kTransport);
    EXPECT_FALSE(states.sample(clock));
    EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
    EXPECT_TRUE(states.sample(clock)) << "a failed read leaves the sample memory alone";

    BatteryStatsStates first;  // a first sample at a low level reports it
    ASSERT_TRUE(first.acquireResources(nullptr, clock));
    hal->setLevel(3);
    EXPECT_EQ(first.sample(clock)->name, "BatteryLow");
}

TEST_F(BatteryStatesConnected, SnapshotRecordsPowerSourceCapacitiesAndChargeTime) {
    auto& battery = hal->info.legacy.legacy;
    battery.batteryFullCharge = 5000000;
    battery.batteryChargeCounter = 2500000;
    hal->info.batteryChargeTimeToFullNowSeconds = 1800;
    hal->setStatus(5);
    clock.now = 42;
    ASSERT_TRUE(states.snapshot(clock, false)) << "no earlier sample is needed";
    EXPECT_TRUE(states.isChargingNow);
    EXPECT_EQ(states.powerSource, "NONE");
    EXPECT_EQ(states.statePowerSource, "NONE");
    EXPECT_EQ(states.fullChargeMah, 5000.0f);
    EXPECT_EQ(states.chargeCounterMah, 2500.0f);
    EXPECT_EQ(states.previousFullChargeMah, 0.0f);
    EXPECT_EQ(states.chargeTimeToFullSeconds, 1800.0f);
    EXPECT_EQ(states.levelAtEvent, 50.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 50.0f);
    EXPECT_EQ(states.lastSnapshotNs, 42);

    hal->setStatus(3);
    hal->setLevel(30);
    const struct {
        bool ac, usb, wireless;
        const char* expected;
    } steps[] = {{true, true, false, "USB"},
                 {false, true, true, "WIRELESS"},
                 {true, true, true, "WIRELESS"},
                 {true, false, false, "AC"},
                 {false, false, false, "AC"}};
    for (const auto& s : steps) {
        hal->setChargers(s.ac, s.usb, s.wireless);
        ASSERT_TRUE(states.snapshot(clock, false));
        EXPECT_EQ(states.powerSource, s.expected) << s.ac << s.usb << s.wireless;
    }
    EXPECT_FALSE(states.isChargingNow);
    EXPECT_EQ(states.statePowerSource, "NONE") << "set by the first snapshot of the state only";
    EXPECT_EQ(states.previousFullChargeMah, 5000.0f) << "the pair moves every snapshot";
    EXPECT_EQ(states.previousChargeCounterMah, 2500.0f);
    EXPECT_EQ(states.levelAtEvent, 50.0f) << "only filled in while unknown";
}

TEST_F(BatteryStatesConnected, SnapshotFailuresAndTheForcedSample) {
    for (const auto& fault : FakeHealth::kBothFaults) {
        hal->failNext(Method::HealthInfo21, fault);
        EXPECT_FALSE(states.snapshot(clock, false));
    }
    EXPECT_EQ(states.powerSource, "");
    hal->setLevel(2);  // the forced sample's "BatteryLow" goes nowhere
    EXPECT_TRUE(states.snapshot(clock, true));
    EXPECT_EQ(states.samples, 1);
    EXPECT_EQ(states.lastSampledLevel, 2);
    EXPECT_EQ(logcapture::entries(), (Log{kReadFailed, kReadFailed, kForced}));
}

}  // namespace
