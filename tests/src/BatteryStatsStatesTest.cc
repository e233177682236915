#include "BatteryStatsStates.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FakeHealth.h"
#include "LogCapture.h"
#include "hostplatform/Power.h"

namespace {

using Vistrel::BatteryState;
using Vistrel::BatteryStatsStates;
using testing_support::FakeClock;
using testing_support::FakeHealth;
using Method = FakeHealth::Method;
using Result = FakeHealth::Result;
using S = BatteryState;

const logcapture::Entry kNotInitialized{ANDROID_LOG_ERROR, "Vistrel",
                                        "BatteryStats: health not initialized"};
const logcapture::Entry kHealthReadFailed{ANDROID_LOG_INFO, "Vistrel", "getHealthInfo_2_1() failed"};

logcapture::Entry action(const std::string& name) {
    return {ANDROID_LOG_INFO, "Vistrel", "BatteryStatsStates::" + name + "()"};
}

// A BatteryStatsStates connected to a registered fake (discharging, 50 %) on an interactive
// device, acquired at time stamp 100.
struct BatteryStatesConnected : testing::Test {
    void SetUp() override {
        hal = new FakeHealth;
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
    android::sp<FakeHealth> hal;
    BatteryStatsStates states;
    FakeClock clock;
};

TEST(BatteryStatsStatesContract, NameAndPeriod) {
    BatteryStatsStates states;
    EXPECT_STREQ(states.name(), "BatteryStatsStates");
    EXPECT_EQ(states.sampleRate(), Vistrel::SamplePeriod(std::chrono::milliseconds(60000)));
}

TEST(BatteryStatsStatesContract, PredicatesAreFunctionsOfTheValueBits) {
    const struct {
        int32_t value;
        bool active, charging;
    } cases[] = {{0, true, false}, {1, true, true},   {2, false, false}, {3, false, true},
                 {5, false, false}, {-1, false, false}, {-3, false, false}};
    for (const auto& c : cases) {
        const auto state = static_cast<BatteryState>(c.value);
        EXPECT_EQ(BatteryStatsStates::isActive(state), c.active) << c.value;
        EXPECT_EQ(BatteryStatsStates::isCharging(state), c.charging) << c.value;
    }
}

TEST(BatteryStatsStatesContract, BeforeAcquireTheTableIsEmptyAndNotifyIsIgnored) {
    BatteryStatsStates states;
    FakeClock clock;
    clock.timestamp = 9;
    states.notify("PowerConnected", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveDischarging);
    EXPECT_EQ(states.stateStartStamp, 0);
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST(BatteryStatsStatesWithoutHal, AcquireBuildsTheTableButFailsAndTransitionsSkipTheAction) {
    BatteryStatsStates states;
    FakeClock clock;
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
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel", "BatteryStatsStates: health HAL V2.1 not available or dead"},
                  kNotInitialized, kNotInitialized, kNotInitialized,
                  {ANDROID_LOG_INFO, "Vistrel", "BatteryStatsStates: force sampled in snapshot"},
                  kNotInitialized, kNotInitialized}));
}

