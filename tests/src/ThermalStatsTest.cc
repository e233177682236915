#include "ThermalStats.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>

#include "FakeClock.h"
#include "FakeThermal.h"
#include "LogCapture.h"
#include "RecordedPushes.h"
#include "VtableSlot.h"
#include "hostplatform/ServiceRegistry.h"

namespace {

using logcapture::error;
using logcapture::info;
using testing_support::FakeThermal;
using testing_support::textOf;
using Vistrel::ThermalStats;
using Call = FakeThermal::Call;
using Fault = FakeThermal::Fault;
using Type = FakeThermal::TemperatureType;
using Log = std::vector<logcapture::Entry>;
using Pushes = testing_support::RecordedPushes;

constexpr int64_t kSecondNs = INT64_C(1000000000);
const std::string kDeadObject = "Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '";
const logcapture::Entry kNoHal = error("thermal HAL connection failed to initialize.");
const logcapture::Entry kTempsRefused =
        error("Temps were not successfully read from the thermal HAL");
const logcapture::Entry kDevicesRefused =
        error("Cooling devices were not successfully read from the thermal HAL");

TEST(ThermalStatsWithoutHal, EveryCallReportsTheMissingServiceAndNothingIsRecorded) {
    ThermalStats stats;
    testing_support::FakeClock clock;
    clock.now = 77;
    EXPECT_FALSE(stats.acquireResources(nullptr, clock));
    EXPECT_EQ(stats.lastHeartbeatNs, 77) << "the heartbeat timer starts even without a HAL";
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_FALSE(stats.snapshot(clock, true));
    stats.fireThrottlingNotification();  // no callback yet: nothing happens
    EXPECT_EQ(stats.sampleCount, 0);
    EXPECT_EQ(logcapture::entries(),
              (Log{error("Data provider unable to connect to thermal HAL"), kNoHal, kNoHal,
                   info("ThermalStats: force sample in snapshot"), kNoHal, kNoHal}));
}

// Connected to a registered fake with one sensor and one cooling device, acquired at time 0.
struct ThermalStatsConnected : testing::Test {
    void SetUp() override {
        hal->registerDefault();
        hal->temperatures = {FakeThermal::temperature("cpu", Type::CPU, 40)};
        hal->coolingDevices = {FakeThermal::device("fan", 2)};
        ASSERT_TRUE(stats.acquireResources(pushes.router(), clock));
        logcapture::clear();
    }
    void TearDown() override { hostplatform::clearServices(); }

    Vistrel::SampledData cpu() { return stats.temperatureStats.at("cpu"); }

