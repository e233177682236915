// VrFocusProviderStats against the simulated focus manager module (found through
// LD_LIBRARY_PATH, set by CTest to the default module directory). The test moves device time
// and settles the module, whose thread then reports the focus script's changes.
#include "VrFocusProviderStats.h"

#include <android/log.h>

#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "FakeClock.h"
#include "LogCapture.h"
#include "RecordedPushes.h"
#include "SdkControl.h"
#include "hostplatform/Properties.h"

namespace {

using Vistrel::VrFocusProviderStats;
using Vistrel::VrTopActivityListener;
using Pushes = testing_support::RecordedPushes;

constexpr int64_t kPhaseNs = 10000000000;  // 10 s of device time per script phase
constexpr char kForceLine[] = "VrTopActivityListener, onTopActivityChanged force sample";

class VrFocusTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::sdk::setDeviceTime([this] { return deviceNs.load(); });
        sim::sdk::setFocusScript(sim::sdk::FocusScript(
                {{kPhaseNs, {}}, {kPhaseNs, {"a", "b"}}, {kPhaseNs, {"b", "a"}}, {kPhaseNs, {}}}));
    }
    void TearDown() override { sim::sdk::resetDeviceTime(); }

    // Moves device time into script phase `phase` and lets the module report.
    void enterPhase(int phase) {
        deviceNs = phase * kPhaseNs;
        sim::sdk::settle();
    }
    // Acquires `focus` with foreground applications enabled; its router pushes to `pushes`.
    bool acquireEnabled() {
        hostplatform::setProperty("enable_fg_apps_cpu_events", "true");
        return focus.acquireResources(pushes.router(), clock);
    }
    static void setHooks(bool sim::sdk::Hooks::*hook) {
        sim::sdk::Hooks hooks;
        if (hook != nullptr) hooks.*hook = true;
        sim::sdk::setHooks(hooks);
    }
    static size_t logged(int priority, const std::string& text) {
        return logcapture::count(priority, "Vistrel", text);
    }

    std::atomic<int64_t> deviceNs{0};
    testing_support::FakeClock clock;
    Pushes pushes;
    testing_support::SampleCounting<VrFocusProviderStats> focus;
};

TEST_F(VrFocusTest, PropertyUnsetOrFalseMeansNotEnabledAndNothingLoaded) {
    for (const char* value : {static_cast<const char*>(nullptr), "false"}) {
        if (value != nullptr) hostplatform::setProperty("enable_fg_apps_cpu_events", value);
        VrFocusProviderStats disabled;
        EXPECT_TRUE(disabled.acquireResources(pushes.router(), clock));
        EXPECT_EQ(disabled.foregroundApps, "NOT_ENABLED");
        clock.now = 77;
        EXPECT_TRUE(disabled.snapshot(clock, true));
        EXPECT_EQ(disabled.foregroundApps, "NOT_ENABLED");
        EXPECT_EQ(disabled.snapshotTimeNs, 0);
        EXPECT_TRUE(disabled.releaseResources());
    }
    EXPECT_TRUE(logcapture::entries().empty()) << "the SDK module is never loaded";
}

TEST_F(VrFocusTest, ChangedListsArePushedAndSnapshotsCopyThemWithTrailingCommas) {
    ASSERT_TRUE(acquireEnabled());
    enterPhase(0);
    EXPECT_EQ(pushes.delivered().size(), 0u) << "an empty first report is not a change";

    enterPhase(1);
    ASSERT_EQ(pushes.delivered().size(), 1u);
    EXPECT_EQ(pushes.delivered()[0], "ForegroundAppsStats/ForegroundApps snapshot/force");
    clock.now = 123;
    ASSERT_TRUE(focus.snapshot(clock, false));
    EXPECT_EQ(focus.foregroundApps, "a,b,");
    EXPECT_EQ(focus.snapshotTimeNs, 123);
    EXPECT_EQ(logged(ANDROID_LOG_INFO, "VrFocusProviderStats: snapshot ForegroundApps: a"), 1u);
    EXPECT_EQ(logged(ANDROID_LOG_INFO, "VrFocusProviderStats: snapshot ForegroundApps: b"), 1u);

    enterPhase(2);  // the same applications in another order
    EXPECT_EQ(pushes.delivered().size(), 2u);
    enterPhase(3);  // nothing in front after something
    EXPECT_EQ(pushes.delivered().size(), 3u);
    EXPECT_EQ(logged(ANDROID_LOG_INFO, kForceLine), 3u);
    ASSERT_TRUE(focus.snapshot(clock, false));
    EXPECT_EQ(focus.foregroundApps, "");

    EXPECT_EQ(pushes.token.use_count(), 2) << "the listener holds a copy of the router";
    EXPECT_TRUE(focus.releaseResources());
    EXPECT_EQ(pushes.token.use_count(), 1) << "the listener is deleted after unregistering";
    const auto seen = sim::sdk::observations();
    ASSERT_EQ(seen.destroyCalls.size(), 1u);
    EXPECT_EQ(seen.destroyCalls[0].version, 5);
    EXPECT_EQ(seen.registeredListeners, 0);
    EXPECT_EQ(seen.outstandingAllocations, 0) << "every array and string went back to the module";
}