TEST_F(BatteryStatesConnected, TheTableHasExactlyTheseTwentyTwoEntries) {
    const struct {
        S from;
        const char* event;
        S to;
        const char* action;
    } table[] = {
        {S::ActiveDischarging, "PowerConnected", S::ActiveCharging, "chargeStartEvent"},
        {S::ActiveDischarging, "PowerDisconnected", S::ActiveDischarging, "nullEvent"},
        {S::ActiveDischarging, "ScreenOff", S::InactiveDischarging, "activeEndEvent"},
        {S::ActiveDischarging, "ScreenOn", S::ActiveDischarging, "nullEvent"},
        {S::ActiveDischarging, "BatteryLow", S::ActiveDischarging, "shutdownEvent"},
        {S::InactiveDischarging, "PowerConnected", S::InactiveCharging, "chargeStartEvent"},
        {S::InactiveDischarging, "PowerDisconnected", S::InactiveDischarging, "nullEvent"},
        {S::InactiveDischarging, "ScreenOff", S::InactiveDischarging, "nullEvent"},
        {S::InactiveDischarging, "ScreenOn", S::ActiveDischarging, "activeStartEvent"},
        {S::InactiveDischarging, "BatteryLow", S::InactiveDischarging, "shutdownEvent"},
        {S::ActiveCharging, "PowerConnected", S::ActiveCharging, "chargeStartEvent"},
        {S::ActiveCharging, "PowerDisconnected", S::ActiveDischarging, "chargeEndEvent"},
        {S::ActiveCharging, "ScreenOff", S::InactiveCharging, "activeEndEvent"},
        {S::ActiveCharging, "ScreenOn", S::ActiveCharging, "nullEvent"},
        {S::ActiveCharging, "BatteryLow", S::ActiveCharging, "shutdownEvent"},
        {S::ActiveCharging, "BatteryFull", S::ActiveCharging, "batteryFullEvent"},
        {S::InactiveCharging, "PowerConnected", S::InactiveCharging, "chargeStartEvent"},
        {S::InactiveCharging, "PowerDisconnected", S::InactiveDischarging, "chargeEndEvent"},
        {S::InactiveCharging, "ScreenOff", S::InactiveCharging, "nullEvent"},
        {S::InactiveCharging, "ScreenOn", S::ActiveCharging, "activeStartEvent"},
        {S::InactiveCharging, "BatteryLow", S::InactiveCharging, "shutdownEvent"},
        {S::InactiveCharging, "BatteryFull", S::InactiveCharging, "batteryFullEvent"},
    };
    ASSERT_EQ(states.transitions.size(), 22u);
    for (const auto& t : table) {
        states.currentState = t.from;
        logcapture::clear();
        states.notify(t.event, "ignored detail", clock);
        EXPECT_EQ(states.currentState, t.to) << t.event << " from " << static_cast<int>(t.from);
        EXPECT_EQ(states.previousState, t.from);
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{action(t.action)}) << t.event;
    }
}

TEST_F(BatteryStatesConnected, EventsWithoutAnEntryChangeNothing) {
    const std::pair<S, const char*> misses[] = {
        {S::ActiveDischarging, "BatteryFull"}, {S::InactiveDischarging, "BatteryFull"},
        {S::ActiveCharging, "HealthInfo"},     {S::InactiveCharging, "screenon"},
        {S::ActiveCharging, ""},
    };
    for (const auto& [state, event] : misses) {
        states.currentState = state;
        states.previousState = S::InactiveCharging;
        states.stateStartStamp = 5;
        states.statePowerSource = "AC";
        clock.timestamp = 999;
        states.notify(event, "", clock);
        EXPECT_EQ(states.currentState, state) << event;
        EXPECT_EQ(states.previousState, S::InactiveCharging);
        EXPECT_EQ(states.stateStartStamp, 5);
        EXPECT_EQ(states.statePowerSource, "AC");
        EXPECT_EQ(states.levelAtEvent, -1.0f);
    }
    EXPECT_EQ(hal->calls(Method::HealthInfo21), 1) << "only the acquire read the HAL";
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST_F(BatteryStatesConnected, ASelfTransitionMovesStampsPreviousValuesAndPowerSources) {
    ASSERT_EQ(states.currentState, S::ActiveDischarging);
    hal->setChargers(false, true, false);
    ASSERT_TRUE(states.snapshot(clock, false));
    ASSERT_EQ(states.statePowerSource, " USB");

    clock.timestamp = 250;
    hal->setLevel(48);
    states.notify("ScreenOn", "", clock);
    EXPECT_EQ(states.currentState, S::ActiveDischarging);
    EXPECT_EQ(states.previousState, S::ActiveDischarging);
    EXPECT_EQ(states.previousStateStartStamp, 100);
    EXPECT_EQ(states.stateStartStamp, 250);
    EXPECT_EQ(states.previousStatePowerSource, " USB");
    EXPECT_EQ(states.statePowerSource, "");
    EXPECT_EQ(states.previousLevelAtEvent, 50.0f) << "filled in by the snapshot";
    EXPECT_EQ(states.levelAtEvent, 48.0f);
    EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{action("nullEvent")});
}

TEST_F(BatteryStatesConnected, TheFirstTransitionUsesItsOwnLevelAsThePreviousOne) {
    hal->setLevel(37);
    states.notify("PowerConnected", "", clock);
    EXPECT_EQ(states.levelAtEvent, 37.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 37.0f);
    hal->setLevel(41);
    states.notify("ScreenOff", "", clock);
    EXPECT_EQ(states.currentState, S::InactiveCharging);
    EXPECT_EQ(states.levelAtEvent, 41.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 37.0f);
}

