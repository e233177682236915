#include "BatteryStats.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FakeHealth.h"
#include "LogCapture.h"

namespace {

using Vistrel::BatteryStats;
using testing_support::FakeClock;
using testing_support::FakeHealth;
using Method = FakeHealth::Method;
using Result = FakeHealth::Result;

constexpr int64_t kSecondNs = INT64_C(1000000000);

const logcapture::Entry kNotInitialized{ANDROID_LOG_ERROR, "Vistrel",
                                        "BatteryStats: health not initialized"};
const logcapture::Entry kHealthReadFailed{ANDROID_LOG_INFO, "Vistrel", "getHealthInfo_2_1() failed"};

bool isHealthInfo(const std::optional<Vistrel::Notification>& n) {
    return n && n->name == "HealthInfo" && n->detail == "BatteryCollector";
}

// A BatteryStats connected to a registered fake, acquired at clock time 0.
struct BatteryStatsConnected : testing::Test {
    void SetUp() override {
        hal = new FakeHealth;
        hal->registerDefault();
        ASSERT_TRUE(stats.acquireResources(nullptr, clock));
        logcapture::clear();
    }
    void TearDown() override { hostplatform::clearServices(); }

    android::sp<FakeHealth> hal;
    BatteryStats stats;
    FakeClock clock;
};

TEST(BatteryStatsContract, NameAndPeriod) {
    BatteryStats stats;
    EXPECT_STREQ(stats.name(), "BatteryStats");
    EXPECT_EQ(stats.sampleRate(), Vistrel::SamplePeriod(std::chrono::milliseconds(10000)));
}

TEST(BatteryStatsWithoutHal, AcquireFailsAndEveryCallReportsTheMissingService) {
    BatteryStats stats;
    FakeClock clock;
    clock.now = 77;
    EXPECT_FALSE(stats.acquireResources(nullptr, clock));
    EXPECT_EQ(stats.lastSnapshotNs, 77) << "stamped even when the service is missing";
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_FALSE(stats.snapshot(clock, false)) << "no sample yet: false without a log";
    EXPECT_FALSE(stats.snapshot(clock, true));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel", "BatteryStats: health not initialized or service died"},
                  kNotInitialized,
                  {ANDROID_LOG_INFO, "Vistrel", "BatteryStats: force sampled in snapshot"},
                  kNotInitialized}));
}

TEST(BatteryStatsWithoutHal, SnapshotWithSamplesButNoServiceLogs) {
    BatteryStats stats;
    FakeClock clock;
    stats.ringCount = 1;  // as if a sample had succeeded on a since-dropped service
    logcapture::clear();
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{kNotInitialized});
}

TEST_F(BatteryStatsConnected, ReacquireKeepsTheServiceButRestampsAndLateRegistrationConnects) {
    clock.now = 5 * kSecondNs;
    hostplatform::clearServices();
    EXPECT_TRUE(stats.acquireResources(nullptr, clock)) << "already connected";
    EXPECT_EQ(stats.lastSnapshotNs, 5 * kSecondNs);

    BatteryStats late;
    EXPECT_FALSE(late.acquireResources(nullptr, clock));
    hal->registerDefault();
    EXPECT_TRUE(late.acquireResources(nullptr, clock));
    EXPECT_EQ(late.healthService.get(), hal.get());
}

