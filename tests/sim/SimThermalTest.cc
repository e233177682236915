// The simulated thermal HAL: its model, its throttling callbacks and the 2.0 contract and
// faults every simulated thermal HAL shares.
#include "SimThermal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "FakeThermal.h"

namespace {

using sim::ThermalHal;
using testing_support::RecordingThermalCallback;
using Code = android::hardware::thermal::V1_0::ThermalStatusCode;
using Status = android::hardware::thermal::V1_0::ThermalStatus;
using Type = ThermalHal::TemperatureType;
using Names = std::vector<std::string>;

constexpr int64_t kMinuteNs = INT64_C(60000000000);

// Temperatures and cooling levels by name, as one reading gives them.
std::map<std::string, float> read(ThermalHal& hal) {
    std::map<std::string, float> byName;
    hal.getCurrentTemperatures(false, Type::UNKNOWN, [&](const Status&, const auto& list) {
        for (const auto& t : list) byName[t.name] = t.value;
    });
    hal.getCurrentCoolingDevices(false, {}, [&](const Status&, const auto& list) {
        for (const auto& d : list) byName[d.name] = static_cast<float>(d.value);
    });
    return byName;
}

Code registerCallback(ThermalHal& hal, const android::sp<ThermalHal::Callback>& callback,
                      bool filterType = false, Type type = Type::UNKNOWN) {
    Code code{};
    hal.registerThermalChangedCallback(callback, filterType, type,
                                       [&](const Status& s) { code = s.code; });
    return code;
}

struct SimThermalModel : testing::Test {
    android::sp<sim::SimThermal> make(const std::string& scenario) {
        return new sim::SimThermal(
                *sim::ThermalScript::named(scenario), [this] { return now; },
                [this](int64_t) { return state; });
    }
    // Runs the models for `minutes` in the current state, read every 10 s as a collector does.
    void run(int minutes, std::vector<ThermalHal*> hals) {
        for (int64_t end = now + minutes * kMinuteNs; now < end; now += kMinuteNs / 6) {
            for (ThermalHal* hal : hals) read(*hal);
        }
    }
    int64_t now = 0;
    sim::HeadsetState state;
};

TEST_F(SimThermalModel, WarmsWithUseAndChargingAndCoolsBackAtRest) {
    auto hal = make("default");
    const auto idle = read(*hal);
    EXPECT_EQ(idle.at("cpu-0"), 33) << "room + idle";
    state.interactive = true;
    run(10, {hal.get()});
    const auto used = read(*hal);
    EXPECT_GT(used.at("cpu-0"), idle.at("cpu-0") + 20);
    EXPECT_GT(used.at("fan"), 0) << "the warm skin spins the fan";

    state = {false, true, true};  // resting on a wired charger
    run(60, {hal.get()});
    const auto charging = read(*hal);
    EXPECT_GT(charging.at("battery"), idle.at("battery") + 8);
    EXPECT_GT(charging.at("usb-port"), idle.at("usb-port") + 15);
    EXPECT_LT(charging.at("cpu-0"), used.at("cpu-0") - 20);

    state = {};
    run(120, {hal.get()});
    for (const auto& [name, value] : read(*hal)) EXPECT_NEAR(value, idle.at(name), 0.05) << name;
}

TEST_F(SimThermalModel, AStuckFanNeverSpinsAndTheCpusThrottle) {
    auto normal = make("default");
    auto stuck = make("stuck-fan");
    state.interactive = true;
    run(30, {normal.get(), stuck.get()});
    EXPECT_EQ(read(*stuck).at("fan"), 0);
    EXPECT_EQ(read(*stuck).at("cpu-freq-limit"), 1) << "cpu-0 past LIGHT";
    EXPECT_EQ(read(*normal).at("cpu-freq-limit"), 0);
    EXPECT_GT(read(*stuck).at("cpu-0"), read(*normal).at("cpu-0") + 2);
    EXPECT_FALSE(sim::ThermalScript::named("cold-room"));
}

TEST_F(SimThermalModel, EachUpwardCrossingCallsBackOnTheHalThreadOnly) {
    auto hal = make("hot-room");
    android::sp<RecordingThermalCallback> all = new RecordingThermalCallback;
    android::sp<RecordingThermalCallback> skin = new RecordingThermalCallback;
    EXPECT_EQ(registerCallback(*hal, all), Code::SUCCESS);
    EXPECT_EQ(registerCallback(*hal, skin, true, Type::SKIN), Code::SUCCESS);
    state.interactive = true;
    run(10, {hal.get()});
    const Names session = {"cpu-0:LIGHT", "skin:LIGHT", "cpu-1:LIGHT", "skin:MODERATE"};
    EXPECT_EQ(all->received(), session);
    EXPECT_EQ(skin->received(), (Names{"skin:LIGHT", "skin:MODERATE"}));
    EXPECT_EQ(all->offCreatorThread(), 4);

    state.interactive = false;
    run(60, {hal.get()});
    EXPECT_EQ(all->received().size(), 4u) << "cooling below a threshold calls nobody";
    state.interactive = true;
    run(10, {hal.get()});
    const Names received = all->received();
    EXPECT_THAT(Names(received.begin() + 4, received.end()),
                testing::UnorderedElementsAreArray(session))
            << "each threshold crossed again once it was left";
}

TEST_F(SimThermalModel, RegistrationContractAndFaultsCallByCall) {
    auto hal = make("default");
    android::sp<RecordingThermalCallback> callback = new RecordingThermalCallback;
    EXPECT_EQ(registerCallback(*hal, nullptr), Code::FAILURE);
    hal->failNext(ThermalHal::Call::Register, ThermalHal::Fault::Failure);
    EXPECT_EQ(registerCallback(*hal, callback), Code::FAILURE);
    EXPECT_EQ(hal->callbackCount(), 0u);
    EXPECT_EQ(registerCallback(*hal, callback), Code::SUCCESS);
    EXPECT_EQ(registerCallback(*hal, callback), Code::FAILURE) << "already registered";
    std::vector<Code> unregistered;
    for (const auto& cb : {callback, callback, android::sp<RecordingThermalCallback>()}) {
        hal->unregisterThermalChangedCallback(
                cb, [&](const Status& s) { unregistered.push_back(s.code); });
    }
    EXPECT_EQ(unregistered, (std::vector<Code>{Code::SUCCESS, Code::FAILURE, Code::FAILURE}));

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