TEST_F(BatteryStatesConnected, AFailedHealthReadChangesTheStateButSkipsLevelsAndAction) {
    states.levelAtEvent = 20.0f;
    states.previousLevelAtEvent = 10.0f;
    states.statePowerSource = "AC";
    for (const auto& fault : {FakeHealth::transportFailure(), FakeHealth::answer(Result::UNKNOWN)}) {
        hal->failNext(Method::HealthInfo21, fault);
        const S before = states.currentState;
        const int64_t stampBefore = states.stateStartStamp;
        clock.timestamp += 10;
        logcapture::clear();
        states.notify("PowerConnected", "", clock);
        EXPECT_TRUE(BatteryStatsStates::isCharging(states.currentState));
        EXPECT_EQ(states.previousState, before);
        EXPECT_EQ(states.previousStateStartStamp, stampBefore);
        EXPECT_EQ(states.stateStartStamp, clock.timestamp);
        EXPECT_EQ(states.statePowerSource, "");
        EXPECT_EQ(states.levelAtEvent, 20.0f);
        EXPECT_EQ(states.previousLevelAtEvent, 10.0f);
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{kHealthReadFailed});
    }
    EXPECT_EQ(states.previousStatePowerSource, "") << "moved twice";
}

TEST_F(BatteryStatesConnected, AcquireDerivesTheStartingStateFromStatusAndInteractivity) {
    const struct {
        int32_t status;
        bool interactive;
        S expected;
    } cases[] = {
        {3, true, S::ActiveDischarging},   {3, false, S::InactiveDischarging},
        {2, true, S::ActiveCharging},      {5, false, S::InactiveCharging},
        {4, false, S::InactiveDischarging}, {1, true, S::ActiveDischarging},
    };
    for (const auto& c : cases) {
        hal->setStatus(c.status);
        interactive = c.interactive;
        clock.timestamp += 1;
        states.currentState = S::ActiveCharging;
        ASSERT_TRUE(states.acquireResources(nullptr, clock));
        EXPECT_EQ(states.currentState, c.expected) << c.status << " " << c.interactive;
        EXPECT_EQ(states.stateStartStamp, clock.timestamp) << "the stamp of createFSM";
        EXPECT_EQ(states.isChargingNow, c.status == 2 || c.status == 5);
    }
}

TEST_F(BatteryStatesConnected, AcquireWithAFailedReadKeepsTheFreshInactiveChargingState) {
    hal->failNext(Method::HealthInfo21, FakeHealth::answer(Result::NOT_SUPPORTED));
    states.transitions.clear();
    clock.now = 1234;
    EXPECT_TRUE(states.acquireResources(nullptr, clock));
    EXPECT_EQ(states.currentState, S::InactiveCharging);
    EXPECT_EQ(states.transitions.size(), 22u) << "rebuilt on every acquire";
    EXPECT_EQ(states.lastSnapshotNs, 1234);
    EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{kHealthReadFailed});
}

TEST_F(BatteryStatesConnected, BatteryFullOncePerRiseToNinetyNeverOnTheFirstSample) {
    hal->setStatus(2);
    const struct {
        int32_t level;
        bool full;
    } steps[] = {{95, false}, {96, false}, {89, false}, {90, true}, {100, false},
                 {88, false}, {92, true}, {91, false}};
    for (const auto& s : steps) {
        hal->setLevel(s.level);
        const auto n = states.sample(clock);
        EXPECT_EQ(n.has_value(), s.full) << s.level;
        if (n) {
            EXPECT_EQ(n->name, "BatteryFull");
            EXPECT_EQ(n->detail, "BatteryStateCollector");
        }
    }
}

TEST_F(BatteryStatesConnected, BatteryLowOncePerNewLevelAtOrBelowThreeWhileDischarging) {
    const struct {
        int32_t level, status;
        bool low;
    } steps[] = {{4, 3, false}, {3, 3, true},  {3, 3, false}, {2, 3, true},  {2, 2, false},
                 {1, 2, false}, {1, 3, false}, {0, 3, true},  {3, 4, false}, {3, 3, false},
                 {-1, 3, true}};
    for (const auto& s : steps) {
        hal->setLevel(s.level);
        hal->setStatus(s.status);
        const auto n = states.sample(clock);
        EXPECT_EQ(n.has_value(), s.low) << s.level << " status " << s.status;
        if (n) {
            EXPECT_EQ(n->name, "BatteryLow");
            EXPECT_EQ(n->detail, "BatteryExtremeLow");
        }
    }
    EXPECT_EQ(states.lastSampledLevel, -1);
}

