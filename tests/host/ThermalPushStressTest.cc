// Throttling callbacks from the HAL's thread while the host samples and snapshots: run under
// ThreadSanitizer by the test script, where any race on the host's push queue fails the run.
#include <cstdio>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FakeThermal.h"
#include "Headset.h"
#include "Host.h"

namespace {

using testing_support::FakeThermal;

TEST(ThermalPushStress, EveryThrottlingPushReachesTheHostOnceAndInOrder) {
    constexpr int kPushes = 5000;
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    {
        host::HostClock clock(host::HostClock::Mode::Simulated);
        host::Output output(out, true);
        sim::Headset headset(sim::HeadsetConfig{}, [&clock] { return clock.deviceNs(); });
        // In place of the headset's own thermal HAL: every temperature read, the periodic ones
        // and those of the forced snapshots that pushes cause, sends 50 more callbacks.
        android::sp<FakeThermal> hal = new FakeThermal;
        hal->temperatures = {FakeThermal::temperature("cpu", FakeThermal::TemperatureType::CPU, 50)};
        hal->floodThrottling(50, kPushes);
        hal->registerDefault();
        host::Host host(clock, output, headset, host::makeProviders({}, {"ThermalStats"}),
                        INT64_C(3600000000000));
        EXPECT_EQ(host.run(INT64_C(1800000000000)), 0);  // 30 minutes of device time
    }
    fclose(out);
    const std::string timeline(text, size);
    free(text);

    std::vector<std::string> pushed;
    size_t records = 0;
    for (size_t start = 0, end; start < timeline.size(); start = end + 1) {
        end = timeline.find('\n', start);
        const auto line = nlohmann::json::parse(timeline.substr(start, end - start));
        if (line["event"] == "push (force)" && line["name"] == "ThermalThrottle") {
            pushed.push_back(line["detail"]);
        }
        records += line["event"] == "record";
    }
    ASSERT_EQ(pushed.size(), static_cast<size_t>(kPushes));
    for (int i = 0; i < kPushes; ++i) ASSERT_EQ(pushed[i], "storm-" + std::to_string(i));
    EXPECT_EQ(records, static_cast<size_t>(kPushes)) << "each push snapshots the pusher";
}

}  // namespace
