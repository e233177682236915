#include "BatteryStats.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FakeHealth.h"
#include "LogCapture.h"

namespace {

using testing_support::FakeHealth;
using Vistrel::BatteryStats;
using Method = FakeHealth::Method;
using Log = std::vector<logcapture::Entry>;

constexpr int64_t kSecondNs = INT64_C(1000000000);
const logcapture::Entry kNotInitialized{ANDROID_LOG_ERROR, "Vistrel",
                                        "BatteryStats: health not initialized"};
const logcapture::Entry kReadFailed{ANDROID_LOG_INFO, "Vistrel", "getHealthInfo_2_1() failed"};
const logcapture::Entry kForced{ANDROID_LOG_INFO, "Vistrel",
                                "BatteryStats: force sampled in snapshot"};

bool isHealthInfo(const std::optional<Vistrel::Notification>& n) {
    return n && n->name == "HealthInfo" && n->detail == "BatteryCollector";
}

// Gives `stats` the record a snapshot of the fake's defaults leaves, so nothing differs.
void matchTheFake(BatteryStats& stats) {
    stats.status = 3;
    stats.health = 2;
    stats.level = 50;
}

// Connected to a registered fake, acquired at clock time 0.
struct BatteryStatsConnected : testing::Test {
    void SetUp() override {
        hal->registerDefault();
        ASSERT_TRUE(stats.acquireResources(nullptr, clock));
        logcapture::clear();
    }
    void TearDown() override { hostplatform::clearServices(); }

    android::sp<FakeHealth> hal = new FakeHealth;
    testing_support::SampleCounting<BatteryStats> stats;
    testing_support::FakeClock clock;
};

TEST(BatteryStatsWithoutHal, AcquireFailsAndEveryCallReportsTheMissingService) {
    BatteryStats stats;
    testing_support::FakeClock clock;
    clock.now = 77;
    EXPECT_STREQ(stats.name(), "BatteryStats");
    EXPECT_EQ(stats.sampleRate(), Vistrel::SamplePeriod(std::chrono::milliseconds(10000)));
    EXPECT_FALSE(stats.acquireResources(nullptr, clock));
    EXPECT_EQ(stats.lastSnapshotNs, 77) << "stamped even when the service is missing";
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_FALSE(stats.snapshot(clock, false)) << "no sample yet: false without a log";
    EXPECT_FALSE(stats.snapshot(clock, true));
    stats.ringCount = 1;  // as if a sample had succeeded on a since-dropped service
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(), (Log{{ANDROID_LOG_ERROR, "Vistrel",
                                           "BatteryStats: health not initialized or service died"},
                                          kNotInitialized,
                                          kForced,
                                          kNotInitialized,
                                          kNotInitialized}));
}

