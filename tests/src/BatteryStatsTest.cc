#include "BatteryStats.h"

#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FakeHealth.h"
#include "LogCapture.h"

namespace {

using logcapture::error;
using logcapture::info;
using testing_support::FakeHealth;
using testing_support::textOf;
using Vistrel::BatteryStats;
using Method = FakeHealth::Method;
using Log = std::vector<logcapture::Entry>;

constexpr int64_t kSecondNs = INT64_C(1000000000);
const logcapture::Entry kNotInitialized = error("BatteryStats: health not initialized");
const logcapture::Entry kReadFailed = info("getHealthInfo_2_1() failed");

constexpr char kHealthInfo[] = "HealthInfo/BatteryCollector";

// Connected to a registered fake (discharging, good, 50 %), acquired at clock time 0.
struct BatteryStatsTest : testing::Test {
    void SetUp() override {
        hal->registerDefault();
        ASSERT_TRUE(stats.acquireResources(nullptr, clock));
        logcapture::clear();
    }
    void TearDown() override { hostplatform::clearServices(); }
    // A sample and a snapshot, so that the record matches the fake.
    void settle() {
        stats.sample(clock);
        ASSERT_TRUE(stats.snapshot(clock, false));
    }
    // Powers the given chargers and takes a snapshot; the power-source text it leaves.
    std::string powerSourceWith(bool ac, bool usb, bool wireless, BatteryStats& provider) {
        hal->setChargers(ac, usb, wireless);
        EXPECT_TRUE(provider.snapshot(clock, false));
        return provider.powerSource;
    }

    android::sp<FakeHealth> hal = new FakeHealth;
    testing_support::SampleCounting<BatteryStats> stats;
    testing_support::FakeClock clock;
};

TEST(BatteryStatsWithoutHal, EveryCallFailsWithItsLine) {
    BatteryStats stats;
    testing_support::FakeClock clock;
    clock.now = 77;
    EXPECT_FALSE(stats.acquireResources(nullptr, clock));
    EXPECT_EQ(stats.lastSnapshotNs, 77) << "stamped all the same";
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_FALSE(stats.snapshot(clock, false)) << "no sample yet: false without a line";
    EXPECT_EQ(logcapture::entries(),
              (Log{error("BatteryStats: health not initialized or service died"), kNotInitialized}));
}

TEST_F(BatteryStatsTest, SnapshotWithoutTheServiceLogsIt) {
    stats.sample(clock);
    stats.healthService.clear();  // a lost service: the HAL cannot take itself away
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(), Log{kNotInitialized});
}

TEST_F(BatteryStatsTest, OnlyTheFirstSampleOfTheProcessNotifiesUnchanged) {
    hal->setStatus(0);  // what a fresh record holds, so nothing differs
    hal->setHealth(0);
    hal->setLevel(0);
    EXPECT_EQ(textOf(stats.sample(clock)), kHealthInfo);
    EXPECT_FALSE(stats.sample(clock));
    BatteryStats other;
    ASSERT_TRUE(other.acquireResources(nullptr, clock));
    EXPECT_FALSE(other.sample(clock)) << "the flag is process-wide";
}

