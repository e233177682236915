// Callbacks from the HAL's thread while the host samples and snapshots: run under
// ThreadSanitizer by the test script, where any race on the host's push queue fails the run.
#include <cstdio>
#include <functional>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FakeThermal.h"
#include "Headset.h"
#include "Host.h"
#include "hostplatform/HwBinderThreadPool.h"

namespace {

using nlohmann::json;
using testing_support::FakeThermal;

// Runs the host in simulated time over the default headset, after `setUp` has had its say,
// and returns the JSON timeline.
std::vector<json> runHost(
        std::vector<host::HostedProvider> providers, int64_t durationNs,
        const std::function<void()>& setUp = [] {}) {
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    {
        host::HostClock clock(host::HostClock::Mode::Simulated);
        host::Output output(out, true, [&clock] { return clock.deviceNs(); });
        sim::Headset headset(sim::HeadsetConfig{}, [&clock] { return clock.deviceNs(); });
        setUp();
        host::Host host(clock, output, headset, std::move(providers), INT64_C(3600000000000));
        EXPECT_EQ(host.run(durationNs), 0);
    }
    fclose(out);
    std::vector<json> lines;
    for (size_t start = 0, end; start < size; start = end + 1) {
        end = std::string_view(text, size).find('\n', start);
        lines.push_back(json::parse(std::string(text + start, end - start)));
    }
    free(text);
    return lines;
}

TEST(HostHalCallbacks, ThousandsOfThrottlingPushesReachTheHostOnceAndInOrder) {
    constexpr int kPushes = 5000;
    // In place of the headset's own thermal HAL: every temperature read, the periodic ones and
    // those of the forced snapshots that pushes cause, sends 50 more callbacks.
    android::sp<FakeThermal> hal = new FakeThermal;
    hal->temperatures = {FakeThermal::temperature("cpu", FakeThermal::TemperatureType::CPU, 50)};
    hal->floodThrottling(50, kPushes);
    const auto timeline = runHost(host::makeProviders({}, {"ThermalStats"}), INT64_C(1800000000000),
                                  [&] { hal->registerDefault(); });
    std::vector<std::string> pushed;
    size_t records = 0;
    for (const auto& line : timeline) {
        if (line["event"] == "push (force)") pushed.push_back(line["detail"]);
        records += line["event"] == "record";
    }
    ASSERT_EQ(pushed.size(), static_cast<size_t>(kPushes));
    for (int i = 0; i < kPushes; ++i) ASSERT_EQ(pushed[i], "storm-" + std::to_string(i));
    EXPECT_EQ(records, static_cast<size_t>(kPushes) + 1)
            << "each push snapshots the pusher, and the end of the run once more";
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
    std::vector<host::HostedProvider> providers(1);
    providers[0].provider = std::make_unique<HalLikePusher>();
    int pushes = 0;
    for (const auto& line : runHost(std::move(providers), INT64_C(60000000000))) {
        if (line["event"] != "push") continue;
        ++pushes;
        EXPECT_EQ(line["t_ns"], 1000000000);
        EXPECT_EQ(line["detail"], "1000000000");
    }
    EXPECT_EQ(pushes, 1);
}

}  // namespace
