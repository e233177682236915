// The simulated headset's event plan and service lifetime. Its battery physics is left untested:
// nothing relies on the figures beyond the reference host's timeline.
#include <gtest/gtest.h>

#include <optional>
#include <set>

#include "Headset.h"
#include "Seed.h"

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

// A headset whose battery is flat while it is in use should have shut down.
TEST(SimHeadset, NoSeedRunsTheBatteryFlatOverADay) {
    for (uint64_t seed = 0; seed <= 10; ++seed) {
        sim::HeadsetConfig config;
        config.seed = seed;
        int64_t nowNs = 0, lowest = 100;
        sim::Headset headset(config, [&nowNs] { return nowNs; });
        for (; nowNs <= 24 * 60 * kMinuteNs; nowNs += kMinuteNs) {
            V2_1::IHealth::getService("default")->getCapacity(
                    [&lowest](auto, int32_t level) { lowest = level < lowest ? level : lowest; });
        }
        EXPECT_GE(lowest, 3) << "seed " << seed;
    }
}

TEST(SimHeadset, ServesTheHealthHalWhileAlive) {
    {
        sim::Headset headset(sim::HeadsetConfig{}, [] { return INT64_C(0); });
        EXPECT_NE(V2_1::IHealth::getService("default"), nullptr);
    }
    EXPECT_EQ(V2_1::IHealth::getService("default"), nullptr);
}

// The minute of `script`'s hour-long cycle at which `rotated` enters it; empty when it is no
// rotation of it.
std::optional<int64_t> entryMinute(const sim::sdk::FocusScript& rotated,
                                   const sim::sdk::FocusScript& script) {
    for (int64_t entry = 0; entry < 60; ++entry) {
        bool same = true;
        for (int64_t minute = 0; minute < 120 && same; ++minute) {
            same = rotated.appsAt(minute * kMinuteNs) == script.appsAt((minute + entry) * kMinuteNs);
        }
        if (same) return entry;
    }
    return std::nullopt;
}

TEST(SimHeadset, EachSeedEntersTheFocusScriptAtAMinuteOfItsOwn) {
    const auto script = sim::sdk::FocusScript::defaults();
    EXPECT_EQ(entryMinute(sim::seededFocus(script, 0), script), 0);
    std::set<int64_t> entries;
    for (uint64_t seed = 1; seed <= 8; ++seed) {
        const auto entry = entryMinute(sim::seededFocus(script, seed), script);
        ASSERT_TRUE(entry) << "seed " << seed;
        entries.insert(*entry);
    }
    EXPECT_GT(entries.size(), 4u);
}

}  // namespace