    android::sp<FakeThermal> hal = new FakeThermal;
    Pushes pushes;
    testing_support::SampleCounting<ThermalStats> stats;
    testing_support::FakeClock clock;
};

TEST_F(ThermalStatsConnected, AsksTheHalForEverythingUnfiltered) {
    stats.sampleHAL();
    EXPECT_EQ(hal->requests,
              (std::vector<std::string>{"register(false, CPU)", "temperatures(false, UNKNOWN)",
                                        "coolingDevices(false, CPU)"}));
}

TEST_F(ThermalStatsConnected, RegistrationOutcomesKeepTheNewCallbackAndTheHandle) {
    EXPECT_EQ(hal->callbackCount(), 1u);
    hal->failNext(Call::Register, Fault::Failure);
    Pushes refused;
    EXPECT_FALSE(stats.acquireResources(refused.router(), clock));
    stats.fireThrottlingNotification();
    EXPECT_EQ(refused.delivered(), std::vector<std::string>{"ThermalThrottle/testSensor/force"})
            << "a refused callback is still the current one";
    hal->failNext(Call::Register, Fault::Transport);
    EXPECT_FALSE(stats.acquireResources(pushes.router(), clock));
    const std::string failed =
            "registerThermalCallback failed unable to pushNotifications, status: ";
    EXPECT_EQ(logcapture::entries(), (Log{error(failed + "No error"), error(failed + kDeadObject)}))
            << "the transport's description even when only the HAL's status failed";

    hostplatform::clearServices();  // the handle of the first acquire is reused, not looked up
    Pushes later;
    EXPECT_TRUE(stats.acquireResources(later.router(), clock));
    EXPECT_EQ(logcapture::entries().back(),
              info("Vistrel successfully registered for thermal throttling notifications"));
    EXPECT_EQ(hal->callbackCount(), 2u);
    EXPECT_TRUE(stats.releaseResources());
    EXPECT_EQ(hal->callbackCount(), 2u) << "nothing is ever unregistered";

    stats.fireThrottlingNotification();  // the newest callback, on this thread
    EXPECT_EQ(later.delivered(), std::vector<std::string>{"ThermalThrottle/testSensor/force"});
    hal->deliverThrottling(
            FakeThermal::temperature("skin", Type::SKIN, 45, FakeThermal::Severity::SEVERE));
    EXPECT_EQ(pushes.delivered(), std::vector<std::string>{"ThermalThrottle/skin/force"})
            << "type, value and severity are not passed on";
    EXPECT_EQ(later.delivered().size(), 2u);
}

TEST_F(ThermalStatsConnected, TransportFailuresStopTheSampleAndRefusedListsStillUseTheirSlot) {
    hal->failNext(Call::Temperatures, Fault::Transport);
    stats.sampleHAL();
    EXPECT_TRUE(stats.coolingDeviceHistory.empty()) << "cooling devices are not read";
    hal->failNext(Call::CoolingDevices, Fault::Transport);
    stats.sampleHAL();
    EXPECT_EQ(stats.temperatureHistory.at("cpu")[0], 40) << "temperatures are already written";
    EXPECT_EQ(std::make_pair(stats.sampleCount, stats.sampleIndex), std::make_pair(0, 0));
    EXPECT_TRUE(stats.snapshot(clock, false)) << "samples itself: slot 0";
    EXPECT_EQ(stats.sampleCount, 1);

    stats.throttlingStatus.clear();
    for (Fault fault : {Fault::Failure, Fault::FailureEmpty, Fault::Empty}) {
        hal->failNext(Call::Temperatures, fault);
        hal->failNext(Call::CoolingDevices, fault);
        hal->temperatures = {FakeThermal::temperature("cpu", Type::CPU, 99)};
        stats.sampleHAL();
    }
    EXPECT_EQ(stats.sampleCount, 4) << "counters advance over refused lists";
    EXPECT_TRUE(stats.throttlingStatus.empty()) << "a refused list touches no map";
    EXPECT_EQ(stats.temperatureHistory.at("cpu")[1], 0);
    EXPECT_EQ(logcapture::entries(),
              (Log{error("ThermalHAL getCurrentTemperatures call failed: " + kDeadObject),
                   error("ThermalHAL getCurrentCoolingDevices call failed: " + kDeadObject),
                   kTempsRefused, kDevicesRefused, kTempsRefused, kDevicesRefused}))
            << "an empty list with SUCCESS logs nothing";
}

TEST_F(ThermalStatsConnected, SnapshotWithoutAnObtainableSampleLeavesTheRecord) {
    hal->failNext(Call::Temperatures, Fault::Transport);
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_TRUE(stats.temperatureStats.empty());
    EXPECT_TRUE(stats.snapshot(clock, false));  // the next one samples itself and succeeds
    const Vistrel::SampledData cpu = this->cpu();
    EXPECT_EQ(std::vector<float>({cpu.current, cpu.max, cpu.min, cpu.average}),
              std::vector<float>(4, 40));
    EXPECT_EQ(stats.coolingDeviceStats.at("fan").average, 2);
}

TEST_F(ThermalStatsConnected, RingsWrapAfterTwelveAndLateSensorsKeepTheirZeros) {
    for (float v = 1; v <= 12; ++v) {
        hal->temperatures = {FakeThermal::temperature("cpu", Type::CPU, v)};
        stats.sampleHAL();
    }
    EXPECT_EQ(std::make_pair(stats.sampleCount, stats.sampleIndex), std::make_pair(12, 0));
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(cpu().current, 12) << "slot 11 when the next write goes to slot 0";
    EXPECT_EQ(cpu().average, 6.5f);

    hal->temperatures = {FakeThermal::temperature("cpu", Type::CPU, 100),
                         FakeThermal::temperature("late", Type::GPU, 60)};
    stats.sampleHAL();
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.sampleCount, 12);
    EXPECT_EQ(cpu().current, 100);
    EXPECT_EQ(cpu().min, 2);
    const auto late = stats.temperatureStats.at("late");
    EXPECT_EQ(late.min, 0) << "a late sensor's unwritten slots count as zeros";
    EXPECT_EQ(late.average, 5.0f);