TEST_F(BatteryStatesConnected, TheFirstSampleAtLowLevelReportsLow) {
    hal->setLevel(3);
    const auto n = states.sample(clock);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "BatteryLow");
}

TEST_F(BatteryStatesConnected, AFailedSampleReadLeavesTheSampleMemoryAlone) {
    hal->setLevel(80);
    states.sample(clock);
    hal->setLevel(91);
    hal->failNext(Method::HealthInfo21, FakeHealth::transportFailure());
    EXPECT_FALSE(states.sample(clock));
    EXPECT_EQ(states.lastSampledLevel, 80);
    EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{kHealthReadFailed});
    EXPECT_TRUE(states.sample(clock)) << "the rise is still seen";
}

TEST_F(BatteryStatesConnected, SnapshotRecordsPowerSourceCapacitiesAndChargeTime) {
    auto& battery = hal->info.legacy.legacy;
    battery.batteryFullCharge = 5000000;
    battery.batteryChargeCounter = 2500000;
    hal->info.batteryChargeTimeToFullNowSeconds = 1800;
    hal->setStatus(5);
    hal->setChargers(true, true, false);
    clock.now = 42;
    ASSERT_TRUE(states.snapshot(clock, false)) << "no earlier sample is needed";
    EXPECT_TRUE(states.isChargingNow);
    EXPECT_EQ(states.powerSource, "USB");
    EXPECT_EQ(states.statePowerSource, "USB");
    EXPECT_EQ(states.fullChargeMah, 5000.0f);
    EXPECT_EQ(states.chargeCounterMah, 2500.0f);
    EXPECT_EQ(states.previousFullChargeMah, 0.0f);
    EXPECT_EQ(states.chargeTimeToFullSeconds, 1800.0f);
    EXPECT_EQ(states.levelAtEvent, 50.0f);
    EXPECT_EQ(states.previousLevelAtEvent, 50.0f);
    EXPECT_EQ(states.lastSnapshotNs, 42);

    hal->setChargers(true, false, false);
    hal->setStatus(3);
    hal->setLevel(30);
    ASSERT_TRUE(states.snapshot(clock, false));
    EXPECT_FALSE(states.isChargingNow);
    EXPECT_EQ(states.powerSource, "AC");
    EXPECT_EQ(states.statePowerSource, "USB") << "set by the first snapshot of the state only";
    EXPECT_EQ(states.previousFullChargeMah, 5000.0f) << "the pair moves every snapshot";
    EXPECT_EQ(states.previousChargeCounterMah, 2500.0f);
    EXPECT_EQ(states.levelAtEvent, 50.0f) << "only filled in while unknown";

    hal->setChargers(false, false, false);
    ASSERT_TRUE(states.snapshot(clock, false));
    EXPECT_EQ(states.powerSource, "AC");
}

TEST_F(BatteryStatesConnected, SnapshotFailuresAndTheForcedSample) {
    hal->failNext(Method::HealthInfo21, FakeHealth::answer(Result::UNKNOWN));
    EXPECT_FALSE(states.snapshot(clock, false));
    EXPECT_EQ(states.powerSource, "");

    struct Counting : BatteryStatsStates {
        std::optional<Vistrel::Notification> sample(Vistrel::IClockReader& c) override {
            ++samples;
            return BatteryStatsStates::sample(c);
        }
        int samples = 0;
    } counting;
    ASSERT_TRUE(counting.acquireResources(nullptr, clock));
    hal->setLevel(2);  // the forced sample's "BatteryLow" goes nowhere
    EXPECT_TRUE(counting.snapshot(clock, true));
    EXPECT_EQ(counting.samples, 1);
    EXPECT_EQ(counting.lastSampledLevel, 2);
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  kHealthReadFailed,
                  {ANDROID_LOG_INFO, "Vistrel", "BatteryStatsStates: force sampled in snapshot"}}));
}

}  // namespace
