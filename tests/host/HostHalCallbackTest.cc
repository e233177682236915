// Callbacks from the HAL's thread while the host samples and snapshots: run under
// ThreadSanitizer by the test script, where any race on the host's push queue fails the run.
#include <cstdio>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FakeThermal.h"
#include "Headset.h"
#include "Host.h"
#include "hostplatform/HwBinderThreadPool.h"

namespace {

using testing_support::FakeThermal;

TEST(HostHalCallbacks, ThousandsOfThrottlingPushesReachTheHostOnceAndInOrder) {
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

// From its first sample, sends a one-way call the way a HAL does; the call pushes the sample's
// device time, but only once the host's clock has moved on (or after a long wait).
class HalLikePusher : public Vistrel::Provider {
public:
    const char* name() const override { return "HalLikePusher"; }
    bool acquireResources(Vistrel::NotificationRouter router, Vistrel::IClockReader&) override {
        router_ = router;
        return true;
    }
    bool snapshot(Vistrel::IClockReader&, bool) override { return true; }
    std::optional<Vistrel::Notification> sample(Vistrel::IClockReader& clock) override {
        if (sent_) return std::nullopt;
        sent_ = true;
        const int64_t at = clock.nowNs();
        hostplatform::postOnewayTransaction([router = router_, &clock, at] {
            for (int i = 0; i < 100000 && clock.nowNs() == at; ++i) std::this_thread::yield();
            router("Sent", std::to_string(at), false);
        });
        return std::nullopt;
    }
    Vistrel::SamplePeriod sampleRate() const override { return std::chrono::milliseconds(1000); }

private:
    Vistrel::NotificationRouter router_;
    bool sent_ = false;
};

TEST(HostHalCallbacks, InSimulatedTimeACallbackShowsAtTheDeviceTimeItWasSent) {
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    {
        host::HostClock clock(host::HostClock::Mode::Simulated);
        host::Output output(out, true);
        sim::Headset headset(sim::HeadsetConfig{}, [&clock] { return clock.deviceNs(); });
        std::vector<host::HostedProvider> providers(1);
        providers[0].provider = std::make_unique<HalLikePusher>();
        host::Host host(clock, output, headset, std::move(providers), INT64_C(3600000000000));
        EXPECT_EQ(host.run(INT64_C(60000000000)), 0);
    }
    fclose(out);
    const std::string timeline(text, size);
    free(text);
    EXPECT_NE(
            timeline.find(
                    R"("t_ns":1000000000,"source":"HalLikePusher","event":"push","name":"Sent","detail":"1000000000")"),
            std::string::npos)
            << timeline;
}

}  // namespace