    hal->temperatures = {};  // the sensors vanish: their statistics stay
    stats.sampleHAL();
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.temperatureStats.count("late"), 1u);
}

TEST_F(ThermalStatsConnected, TiesKeepTheEarlierValue) {
    // -0 and +0 compare equal; only a strict comparison keeps the first one's sign.
    hal->temperatures = {FakeThermal::temperature("a", Type::CPU, -0.0f),
                         FakeThermal::temperature("b", Type::CPU, 0.0f)};
    stats.sampleHAL();
    hal->temperatures = {FakeThermal::temperature("a", Type::CPU, 0.0f),
                         FakeThermal::temperature("b", Type::CPU, -0.0f)};
    stats.sampleHAL();
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_TRUE(std::signbit(stats.temperatureStats.at("a").max));
    EXPECT_FALSE(std::signbit(stats.temperatureStats.at("b").min));
}

TEST_F(ThermalStatsConnected, HeartbeatEvery120SecondsFromTheSecondClockReading) {
    clock.now = 119900000000;
    EXPECT_FALSE(stats.sample(clock));
    clock.now = 120 * kSecondNs;
    EXPECT_EQ(textOf(stats.sample(clock)), "ThermalHeartbeat/120 seconds");

    testing_support::SteppingClock stepping;
    stepping.step = kSecondNs / 2;
    stepping.now = 245 * kSecondNs + kSecondNs * 9 / 10;  // 125.9 s after the last heartbeat
    EXPECT_EQ(textOf(stats.sample(stepping)), "ThermalHeartbeat/125 seconds");
    EXPECT_EQ(stats.lastHeartbeatNs, 246 * kSecondNs + kSecondNs * 4 / 10);

    clock.now = stats.lastHeartbeatNs + 120 * kSecondNs;  // due, but a forced snapshot takes it
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(stats.samples, 4) << "the forced sample goes through the virtual interface";
    EXPECT_FALSE(stats.sample(clock));
}

TEST_F(ThermalStatsConnected, TypesAreListedOnceByTheFirstAcceptedReadWithDuplicates) {
    hal->temperatures = {};
    stats.sampleHAL();
    hal->temperatures = {FakeThermal::temperature("t", Type::SKIN, 1)};
    hal->failNext(Call::Temperatures, Fault::Failure);
    stats.sampleHAL();
    EXPECT_TRUE(stats.sensorsByType.empty()) << "neither an empty nor a refused list fills it";

    hal->temperatures = {
            FakeThermal::temperature("dup", Type::CPU, 30), FakeThermal::temperature("v", 12, 1),
            FakeThermal::temperature("w", -2, 1), FakeThermal::temperature("n", Type::NPU, 1),
            FakeThermal::temperature("dup", Type::CPU, 31, FakeThermal::Severity::LIGHT)};
    stats.sampleHAL();
    hal->temperatures.push_back(FakeThermal::temperature("new", Type::GPU, 1));
    stats.sampleHAL();
    using Names = std::vector<std::string>;
    EXPECT_EQ(stats.sensorsByType, (std::map<std::string, Names>{{"CPU", {"dup", "dup"}},
                                                                 {"0xc", {"v"}},
                                                                 {"0xfffffffe", {"w"}},
                                                                 {"NPU", {"n"}}}));
    EXPECT_EQ(stats.temperatureHistory.at("dup")[2], 31) << "the later duplicate wins";
    EXPECT_EQ(stats.throttlingStatus.at("dup"), 1);
}

TEST(ThermalCallbackContract, NotifyThrottlingFollowsTheBaseOperationsAndTheDestructorPair) {
    using testing_support::slotOf;
    using IBase = android::hidl::base::V1_0::IBase;
    EXPECT_EQ(slotOf(&IBase::isRemote), 0);
    EXPECT_EQ(slotOf(&IBase::unlinkToDeath), 10);
    EXPECT_EQ(slotOf(&ThermalCallback::notifyThrottling), 13);
}

TEST(ThermalCallbackDeathTest, AnEmptyRouterAbortsWhenTheHalCalls) {
    EXPECT_EXIT(
            {
                android::sp<FakeThermal> hal = new FakeThermal;
                hal->registerDefault();
                testing_support::FakeClock clock;
                ThermalStats stats;
                stats.acquireResources(nullptr, clock);
                hal->deliverThrottling(FakeThermal::temperature("cpu", Type::CPU, 99));
                hostplatform::waitForOnewayTransactions();
            },
            testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
