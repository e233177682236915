#include "BatteryStatsStates.h"

#include <gtest/gtest.h>

#include <tuple>

#include "FakeClock.h"
#include "FakeHealth.h"
#include "LogCapture.h"
#include "hostplatform/Power.h"

namespace {

using logcapture::error;
using logcapture::info;
using testing_support::FakeClock;
using testing_support::FakeHealth;
using Vistrel::BatteryStatsStates;
using Method = FakeHealth::Method;
using S = Vistrel::BatteryState;
using Log = std::vector<logcapture::Entry>;

const logcapture::Entry kNotInitialized = error("BatteryStats: health not initialized");
const logcapture::Entry kReadFailed = info("getHealthInfo_2_1() failed");
const logcapture::Entry kForced = info("BatteryStatsStates: force sampled in snapshot");

logcapture::Entry action(const std::string& name) {
    return info("BatteryStatsStates::" + name + "()");
}

// Connected to a registered fake (discharging, 50 %) on an interactive device, acquired at time
// stamp 100: the state is ActiveDischarging.
struct BatteryStatesTest : testing::Test {
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
    // Reaches `state` the way the device does: an acquire on a matching HAL and screen.
    void enter(S state) {
        hal->setStatus(BatteryStatsStates::isCharging(state) ? 2 : 3);
        interactive = BatteryStatsStates::isActive(state);
        ASSERT_TRUE(states.acquireResources(nullptr, clock));
        ASSERT_EQ(states.currentState, state);
        logcapture::clear();
    }
    std::string sampleAt(int32_t level, int32_t status) {
        hal->setLevel(level);
        hal->setStatus(status);
        return testing_support::textOf(states.sample(clock));
    }
    std::string powerSourceWith(bool ac, bool usb, bool wireless) {
        hal->setChargers(ac, usb, wireless);
        EXPECT_TRUE(states.snapshot(clock, false));
        return states.powerSource;
    }

