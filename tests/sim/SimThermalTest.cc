// The simulated thermal HAL: its throttling callbacks and the 2.0 contract and faults every
// simulated thermal HAL shares.
#include "SimThermal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeThermal.h"

namespace {

using sim::ThermalHal;
using testing_support::RecordingThermalCallback;
using Code = android::hardware::thermal::V1_0::ThermalStatusCode;
using Status = android::hardware::thermal::V1_0::ThermalStatus;
using Type = ThermalHal::TemperatureType;
using Names = std::vector<std::string>;

constexpr int64_t kMinuteNs = INT64_C(60000000000);

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
    // Runs the model for `minutes` in the current state, read every 10 s as a collector does.
    void run(int minutes, ThermalHal& hal) {
        for (int64_t end = now + minutes * kMinuteNs; now < end; now += kMinuteNs / 6) {
            hal.getCurrentTemperatures(false, Type::UNKNOWN, [](const Status&, const auto&) {});
        }
    }
    int64_t now = 0;
    sim::HeadsetState state;
};

TEST_F(SimThermalModel, EachUpwardCrossingCallsBackOnTheHalThreadOnly) {
    auto hal = make("hot-room");
    android::sp<RecordingThermalCallback> all = new RecordingThermalCallback;
    android::sp<RecordingThermalCallback> skin = new RecordingThermalCallback;
    EXPECT_EQ(registerCallback(*hal, all), Code::SUCCESS);
    EXPECT_EQ(registerCallback(*hal, skin, true, Type::SKIN), Code::SUCCESS);
    state.interactive = true;
    run(10, *hal);
    const Names session = {"cpu-0:LIGHT", "skin:LIGHT", "cpu-1:LIGHT", "skin:MODERATE"};
    EXPECT_EQ(all->received(), session);
    EXPECT_EQ(skin->received(), (Names{"skin:LIGHT", "skin:MODERATE"}));
    EXPECT_EQ(all->offCreatorThread(), 4);

    state.interactive = false;
    run(60, *hal);
    EXPECT_EQ(all->received().size(), 4u) << "cooling below a threshold calls nobody";
    state.interactive = true;
    run(10, *hal);
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
