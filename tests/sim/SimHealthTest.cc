// The simulated headset's event plan and service lifetime. Its battery physics is left untested:
// nothing relies on the figures beyond the reference host's timeline.
#include <gtest/gtest.h>

#include "Headset.h"

namespace {

namespace V2_1 = android::hardware::health::V2_1;
constexpr int64_t kMinuteNs = INT64_C(60000000000);

TEST(SimHeadset, CoincidingEventsAreAllReported) {
    sim::HeadsetConfig config;
    config.interactive = sim::InteractiveScript({{65 * kMinuteNs, true}, {35 * kMinuteNs, false}});
    sim::Headset headset(config, [] { return INT64_C(0); });
    const auto events = headset.nextEventsAfter(0);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_TRUE(events[0].atNs == 65 * kMinuteNs && events[1].atNs == 65 * kMinuteNs);
    EXPECT_EQ(events[0].name + " " + events[1].name, "ScreenOff PowerConnected");
}

TEST(SimHeadset, ServesTheHealthHalWhileAlive) {
    {
        sim::Headset headset(sim::HeadsetConfig{}, [] { return INT64_C(0); });
        EXPECT_NE(V2_1::IHealth::getService("default"), nullptr);
    }
    EXPECT_EQ(V2_1::IHealth::getService("default"), nullptr);
}

}  // namespace
