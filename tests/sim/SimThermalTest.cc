// The simulated thermal HAL: its model, its throttling callbacks and the 2.0 contract and
// faults every simulated thermal HAL shares.
#include "SimThermal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "FakeThermal.h"

namespace {

using sim::HeadsetState;
using sim::SimThermal;
using sim::ThermalHal;
using sim::ThermalScript;
using testing_support::RecordingThermalCallback;
using Code = android::hardware::thermal::V1_0::ThermalStatusCode;
using Status = android::hardware::thermal::V1_0::ThermalStatus;
using Type = ThermalHal::TemperatureType;
using Names = std::vector<std::string>;

constexpr int64_t kMinuteNs = INT64_C(60000000000);

std::map<std::string, float> celsius(ThermalHal& hal) {
    std::map<std::string, float> byName;
    EXPECT_TRUE(hal.getCurrentTemperatures(false, Type::UNKNOWN,
                                           [&](const Status& status, const auto& list) {
                                               EXPECT_EQ(status.code, Code::SUCCESS);
                                               for (const auto& t : list) byName[t.name] = t.value;
                                           })
                        .isOk());
    return byName;
}

std::map<std::string, uint64_t> levels(ThermalHal& hal) {
    std::map<std::string, uint64_t> byName;
    EXPECT_TRUE(hal.getCurrentCoolingDevices(false, ThermalHal::CoolingType::FAN,
                                             [&](const Status&, const auto& list) {
                                                 for (const auto& d : list)
                                                     byName[d.name] = d.value;
                                             })
                        .isOk());
    return byName;
}

Status registerCallback(ThermalHal& hal, const android::sp<ThermalHal::Callback>& callback,
                        bool filterType = false, Type type = Type::UNKNOWN) {
    Status result{};
    EXPECT_TRUE(hal.registerThermalChangedCallback(callback, filterType, type, [&](const Status& s) {
                       result = s;
                   }).isOk());
    return result;
}

struct SimThermalModel : testing::Test {
    android::sp<SimThermal> make(const std::string& scenario) {
        return new SimThermal(
                *ThermalScript::named(scenario), [this] { return now; },
                [this](int64_t) { return state; });
    }
    // Runs the model for `minutes` in the current state, reading it every 10 s as a collector
    // would.
    void run(ThermalHal& hal, int minutes) {
        for (int64_t end = now + minutes * kMinuteNs; now < end; now += kMinuteNs / 6) celsius(hal);
    }
    int64_t now = 0;
    HeadsetState state;
};

TEST_F(SimThermalModel, WarmsWithUseAndChargingAndCoolsBackAtRest) {
    auto hal = make("default");
    const auto idle = celsius(*hal);
    EXPECT_EQ(idle.at("cpu-0"), 33) << "room + idle";
    EXPECT_EQ(idle.size(), 9u);

    state.interactive = true;
    run(*hal, 10);
    const auto used = celsius(*hal);
    EXPECT_GT(used.at("cpu-0"), idle.at("cpu-0") + 20);
    EXPECT_GT(used.at("display"), idle.at("display") + 5);
    EXPECT_GT(levels(*hal).at("fan"), 0u) << "the warm skin spins the fan";

    state = {false, true, true};  // resting on a wired charger
    run(*hal, 60);
    const auto charging = celsius(*hal);
    EXPECT_GT(charging.at("battery"), idle.at("battery") + 8);
    EXPECT_GT(charging.at("usb-port"), idle.at("usb-port") + 15);
    EXPECT_LT(charging.at("cpu-0"), used.at("cpu-0") - 20);

    state = {};
    run(*hal, 120);
    for (const auto& [name, value] : celsius(*hal)) EXPECT_NEAR(value, idle.at(name), 0.05) << name;
    EXPECT_EQ(levels(*hal), (std::map<std::string, uint64_t>{
                                    {"cpu-freq-limit", 0}, {"fan", 0}, {"gpu-freq-limit", 0}}));
}

TEST_F(SimThermalModel, EachUpwardCrossingCallsBackOnTheHalThreadOnly) {
    auto hal = make("hot-room");
    android::sp<RecordingThermalCallback> all = new RecordingThermalCallback;
    android::sp<RecordingThermalCallback> skin = new RecordingThermalCallback;
    EXPECT_EQ(registerCallback(*hal, all).code, Code::SUCCESS);
    EXPECT_EQ(registerCallback(*hal, skin, true, Type::SKIN).code, Code::SUCCESS);

    state.interactive = true;
    run(*hal, 10);
    const Names session = {"cpu-0:LIGHT", "skin:LIGHT", "cpu-1:LIGHT", "skin:MODERATE"};
    EXPECT_EQ(all->received(), session);
    EXPECT_EQ(skin->received(), (Names{"skin:LIGHT", "skin:MODERATE"}));
    EXPECT_EQ(all->offCreatorThread(), 4);

    state.interactive = false;
    run(*hal, 60);
    EXPECT_EQ(all->received().size(), 4u) << "cooling below a threshold calls nobody";
    state.interactive = true;
    run(*hal, 10);
    const Names received = all->received();
    EXPECT_THAT(Names(received.begin() + 4, received.end()),
                testing::UnorderedElementsAreArray(session))
            << "each threshold crossed again once it was left";
}

TEST_F(SimThermalModel, AStuckFanNeverSpinsAndTheCpusThrottle) {
    auto normal = make("default");
    auto stuck = make("stuck-fan");
    state.interactive = true;
    for (int i = 0; i < 180; ++i, now += kMinuteNs / 6) {
        celsius(*normal);
        celsius(*stuck);
    }
    EXPECT_GT(levels(*normal).at("fan"), 0u);
    EXPECT_EQ(levels(*normal).at("cpu-freq-limit"), 0u);
    EXPECT_EQ(levels(*stuck).at("fan"), 0u);
    EXPECT_EQ(levels(*stuck).at("cpu-freq-limit"), 1u) << "cpu-0 past LIGHT";
    EXPECT_GT(celsius(*stuck).at("cpu-0"), celsius(*normal).at("cpu-0") + 2);
    EXPECT_FALSE(ThermalScript::named("cold-room"));
}

TEST_F(SimThermalModel, RegistrationContractThresholdsAndFaultsCallByCall) {
    auto hal = make("default");
    android::sp<RecordingThermalCallback> callback = new RecordingThermalCallback;
    EXPECT_EQ(registerCallback(*hal, nullptr).code, Code::FAILURE);
    hal->failNext(ThermalHal::Call::Register, ThermalHal::Fault::Failure);
    EXPECT_EQ(registerCallback(*hal, callback).code, Code::FAILURE);
    EXPECT_EQ(hal->callbackCount(), 0u);
    EXPECT_EQ(registerCallback(*hal, callback).code, Code::SUCCESS);
    EXPECT_EQ(registerCallback(*hal, callback).code, Code::FAILURE) << "already registered";
    const auto unregister = [&](const android::sp<ThermalHal::Callback>& cb) {
        Status result{};
        EXPECT_TRUE(hal->unregisterThermalChangedCallback(cb, [&](const Status& s) {
                           result = s;
                       }).isOk());
        return result.code;
    };
    EXPECT_EQ(unregister(callback), Code::SUCCESS);
    EXPECT_EQ(unregister(callback), Code::FAILURE);
    EXPECT_EQ(unregister(nullptr), Code::FAILURE);

    hal->getTemperatureThresholds(true, Type::SKIN, [](const Status& status, const auto& list) {
        ASSERT_EQ(list.size(), 1u);
        EXPECT_TRUE(std::isnan(list[0].hotThrottlingThresholds[0]));
        EXPECT_EQ(list[0].hotThrottlingThresholds[1], 40);
        EXPECT_EQ(list[0].hotThrottlingThresholds[6], 50);
    });
    hal->getTemperatures([](const Status& status, const auto&) {
        EXPECT_EQ(status.code, Code::FAILURE) << "1.0 methods are not supported";
    });

    using Fault = ThermalHal::Fault;
    for (Fault fault : {Fault::Transport, Fault::Failure, Fault::FailureEmpty, Fault::Empty}) {
        hal->failNext(ThermalHal::Call::Temperatures, fault);
    }
    std::vector<std::pair<Code, size_t>> answers;
    for (int call = 0; call < 5; ++call) {
        const auto ret = hal->getCurrentTemperatures(true, Type::CPU,
                                                     [&](const Status& s, const auto& list) {
                                                         answers.emplace_back(s.code, list.size());
                                                     });
        EXPECT_EQ(ret.isOk(), call != 0);
    }
    EXPECT_EQ(answers, (std::vector<std::pair<Code, size_t>>{{Code::FAILURE, 4},
                                                             {Code::FAILURE, 0},
                                                             {Code::SUCCESS, 0},
                                                             {Code::SUCCESS, 4}}));
}

}  // namespace
