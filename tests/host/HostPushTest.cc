// Pushes from other threads reach the host's driving thread: queued, routed to every provider,
// and a forced push snapshots the pusher. Run under ThreadSanitizer by the test script.
#include <thread>

#include <gtest/gtest.h>

#include "Headset.h"
#include "Host.h"
#include "Occurrences.h"

namespace {

using testing_support::occurrences;

// What the provider saw; owned by the test because the host destroys its providers.
struct Observed {
    int notified = 0;
    int notifiedAtRelease = 0;
    int forcedSnapshots = 0;
    int callsOffDrivingThread = 0;
};

// Pushes `count` notifications from its own thread as soon as it is acquired, every other one
// forced, and one more from releaseResources() on the driving thread.
class PushingProvider : public Vistrel::Provider {
public:
    PushingProvider(int count, Observed& seen) : count_(count), seen_(seen) {}
    ~PushingProvider() override { join(); }

    const char* name() const override { return "Pusher"; }
    bool acquireResources(Vistrel::NotificationRouter router, Vistrel::IClockReader&) override {
        driver_ = std::this_thread::get_id();
        router_ = router;
        thread_ = std::thread([this, router] {
            for (int i = 0; i < count_; ++i) router("Pushed", std::to_string(i), i % 2 == 0);
        });
        return true;
    }
    bool releaseResources() override {
        join();
        router_("Released", "", false);
        return true;
    }
    bool snapshot(Vistrel::IClockReader&, bool force) override {
        check();
        seen_.forcedSnapshots += force;
        return true;
    }
    void notify(const std::string& name, const std::string&, Vistrel::IClockReader&) override {
        check();
        seen_.notified += name == "Pushed";
        seen_.notifiedAtRelease += name == "Released";
    }

private:
    void check() { seen_.callsOffDrivingThread += std::this_thread::get_id() != driver_; }
    void join() {
        if (thread_.joinable()) thread_.join();
    }

    int count_;
    Observed& seen_;
    Vistrel::NotificationRouter router_;
    std::thread thread_;
    std::thread::id driver_;
};

TEST(HostPush, PushesAreRoutedOnTheDrivingThread) {
    constexpr int kPushes = 200;
    Observed seen;
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    {
        host::HostClock clock(host::HostClock::Mode::Real);
        host::Output output(out, true, [&clock] { return clock.deviceNs(); });
        sim::Headset headset(sim::HeadsetConfig{}, [&clock] { return clock.deviceNs(); });
        std::vector<host::HostedProvider> providers(1);
        providers[0].provider = std::make_unique<PushingProvider>(kPushes, seen);
        providers[0].record = [] { return nlohmann::ordered_json{{"fresh", true}}; };
        host::Host host(clock, output, headset, std::move(providers), INT64_C(3600000000000));
        EXPECT_EQ(host.run(INT64_C(300000000)), 0);  // 300 ms of real time
    }
    fclose(out);
    const std::string timeline(text, size);
    free(text);

    EXPECT_EQ(seen.notified, kPushes);
    EXPECT_EQ(seen.notifiedAtRelease, 1) << "a push made while releasing is still routed";
    EXPECT_EQ(seen.forcedSnapshots, kPushes / 2) << "each forced push, and only those, snapshots";
    EXPECT_EQ(seen.callsOffDrivingThread, 0);
    EXPECT_EQ(occurrences(timeline, "\"event\":\"push (force)\""), static_cast<size_t>(kPushes / 2));
    EXPECT_EQ(occurrences(timeline, "\"event\":\"push\""), static_cast<size_t>(kPushes / 2 + 1));
    EXPECT_EQ(occurrences(timeline, "\"event\":\"record\""), static_cast<size_t>(kPushes / 2 + 1))
            << "each forced push's, and the end of the run's";
}

}  // namespace