TEST_F(BatteryStatsConnected, NotifiesOnTheProcessFirstSampleOnChangesAndFrom601SecondsOn) {
    matchTheFake(stats);
    EXPECT_TRUE(isHealthInfo(stats.sample(clock)));
    clock.now = 601 * kSecondNs - 1;
    EXPECT_FALSE(stats.sample(clock));
    clock.now = 601 * kSecondNs;
    EXPECT_TRUE(isHealthInfo(stats.sample(clock))) << "601 s after the acquire";
    ASSERT_TRUE(stats.snapshot(clock, false));
    clock.now += INT64_C(600999000000);  // 600.999 s later
    EXPECT_FALSE(stats.sample(clock));
    clock.now = 1202 * kSecondNs;
    EXPECT_TRUE(isHealthInfo(stats.sample(clock))) << "601 s after the snapshot";
    ASSERT_TRUE(stats.snapshot(clock, false));
    BatteryStats other;  // the first-sample flag is process-wide
    ASSERT_TRUE(other.acquireResources(nullptr, clock));
    matchTheFake(other);
    EXPECT_FALSE(other.sample(clock));

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
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST_F(BatteryStatsConnected, FailedCallsEndTheSampleOrSnapshotWithTheirOwnLogAndKeepTheRecord) {
    const std::pair<Method, logcapture::Entry> calls[] = {
            {Method::Update,
             {ANDROID_LOG_ERROR, "Vistrel", "BatteryStats: health->update() failed"}},
            {Method::CurrentNow, {ANDROID_LOG_INFO, "Vistrel", "getCurrentNow() failed"}},
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
    EXPECT_EQ(stats.ringIndex, 0);
    EXPECT_FALSE(stats.snapshot(clock, false)) << "still no data";
    matchTheFake(stats);
    EXPECT_TRUE(isHealthInfo(stats.sample(clock))) << "the first success is the first sample";

    ASSERT_TRUE(stats.snapshot(clock, false));
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

TEST_F(BatteryStatsConnected,
       ReacquireKeepsTheServiceAndAForcedSnapshotSamplesThroughTheVirtualSlot) {
    clock.now = 3 * kSecondNs;
    hostplatform::clearServices();
    EXPECT_TRUE(stats.acquireResources(nullptr, clock)) << "already connected";
    EXPECT_EQ(stats.lastSnapshotNs, 3 * kSecondNs);
    hal->registerDefault();
    clock.now = 4 * kSecondNs;
    EXPECT_TRUE(stats.snapshot(clock, true)) << "its own sample provided the data";
    EXPECT_EQ(stats.samples, 1);
    EXPECT_EQ(stats.lastSnapshotNs, 4 * kSecondNs);
    EXPECT_EQ(logcapture::entries(), Log{kForced});
}

TEST_F(BatteryStatsConnected, SnapshotFillsTheRecordAndPreviousValues) {
    auto& battery = hal->info.legacy.legacy;
    battery.batteryVoltage = 4100;
    battery.batteryCycleCount = 321;
    battery.batteryFullCharge = 4800500;
    battery.batteryChargeCounter = 2016000;
    hal->info.batteryChargeTimeToFullNowSeconds = 5400;
    hal->currentUa = 16777219;  // above 2^24: right as a float only when divided in double
    stats.reserved[3] = 9.0f;
    stats.sample(clock);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.level, 50.0f);
    EXPECT_EQ(stats.previousLevel, 50.0f) << "the first snapshot of the process";
    EXPECT_EQ(stats.fullChargeMah, 4800.5f);
    EXPECT_EQ(stats.previousFullChargeMah, 4800.5f);
    EXPECT_EQ(stats.chargeCounterMah, 2016.0f);
    EXPECT_EQ(stats.previousChargeCounterMah, 2016.0f);
    EXPECT_EQ(stats.chargeTimeToFullSeconds, 5400.0f);
    EXPECT_EQ(stats.cycleCount, 321);
    EXPECT_EQ(stats.currentLastMa, 16777.219f);
    EXPECT_EQ(stats.voltageLastMv, 4100.0f);
    for (float r : stats.reserved) EXPECT_EQ(r, 0.0f);

    hal->setLevel(40);
    battery.batteryFullCharge = 4000000;
    battery.batteryChargeCounter = 800000;
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.previousLevel, 50.0f);
    EXPECT_EQ(stats.chargeCounterMah, 800.0f);
    EXPECT_EQ(stats.fullChargeMah, 4000.0f);
    ASSERT_TRUE(stats.snapshot(clock, false));  // nothing changed
    EXPECT_EQ(stats.previousLevel, 40.0f) << "the level's previous value moves every snapshot";
    EXPECT_EQ(stats.previousChargeCounterMah, 2016.0f) << "kept until the counter changes";
    EXPECT_EQ(stats.previousFullChargeMah, 4800.5f);

    BatteryStats other;  // not the process's first snapshot: nothing is copied back
    ASSERT_TRUE(other.acquireResources(nullptr, clock));
    other.sample(clock);
    ASSERT_TRUE(other.snapshot(clock, false));
    EXPECT_EQ(other.previousLevel, 0.0f);
    EXPECT_EQ(other.previousFullChargeMah, 0.0f);
    EXPECT_EQ(other.previousChargeCounterMah, 0.0f);
}

TEST_F(BatteryStatsConnected, NameTablesMarkUnnamedAndOutOfRangeValuesDifferently) {
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

TEST_F(BatteryStatsConnected, PowerSourceIsTheLastOnlineOfAcUsbWirelessAndOutlivesUnplugging) {
    const struct {
        bool ac, usb, wireless;
        const char* expected;
    } steps[] = {
            {false, false, false, "NONE"},
            {false, true, false, "USB"},  // "NONE" is kept: no blank
            {true, true, false, "USB"},
            {false, true, true, "WIRELESS"},
            {true, true, true, "WIRELESS"},
            {true, false, false, "AC"},
            {false, false, false, "AC"},  // nothing online keeps the text
    };
    stats.sample(clock);
    for (const auto& s : steps) {
        hal->setChargers(s.ac, s.usb, s.wireless);
        ASSERT_TRUE(stats.snapshot(clock, false));
        EXPECT_EQ(stats.powerSource, s.expected) << s.ac << s.usb << s.wireless;
    }
    stats.powerSourceScratch.clear();  // as before any snapshot: the first source gets a blank
    hal->setChargers(true, false, false);
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.powerSource, " AC");
}

TEST_F(BatteryStatsConnected, StatisticsSumNewestFirstOverTheLatestSamplesUpTo200) {
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

    stats.sample(clock);  // the rings are not reset by a snapshot
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.ringCount, 5);
    EXPECT_EQ(stats.currentMinMa, -500.1f);

    for (int i = 1; i <= 250; ++i) {
        hal->currentUa = i * 1000;  // i mA
        hal->info.legacy.legacy.batteryVoltage = 4000 - i;
        stats.sample(clock);
    }
    EXPECT_EQ(stats.ringCount, 200);
    EXPECT_EQ(stats.ringIndex, 55);
    ASSERT_TRUE(stats.snapshot(clock, false));
    const float expected[] = {250, 250, 51, 150.5, 3750, 3949, 3750, 3849.5};
    const float actual[] = {stats.currentLastMa, stats.currentMaxMa,  stats.currentMinMa,
                            stats.currentAvgMa,  stats.voltageLastMv, stats.voltageMaxMv,
                            stats.voltageMinMv,  stats.voltageAvgMv};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(actual[i], expected[i]) << i;
}

}  // namespace