TEST_F(BatteryStatsTest, UnchangedSampleNotifiesFrom601sAfterTheSnapshot) {
    clock.now = 1000 * kSecondNs;
    settle();
    clock.now += INT64_C(600999000000);
    EXPECT_FALSE(stats.sample(clock));
    clock.now += 1000000;
    EXPECT_EQ(textOf(stats.sample(clock)), kHealthInfo);
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST_F(BatteryStatsTest, ChangedLevelStatusOrHealthNotifies) {
    settle();
    for (const auto change :
         {&FakeHealth::setLevel, &FakeHealth::setStatus, &FakeHealth::setHealth}) {
        const auto before = hal->info;
        ((*hal).*change)(4);
        EXPECT_EQ(textOf(stats.sample(clock)), kHealthInfo);
        hal->info = before;
    }
}

TEST_F(BatteryStatsTest, ComparesWithTheLastSnapshotNotTheLastSample) {
    settle();
    hal->setLevel(49);
    stats.sample(clock);
    EXPECT_EQ(textOf(stats.sample(clock)), kHealthInfo);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_FALSE(stats.sample(clock));
}

TEST_F(BatteryStatsTest, EachFailedHalCallEndsTheSampleWithItsOwnLine) {
    const std::pair<Method, logcapture::Entry> calls[] = {
            {Method::Update, error("BatteryStats: health->update() failed")},
            {Method::CurrentNow, info("getCurrentNow() failed")},
            {Method::HealthInfo21, kReadFailed},
    };
    for (const auto& [method, line] : calls) {
        for (const auto& fault : FakeHealth::kBothFaults) {
            hal->failNext(method, fault);
            logcapture::clear();
            EXPECT_FALSE(stats.sample(clock));
            EXPECT_EQ(logcapture::entries(), Log{line}) << static_cast<int>(method);
        }
    }
    EXPECT_EQ(stats.ringCount, 0);
    EXPECT_FALSE(stats.snapshot(clock, false)) << "still no data";
}

TEST_F(BatteryStatsTest, FailedSnapshotReadKeepsTheRecord) {
    settle();
    hal->setLevel(10);
    clock.now = kSecondNs;
    for (const auto& fault : FakeHealth::kBothFaults) {
        hal->failNext(Method::HealthInfo21, fault);
        logcapture::clear();
        EXPECT_FALSE(stats.snapshot(clock, false));
        EXPECT_EQ(logcapture::entries(), Log{kReadFailed});
    }
    EXPECT_EQ(stats.level, 50.0f);
    EXPECT_EQ(stats.lastSnapshotNs, 0);
}

TEST_F(BatteryStatsTest, ForcedSnapshotSamplesThroughTheVirtualSlot) {
    clock.now = 4 * kSecondNs;
    EXPECT_TRUE(stats.snapshot(clock, true)) << "its own sample provided the data";
    EXPECT_EQ(stats.samples, 1);
    EXPECT_EQ(stats.lastSnapshotNs, 4 * kSecondNs);
    EXPECT_EQ(logcapture::entries(), (Log{info("BatteryStats: force sampled in snapshot")}));
}

TEST_F(BatteryStatsTest, ReacquireKeepsTheService) {
    hostplatform::clearServices();
    clock.now = 3 * kSecondNs;
    EXPECT_TRUE(stats.acquireResources(nullptr, clock));
    EXPECT_EQ(stats.lastSnapshotNs, 3 * kSecondNs);
}

TEST_F(BatteryStatsTest, SnapshotConvertsTheHealthRecord) {
    auto& battery = hal->info.legacy.legacy;
    battery.batteryVoltage = 4100;
    battery.batteryCycleCount = 321;
    battery.batteryFullCharge = 4800500;
    battery.batteryChargeCounter = 2016000;
    hal->info.batteryChargeTimeToFullNowSeconds = 5400;
    hal->currentUa = 16777219;  // above 2^24: right as a float only when divided in double
    settle();
    EXPECT_EQ(std::vector<float>({stats.level, stats.fullChargeMah, stats.chargeCounterMah,
                                  stats.chargeTimeToFullSeconds, stats.voltageLastMv,
                                  stats.currentLastMa}),
              std::vector<float>({50, 4800.5f, 2016, 5400, 4100, 16777.219f}));
    EXPECT_EQ(stats.cycleCount, 321);
}

TEST_F(BatteryStatsTest, FirstSnapshotOfTheProcessSetsThePreviousValues) {
    hal->info.legacy.legacy.batteryFullCharge = 4000000;
    settle();
    EXPECT_EQ(stats.previousLevel, 50.0f);
    EXPECT_EQ(stats.previousFullChargeMah, 4000.0f);
    BatteryStats other;  // the flag is process-wide: nothing is copied for it
    ASSERT_TRUE(other.acquireResources(nullptr, clock));
    other.sample(clock);
    ASSERT_TRUE(other.snapshot(clock, false));
    EXPECT_EQ(other.previousLevel, 0.0f);
    EXPECT_EQ(other.previousFullChargeMah, 0.0f);
}

TEST_F(BatteryStatsTest, PreviousChargeFiguresMoveOnlyWhenTheyChange) {
    hal->info.legacy.legacy.batteryChargeCounter = 2016000;
    settle();
    hal->setLevel(40);
    hal->info.legacy.legacy.batteryChargeCounter = 800000;
    ASSERT_TRUE(stats.snapshot(clock, false));
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.previousLevel, 40.0f) << "the level's previous value moves every snapshot";
    EXPECT_EQ(stats.chargeCounterMah, 800.0f);
    EXPECT_EQ(stats.previousChargeCounterMah, 2016.0f);
}