    bool interactive = true;
    android::sp<FakeHealth> hal = new FakeHealth;
    testing_support::SampleCounting<BatteryStatsStates> states;
    FakeClock clock;
};

// Without a health HAL: every read logs the missing service, the failed acquire still builds the
// table, and transitions then move on without reading a level.
TEST(BatteryStatesWithoutHal, TransitionsMoveOnWithoutReadingAndEveryReadLogs) {
    BatteryStatsStates states;
    FakeClock clock;
    states.notify("PowerConnected", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveDischarging) << "no transition before the acquire";
    EXPECT_FALSE(states.sample(clock));
    EXPECT_FALSE(states.snapshot(clock, false));
    EXPECT_FALSE(states.snapshot(clock, true));
    EXPECT_EQ(logcapture::entries(),
              (Log{kNotInitialized, kNotInitialized, kForced, kNotInitialized, kNotInitialized}));

    logcapture::clear();
    clock.timestamp = 7;
    clock.now = 70;
    EXPECT_FALSE(states.acquireResources(nullptr, clock));
    EXPECT_EQ(states.transitions.size(), 22u);
    EXPECT_EQ(states.currentState, S::InactiveCharging);
    EXPECT_EQ(states.stateStartStamp, 7);
    EXPECT_EQ(states.lastSnapshotNs, 70);
    clock.timestamp = 8;
    states.notify("ScreenOn", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveCharging);
    EXPECT_EQ(states.stateStartStamp, 8);
    EXPECT_EQ(states.levelAtEvent, -1.0f);
    EXPECT_EQ(logcapture::entries(),
              (Log{error("BatteryStatsStates: health HAL V2.1 not available or dead"),
                   kNotInitialized}));
}

TEST_F(BatteryStatesTest, TheTableHasExactlyTheseTwentyTwoEntries) {
    constexpr S AD = S::ActiveDischarging, AC = S::ActiveCharging, ID = S::InactiveDischarging,
                IC = S::InactiveCharging;
    const std::tuple<S, const char*, S, const char*> table[] = {
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
            {IC, "BatteryFull", IC, "batteryFullEvent"}};
    EXPECT_EQ(states.transitions.size(), 22u);
    for (const auto& [from, event, to, name] : table) {
        enter(from);
        states.notify(event, "ignored detail", clock);
        EXPECT_EQ(states.currentState, to) << event << " from " << static_cast<int>(from);
        EXPECT_EQ(states.previousState, from);
        EXPECT_EQ(logcapture::entries(), Log{action(name)}) << event;
    }
}

TEST_F(BatteryStatesTest, EventsWithoutAnEntryChangeNothing) {
    ASSERT_TRUE(states.snapshot(clock, false));
    clock.timestamp = 250;
    hal->setLevel(48);
    for (const char* event : {"BatteryFull", "screenon", ""}) {  // BatteryFull: only while charging
        states.notify(event, "", clock);
        EXPECT_EQ(states.currentState, S::ActiveDischarging) << event;
        EXPECT_EQ(states.stateStartStamp, 100);
        EXPECT_EQ(states.statePowerSource, "NONE");
        EXPECT_EQ(states.levelAtEvent, 50.0f);
    }
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST_F(BatteryStatesTest, TransitionsMoveTheBookkeepingAndReadTheLevelUnlessTheReadFails) {
    hal->setLevel(37);
    states.notify("PowerConnected", "", clock);
    EXPECT_EQ(states.levelAtEvent, 37.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 37.0f) << "the first transition takes its own level";
    hal->setChargers(true, false, false);
    ASSERT_TRUE(states.snapshot(clock, false));  // fills in statePowerSource
    clock.timestamp = 250;
    hal->setLevel(41);
    logcapture::clear();
    states.notify("ScreenOn", "", clock);  // a self-transition moves everything along too
    EXPECT_EQ(states.previousState, S::ActiveCharging);
    EXPECT_EQ(std::make_pair(states.previousStateStartStamp, states.stateStartStamp),
              std::make_pair(int64_t{100}, int64_t{250}));
    EXPECT_EQ(states.previousStatePowerSource, " AC");
    EXPECT_EQ(states.statePowerSource, "");
    EXPECT_EQ(std::make_pair(states.previousLevelAtEvent, states.levelAtEvent),
              std::make_pair(37.0f, 41.0f));
    EXPECT_EQ(logcapture::entries(), Log{action("nullEvent")});

    hal->setLevel(45);
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
        EXPECT_EQ(states.levelAtEvent, 41.0f) << "not read";
        EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
    }
}

TEST_F(BatteryStatesTest, EveryAcquireDerivesTheStartingStateKeepingTheFreshStamp) {
    const std::tuple<int32_t, bool, S> cases[] = {
            {3, true, S::ActiveDischarging},    {3, false, S::InactiveDischarging},
            {2, true, S::ActiveCharging},       {5, false, S::InactiveCharging},
            {4, false, S::InactiveDischarging}, {1, true, S::ActiveDischarging},
    };
    for (const auto& [status, screenOn, expected] : cases) {
        hal->setStatus(status);
        interactive = screenOn;
        clock.timestamp += 1;
        ASSERT_TRUE(states.acquireResources(nullptr, clock));
        EXPECT_EQ(states.currentState, expected) << status << " " << screenOn;
        EXPECT_EQ(states.stateStartStamp, clock.timestamp);
        EXPECT_EQ(states.isChargingNow, status == 2 || status == 5);
    }
}

TEST_F(BatteryStatesTest, AcquireWithAFailedReadKeepsInactiveCharging) {
    hal->failNext(Method::HealthInfo21, FakeHealth::kTransport);
    clock.now = 1234;
    EXPECT_TRUE(states.acquireResources(nullptr, clock));
    EXPECT_EQ(states.currentState, S::InactiveCharging);
    EXPECT_EQ(states.lastSnapshotNs, 1234);
    EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
}

TEST_F(BatteryStatesTest, FullOncePerRiseToNinetyNeverOnTheFirstSample) {
    const char* const full = "BatteryFull/BatteryStateCollector";
    EXPECT_EQ(sampleAt(95, 2), "");
    EXPECT_EQ(sampleAt(96, 2), "");
    EXPECT_EQ(sampleAt(89, 2), "");
    EXPECT_EQ(sampleAt(90, 2), full);
    EXPECT_EQ(sampleAt(100, 5), "");
    EXPECT_EQ(sampleAt(88, 2), "");
    EXPECT_EQ(sampleAt(92, 3), full) << "whatever the status";
}

TEST_F(BatteryStatesTest, LowOncePerNewLevelAtThreeOrBelowWhileDischarging) {
    const char* const low = "BatteryLow/BatteryExtremeLow";
    EXPECT_EQ(sampleAt(3, 3), low) << "also on the first sample";
    EXPECT_EQ(sampleAt(3, 3), "");
    EXPECT_EQ(sampleAt(2, 3), low);
    EXPECT_EQ(sampleAt(4, 3), "");
    EXPECT_EQ(sampleAt(1, 2), "") << "charging";
    EXPECT_EQ(sampleAt(1, 4), "") << "not charging";
    EXPECT_EQ(sampleAt(1, 3), "") << "the level was seen already";
    EXPECT_EQ(sampleAt(-1, 3), low);
}

TEST_F(BatteryStatesTest, FailedSampleReadLeavesTheSampleMemoryAlone) {
    sampleAt(80, 2);
    hal->setLevel(91);
    hal->failNext(Method::HealthInfo21, FakeHealth::kTransport);
    EXPECT_FALSE(states.sample(clock));
    EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
    EXPECT_TRUE(states.sample(clock));
}

TEST_F(BatteryStatesTest, SnapshotRecordsTheHealthFigures) {
    auto& battery = hal->info.legacy.legacy;
    battery.batteryFullCharge = 5000000;
    battery.batteryChargeCounter = 2500000;
    hal->info.batteryChargeTimeToFullNowSeconds = 1800;
    hal->setStatus(5);
    clock.now = 42;
    ASSERT_TRUE(states.snapshot(clock, false));
    EXPECT_TRUE(states.isChargingNow);
    EXPECT_EQ(std::vector<float>({states.fullChargeMah, states.chargeCounterMah,
                                  states.chargeTimeToFullSeconds, states.levelAtEvent,
                                  states.previousLevelAtEvent}),
              std::vector<float>({5000, 2500, 1800, 50, 50}));
    EXPECT_EQ(states.lastSnapshotNs, 42);
    hal->setLevel(30);
    battery.batteryChargeCounter = 2000000;
    ASSERT_TRUE(states.snapshot(clock, false));
    EXPECT_EQ(states.previousFullChargeMah, 5000.0f) << "the pair moves every snapshot";
    EXPECT_EQ(states.previousChargeCounterMah, 2500.0f);
    EXPECT_EQ(states.levelAtEvent, 50.0f) << "only filled in while unknown";
}

TEST_F(BatteryStatesTest, OnlyTheFirstSnapshotInAStateSetsItsPowerSource) {
    EXPECT_EQ(powerSourceWith(false, false, false), "NONE");
    EXPECT_EQ(powerSourceWith(true, true, true), "WIRELESS");
    EXPECT_EQ(states.statePowerSource, "NONE") << "set by the first snapshot of the state only";
}

TEST_F(BatteryStatesTest, FailedSnapshotReadChangesNothing) {
    for (const auto& fault : FakeHealth::kBothFaults) {
        hal->failNext(Method::HealthInfo21, fault);
        EXPECT_FALSE(states.snapshot(clock, false));
    }
    EXPECT_EQ(states.powerSource, "");
    EXPECT_EQ(logcapture::entries(), (Log{kReadFailed, kReadFailed}));
}

TEST_F(BatteryStatesTest, ForcedSnapshotSamplesThroughTheVirtualSlot) {
    hal->setLevel(2);
    EXPECT_TRUE(states.snapshot(clock, true));
    EXPECT_EQ(states.samples, 1);
    EXPECT_EQ(states.lastSampledLevel, 2);
    EXPECT_EQ(logcapture::entries(), Log{kForced});
}

}  // namespace