TEST_F(BatteryStatsConnected, FirstSampleOfTheProcessNotifiesThenOnlyChangesDo) {
    stats.status = 3;
    stats.health = 2;
    stats.level = 50;  // nothing differs from the HAL's answer
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_FALSE(stats.sample(clock)) << "nothing changed since the snapshot";

    // A second instance in the same process: the first-sample flag is process-wide.
    BatteryStats other;
    ASSERT_TRUE(other.acquireResources(nullptr, clock));
    other.status = 3;
    other.health = 2;
    other.level = 50;
    EXPECT_FALSE(other.sample(clock));
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST_F(BatteryStatsConnected, EachFieldComparesAgainstTheLastSnapshotNotTheLastSample) {
    stats.sample(clock);
    ASSERT_TRUE(stats.snapshot(clock, false));

    hal->setLevel(49);
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
    EXPECT_TRUE(isHealthInfo(stats.sample(clock))) << "still differs from the snapshot";
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_FALSE(stats.sample(clock));

    hal->setStatus(2);
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
    hal->setStatus(3);
    hal->setHealth(3);
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
    hal->setHealth(2);
    EXPECT_FALSE(stats.sample(clock));
}

TEST_F(BatteryStatsConnected, NotifiesFrom601SecondsAfterTheLastSnapshot) {
    stats.sample(clock);
    clock.now = 10 * kSecondNs;
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.lastSnapshotNs, 10 * kSecondNs);

    clock.now = 10 * kSecondNs + 600999000000;  // 600.999 s later
    EXPECT_FALSE(stats.sample(clock));
    clock.now = 10 * kSecondNs + 601 * kSecondNs;
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
}

TEST_F(BatteryStatsConnected, TheAcquireStampCountsAsTheLastSnapshot) {
    stats.sample(clock);  // the process's first sample
    stats.status = 3;
    stats.health = 2;
    stats.level = 50;  // as a snapshot would have left them
    clock.now = 601 * kSecondNs - 1;
    EXPECT_FALSE(stats.sample(clock));
    clock.now = 601 * kSecondNs;
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
}

TEST_F(BatteryStatsConnected, EachFailingCallEndsTheSampleWithItsOwnLogAndNoRingEntry) {
    const std::pair<FakeHealth::Fault, logcapture::Entry> updateFailures[] = {
        {FakeHealth::transportFailure(),
         {ANDROID_LOG_ERROR, "Vistrel", "BatteryStats: health->update() failed"}},
        {FakeHealth::answer(Result::UNKNOWN),
         {ANDROID_LOG_ERROR, "Vistrel", "BatteryStats: health->update() failed"}},
    };
    for (const auto& [fault, line] : updateFailures) {
        hal->failNext(Method::Update, fault);
        logcapture::clear();
        EXPECT_FALSE(stats.sample(clock));
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{line});
    }
    EXPECT_EQ(hal->calls(Method::CurrentNow), 0) << "a failed update stops the sample";

    const logcapture::Entry currentFailed{ANDROID_LOG_INFO, "Vistrel", "getCurrentNow() failed"};
    for (const auto& fault : {FakeHealth::transportFailure(), FakeHealth::answer(Result::NOT_SUPPORTED)}) {
        hal->failNext(Method::CurrentNow, fault);
        logcapture::clear();
        EXPECT_FALSE(stats.sample(clock));
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{currentFailed});
    }
    EXPECT_EQ(hal->calls(Method::HealthInfo21), 0);

    for (const auto& fault : {FakeHealth::transportFailure(), FakeHealth::answer(Result::UNKNOWN)}) {
        hal->failNext(Method::HealthInfo21, fault);
        logcapture::clear();
        EXPECT_FALSE(stats.sample(clock));
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{kHealthReadFailed});
    }
    EXPECT_EQ(stats.ringCount, 0);
    EXPECT_EQ(stats.ringIndex, 0);
    EXPECT_FALSE(stats.snapshot(clock, false)) << "still no data";

    EXPECT_TRUE(isHealthInfo(stats.sample(clock))) << "the first success is the first sample";
}

TEST_F(BatteryStatsConnected, SnapshotFailsWhenTheHealthReadFailsAndKeepsTheRecord) {
    stats.sample(clock);
    ASSERT_TRUE(stats.snapshot(clock, false));
    hal->setLevel(10);
    for (const auto& fault : {FakeHealth::transportFailure(), FakeHealth::answer(Result::NOT_FOUND)}) {
        hal->failNext(Method::HealthInfo21, fault);
        clock.now += kSecondNs;
        logcapture::clear();
        EXPECT_FALSE(stats.snapshot(clock, false));
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{kHealthReadFailed});
        EXPECT_EQ(stats.level, 50.0f);
        EXPECT_EQ(stats.lastSnapshotNs, 0);
    }
}