// A report that repeats the list does not push (a list in another order does: see above). Drives
// a second listener directly, reading the process-wide manager that acquireResources() created.
TEST_F(VrFocusTest, ARepeatedListIsNotPushedAgain) {
    ASSERT_TRUE(acquireEnabled());
    Pushes direct;
    VrTopActivityListener listener(direct.router());
    enterPhase(1);  // the manager's own view follows the script
    listener.onTopActivityChanged(Platkit::String("x/.Main"), {});
    listener.onTopActivityChanged(Platkit::String("x/.Main"), {});
    EXPECT_EQ(direct.delivered().size(), 1u);
    EXPECT_EQ(listener.getForegroundApps(), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(focus.releaseResources());
}

TEST_F(VrFocusTest, ForceSamplesThroughTheVirtualInterfaceAndAMissingManagerFailsTheSnapshot) {
    setHooks(&sim::sdk::Hooks::createReturnsNull);
    EXPECT_FALSE(acquireEnabled());
    EXPECT_EQ(logged(ANDROID_LOG_ERROR, "Could not connect to VR Focus Manager"), 1u);
    focus.foregroundApps = "kept";
    EXPECT_FALSE(focus.snapshot(clock, true));
    EXPECT_EQ(focus.samples, 1);
    EXPECT_EQ(focus.foregroundApps, "kept");
    EXPECT_EQ(logged(ANDROID_LOG_ERROR, "VrFocusProviderStats: g_vrFocusManager is null"), 1u);
    EXPECT_FALSE(focus.snapshot(clock, false));
    EXPECT_EQ(focus.samples, 1);
    EXPECT_TRUE(focus.releaseResources());
}

TEST_F(VrFocusTest, ARefusedRegistrationKeepsTheManager) {
    setHooks(&sim::sdk::Hooks::refuseRegistration);
    EXPECT_FALSE(acquireEnabled());
    EXPECT_EQ(logged(ANDROID_LOG_ERROR, "Failed to register listener"), 1u);
    EXPECT_TRUE(focus.snapshot(clock, false)) << "the manager is kept";
    EXPECT_EQ(focus.foregroundApps, "");
    EXPECT_TRUE(sim::sdk::observations().destroyCalls.empty());
    setHooks(nullptr);
    EXPECT_FALSE(focus.releaseResources()) << "the manager does not know the listener";
    EXPECT_EQ(sim::sdk::observations().destroyCalls.size(), 1u);
}

// The SDK may go on calling the listener it kept, on a thread of its own that nothing orders with
// the release: reports keep arriving while the manager is released and after; each reads the
// manager without a lock, and a report after the release finds none (run under ThreadSanitizer,
// which sees any race between those reads and the release, or a manager freed under a report).
TEST_F(VrFocusTest, ARefusedUnregistrationReleasesTheManagerAndLeaksTheListener) {
    ASSERT_TRUE(acquireEnabled());
    enterPhase(1);
    ASSERT_EQ(pushes.delivered().size(), 1u);
    Pushes late;
    VrTopActivityListener kept(late.router());  // as the kept one, it reads the process's manager
    std::atomic<bool> reporting{false}, released{false};  // relaxed: they order nothing
    std::thread sdk([&] {
        do {
            kept.onTopActivityChanged(Platkit::String("x/.Main"), {});
            reporting.store(true, std::memory_order_relaxed);
        } while (!released.load(std::memory_order_relaxed));
        kept.onTopActivityChanged(Platkit::String("x/.Main"), {});
    });
    while (!reporting.load(std::memory_order_relaxed)) std::this_thread::yield();
    setHooks(&sim::sdk::Hooks::refuseUnregistration);
    EXPECT_FALSE(focus.releaseResources());
    released.store(true, std::memory_order_relaxed);
    sdk.join();
    EXPECT_EQ(late.delivered().size(), 1u) << "the first report's apps, and none after";
    EXPECT_EQ(logged(ANDROID_LOG_ERROR, "Failed to unregister listener"), 1u);
    EXPECT_EQ(sim::sdk::observations().destroyCalls.size(), 1u) << "the manager is released";
    EXPECT_EQ(pushes.token.use_count(), 2) << "the listener (with its router) stays alive";
    EXPECT_FALSE(focus.snapshot(clock, false));
    EXPECT_EQ(logged(ANDROID_LOG_ERROR, "VrFocusProviderStats: g_vrFocusManager is null"), 1u);
}

// The module's thread reports changes while the host thread snapshots (run under
// ThreadSanitizer).
TEST_F(VrFocusTest, ConcurrentReportsAndSnapshots) {
    ASSERT_TRUE(acquireEnabled());
    std::atomic<bool> snapshotting{false};
    std::atomic<bool> done{false};
    std::thread driver([&] {
        while (!snapshotting) std::this_thread::yield();
        for (int phase = 1; phase <= 200; ++phase) enterPhase(phase);
        done = true;
    });
    snapshotting = true;
    do {
        EXPECT_TRUE(focus.snapshot(clock, true));
        const std::string& apps = focus.foregroundApps;
        EXPECT_TRUE(apps.empty() || apps == "a,b," || apps == "b,a,") << apps;
    } while (!done);
    driver.join();
    EXPECT_TRUE(focus.releaseResources());
    EXPECT_EQ(pushes.delivered().size(), 150u)
            << "every phase but the repeated empty one at the cycle start";
}

}  // namespace
