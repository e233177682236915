#include "Provider.h"

#include <cstring>

#include <gtest/gtest.h>

#include "FakeClock.h"
#include "SystemStateStats.h"
#include "VtableSlot.h"

namespace {

using Vistrel::Provider;

// The least a provider must define: name() and snapshot().
class MinimalProvider : public Provider {
public:
    const char* name() const override { return "Minimal"; }
    bool snapshot(Vistrel::IClockReader&, bool) override { return true; }
};

TEST(ProviderContract, BaseBehaviours) {
    MinimalProvider p;
    testing_support::FakeClock clock;
    bool routed = false;
    EXPECT_TRUE(p.acquireResources(
            [&](const std::string&, const std::string&, bool) { routed = true; }, clock));
    EXPECT_FALSE(p.sample(clock).has_value());
    EXPECT_FALSE(p.sampleRate().has_value());
    p.notify("PowerConnected", "", clock);
    EXPECT_TRUE(p.releaseResources());
    EXPECT_FALSE(routed) << "the base acquireResources must not call the router";
}

// Providers built against the host library depend on this order.
using testing_support::slotOf;

TEST(ProviderContract, VirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(slotOf(&Provider::name), 2);
    EXPECT_EQ(slotOf(&Provider::acquireResources), 3);
    EXPECT_EQ(slotOf(&Provider::releaseResources), 4);
    EXPECT_EQ(slotOf(&Provider::snapshot), 5);
    EXPECT_EQ(slotOf(&Provider::sample), 6);
    EXPECT_EQ(slotOf(&Provider::notify), 7);
    EXPECT_EQ(slotOf(&Provider::sampleRate), 8);
    EXPECT_EQ(slotOf(&Vistrel::SystemStateStats::setPowerManager), 9);
    EXPECT_EQ(slotOf(&Vistrel::PowerManager::getIsInteractive), 0);
}

// Layout the host library relies on: a notification is name then detail; a period is signed
// 64-bit milliseconds.
static_assert(offsetof(Vistrel::Notification, name) < offsetof(Vistrel::Notification, detail));
static_assert(std::is_signed_v<Vistrel::SamplePeriod::value_type::rep> &&
              sizeof(Vistrel::SamplePeriod::value_type::rep) == 8);
static_assert(std::is_same_v<Vistrel::SamplePeriod::value_type::period, std::milli>);

}  // namespace