TEST_F(BatteryStatsConnected, ForcedSnapshotSamplesThroughTheVirtualSlotAndDropsTheNotification) {
    struct Counting : BatteryStats {
        std::optional<Vistrel::Notification> sample(Vistrel::IClockReader& c) override {
            ++samples;
            return BatteryStats::sample(c);
        }
        int samples = 0;
    } counting;
    ASSERT_TRUE(counting.acquireResources(nullptr, clock));
    logcapture::clear();
    clock.now = 3 * kSecondNs;
    EXPECT_TRUE(counting.snapshot(clock, true)) << "its own sample provided the data";
    EXPECT_EQ(counting.samples, 1);
    EXPECT_EQ(counting.lastSnapshotNs, 3 * kSecondNs);
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_INFO, "Vistrel", "BatteryStats: force sampled in snapshot"}}));
}

TEST_F(BatteryStatsConnected, SnapshotFillsTheRecord) {
    auto& battery = hal->info.legacy.legacy;
    hal->setStatus(2);
    hal->setHealth(2);
    hal->setLevel(42);
    battery.batteryVoltage = 4100;
    battery.batteryCycleCount = 321;
    battery.batteryFullCharge = 4800500;
    battery.batteryChargeCounter = 2016000;
    hal->info.batteryChargeTimeToFullNowSeconds = 5400;
    hal->currentUa = 1234567;
    stats.reserved[3] = 9.0f;
    stats.sample(clock);
    ASSERT_TRUE(stats.snapshot(clock, false));

    EXPECT_TRUE(stats.isCharging);
    EXPECT_EQ(stats.statusText, "CHARGING");
    EXPECT_EQ(stats.healthText, "GOOD");
    EXPECT_EQ(stats.status, 2);
    EXPECT_EQ(stats.health, 2);
    EXPECT_EQ(stats.level, 42.0f);
    EXPECT_EQ(stats.previousLevel, 42.0f) << "the first snapshot of the process";
    EXPECT_EQ(stats.fullChargeMah, 4800.5f);
    EXPECT_EQ(stats.previousFullChargeMah, 4800.5f);
    EXPECT_EQ(stats.chargeCounterMah, 2016.0f);
    EXPECT_EQ(stats.previousChargeCounterMah, 2016.0f);
    EXPECT_EQ(stats.chargeTimeToFullSeconds, 5400.0f);
    EXPECT_EQ(stats.cycleCount, 321);
    EXPECT_EQ(stats.currentLastMa, 1234.567f);
    EXPECT_EQ(stats.voltageLastMv, 4100.0f);
    EXPECT_EQ(stats.powerSource, "NONE");
    for (float r : stats.reserved) EXPECT_EQ(r, 0.0f);

    hal->setStatus(5);
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_TRUE(stats.isCharging) << "FULL counts as charging";
    hal->setStatus(4);
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_FALSE(stats.isCharging);
    EXPECT_EQ(stats.statusText, "NOT_CHARGING");
}

TEST_F(BatteryStatsConnected, PreviousValuesFollowLevelAlwaysAndCapacitiesOnlyOnChange) {
    auto& battery = hal->info.legacy.legacy;
    battery.batteryFullCharge = 5000000;
    battery.batteryChargeCounter = 1000000;
    stats.sample(clock);
    ASSERT_TRUE(stats.snapshot(clock, false));

    hal->setLevel(40);
    battery.batteryChargeCounter = 800000;
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.previousLevel, 50.0f);
    EXPECT_EQ(stats.previousChargeCounterMah, 1000.0f);
    EXPECT_EQ(stats.chargeCounterMah, 800.0f);

    ASSERT_TRUE(stats.snapshot(clock, false));  // nothing changed
    EXPECT_EQ(stats.previousLevel, 40.0f) << "the level's previous value moves every snapshot";
    EXPECT_EQ(stats.previousChargeCounterMah, 1000.0f) << "kept until the counter changes";
    EXPECT_EQ(stats.previousFullChargeMah, 5000.0f);
}