TEST_F(BatteryStatsTest, NameTablesMarkUnnamedValuesApart) {
    const char* const statusNames[] = {"?!?",  "UNKNOWN", "CHARGING", "DISCHARGING", "NOT_CHARGING",
                                       "FULL", "?!?",     "???",      "???",         "???"};
    const char* const healthNames[] = {
            "?!?",  "UNKNOWN", "GOOD", "OVERHEAT", "DEAD", "OVER_VOLTAGE", "UNSPECIFIED_FAILURE",
            "COLD", "?!?",     "???"};
    stats.sample(clock);
    for (int32_t value : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, -1, INT32_MIN}) {
        hal->setStatus(value);
        hal->setHealth(value);
        ASSERT_TRUE(stats.snapshot(clock, false));
        EXPECT_EQ(stats.statusText, value < 0 ? "???" : statusNames[value]) << value;
        EXPECT_EQ(stats.healthText, value < 0 ? "???" : healthNames[value]) << value;
        EXPECT_TRUE(stats.status == value && stats.health == value) << value;
        EXPECT_EQ(stats.isCharging, value == 2 || value == 5) << value;
    }
}

TEST_F(BatteryStatsTest, PowerSourceIsTheLastOnlineOfAcUsbWireless) {
    stats.sample(clock);
    EXPECT_EQ(powerSourceWith(false, false, false, stats), "NONE");
    EXPECT_EQ(powerSourceWith(false, true, false, stats), "USB") << "after NONE: no blank";
    EXPECT_EQ(powerSourceWith(true, true, false, stats), "USB");
    EXPECT_EQ(powerSourceWith(false, true, true, stats), "WIRELESS");
    EXPECT_EQ(powerSourceWith(true, true, true, stats), "WIRELESS");
    EXPECT_EQ(powerSourceWith(true, false, false, stats), "AC");
    EXPECT_EQ(powerSourceWith(false, false, false, stats), "AC") << "nothing online keeps it";
}

TEST_F(BatteryStatsTest, StatisticsSumNewestFirst) {
    const int32_t currentsUa[] = {-500100, 1500300, 250700, 100};  // oldest first
    float newestFirst = 0, oldestFirst = 0;
    for (int i = 0; i < 4; ++i) {
        hal->currentUa = currentsUa[i];
        stats.sample(clock);
        newestFirst += static_cast<float>(currentsUa[3 - i] / 1000.0);
        oldestFirst += static_cast<float>(currentsUa[i] / 1000.0);
    }
    ASSERT_NE(newestFirst, oldestFirst) << "the float sum must depend on the order";
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.currentLastMa, 0.1f);
    EXPECT_EQ(stats.currentMaxMa, 1500.3f);
    EXPECT_EQ(stats.currentMinMa, -500.1f);
    EXPECT_EQ(stats.currentAvgMa, newestFirst / 4);
    EXPECT_EQ(stats.voltageMinMv, 3900.0f) << "unwritten entries stay out";
}

TEST_F(BatteryStatsTest, StatisticsCoverTheLatest200SamplesAcrossSnapshots) {
    for (int i = 1; i <= 250; ++i) {
        hal->currentUa = i * 1000;  // i mA
        hal->info.legacy.legacy.batteryVoltage = 4000 - i;
        stats.sample(clock);
        if (i == 10) stats.snapshot(clock, false);  // which does not reset the rings
    }
    EXPECT_EQ(stats.ringCount, 200);
    EXPECT_EQ(stats.ringIndex, 50);
    ASSERT_TRUE(stats.snapshot(clock, false));
    const float expected[] = {250, 250, 51, 150.5, 3750, 3949, 3750, 3849.5};
    const float actual[] = {stats.currentLastMa, stats.currentMaxMa,  stats.currentMinMa,
                            stats.currentAvgMa,  stats.voltageLastMv, stats.voltageMaxMv,
                            stats.voltageMinMv,  stats.voltageAvgMv};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(actual[i], expected[i]) << i;
}

}  // namespace