TEST_F(BatteryStatsConnected, NameTablesMarkUnnamedAndOutOfRangeValuesDifferently) {
    stats.sample(clock);
    const struct {
        int32_t status, health;
        const char* statusText;
        const char* healthText;
    } cases[] = {
        {0, 0, "?!?", "?!?"},
        {1, 1, "UNKNOWN", "UNKNOWN"},
        {3, 3, "DISCHARGING", "OVERHEAT"},
        {5, 7, "FULL", "COLD"},
        {6, 8, "?!?", "?!?"},
        {7, 9, "???", "???"},
        {-1, -1, "???", "???"},
        {INT32_MIN, INT32_MAX, "???", "???"},
    };
    for (const auto& c : cases) {
        hal->setStatus(c.status);
        hal->setHealth(c.health);
        ASSERT_TRUE(stats.snapshot(clock, false));
        EXPECT_EQ(stats.statusText, c.statusText) << c.status;
        EXPECT_EQ(stats.healthText, c.healthText) << c.health;
        EXPECT_EQ(stats.status, c.status);
        EXPECT_EQ(stats.health, c.health);
    }
}

TEST_F(BatteryStatsConnected, PowerSourceKeepsOnlyTheLastOnlineChargerAndOutlivesUnplugging) {
    stats.sample(clock);
    hal->setChargers(true, true, false);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, "USB") << "each source replaces the previous one";
    hal->setChargers(true, false, false);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, "AC") << "no blank: the scratch text was not empty";
    hal->setChargers(false, false, false);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, "AC") << "nothing online keeps the last text";
    hal->setChargers(false, false, true);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, "WIRELESS");
}

TEST_F(BatteryStatsConnected, PowerSourceOfAFirstSourceStartsWithABlank) {
    stats.sample(clock);
    hal->setChargers(true, false, false);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, " AC");
}

TEST_F(BatteryStatsConnected, NoChargerEverOnlineIsNoneAndNoneIsKeptAsScratch) {
    stats.sample(clock);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, "NONE");
    hal->setChargers(false, true, false);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, "USB") << "\"NONE\" is not empty, so no blank";
}

TEST_F(BatteryStatsConnected, StatisticsCoverExactlyTheLatest200Samples) {
    for (int i = 1; i <= 250; ++i) {
        hal->currentUa = i * 1000;          // i mA
        hal->info.legacy.legacy.batteryVoltage = 4000 - i;
        stats.sample(clock);
    }
    EXPECT_EQ(stats.ringCount, 200);
    EXPECT_EQ(stats.ringIndex, 50);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.currentLastMa, 250.0f);
    EXPECT_EQ(stats.currentMaxMa, 250.0f);
    EXPECT_EQ(stats.currentMinMa, 51.0f);
    EXPECT_EQ(stats.currentAvgMa, 150.5f);
    EXPECT_EQ(stats.voltageLastMv, 3750.0f);
    EXPECT_EQ(stats.voltageMaxMv, 3949.0f);
    EXPECT_EQ(stats.voltageMinMv, 3750.0f);
    EXPECT_EQ(stats.voltageAvgMv, 3849.5f);
}

TEST_F(BatteryStatsConnected, StatisticsOfAPartlyFilledRingAndNegativeCurrents) {
    const int32_t currents[] = {-500, -1500, 250};
    for (int32_t c : currents) {
        hal->currentUa = c * 1000;
        stats.sample(clock);
    }
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.currentLastMa, 250.0f);
    EXPECT_EQ(stats.currentMaxMa, 250.0f);
    EXPECT_EQ(stats.currentMinMa, -1500.0f);
    EXPECT_FLOAT_EQ(stats.currentAvgMa, -1750.0f / 3.0f);
    EXPECT_EQ(stats.voltageAvgMv, 3900.0f);
    EXPECT_EQ(stats.voltageMinMv, 3900.0f) << "unwritten entries stay out";

    stats.sample(clock);  // the rings are not reset by a snapshot
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.ringCount, 4);
    EXPECT_EQ(stats.currentMinMa, -1500.0f);
}

}  // namespace
