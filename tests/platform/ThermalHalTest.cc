// The thermal HAL stand-in (names, lookups, casts) and the hardware-binder thread its callbacks
// arrive on.
#include <android/hardware/thermal/2.0/IThermal.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "FakeThermal.h"
#include "hostplatform/HidlServices.h"
#include "hostplatform/HwBinderThreadPool.h"

namespace {

using android::sp;
using testing_support::FakeThermal;
namespace V1_0 = android::hardware::thermal::V1_0;
namespace V2_0 = android::hardware::thermal::V2_0;

TEST(ThermalTypes, NamesAsTheGeneratedCodeGivesThem) {
    std::string names;
    for (int32_t value = -1; value <= 10; ++value) {
        names += toString(static_cast<V2_0::TemperatureType>(value)) + " ";
    }
    EXPECT_EQ(names,
              "UNKNOWN CPU GPU BATTERY SKIN USB_PORT POWER_AMPLIFIER BCL_VOLTAGE BCL_CURRENT "
              "BCL_PERCENTAGE NPU 0xa ");
    EXPECT_EQ(toString(static_cast<V2_0::TemperatureType>(-2)), "0xfffffffe");
    EXPECT_EQ(toString(static_cast<V1_0::TemperatureType>(4)), "0x4") << "1.0 stops at SKIN";
    EXPECT_EQ(toString(static_cast<V2_0::ThrottlingSeverity>(7)), "0x7");
}

// An implementation of the 1.0 interface only.
struct Thermal10 : V1_0::IThermal {
    using Return = android::hardware::Return<void>;
    Return getTemperatures(getTemperatures_cb) override { return {}; }
    Return getCpuUsages(getCpuUsages_cb) override { return {}; }
    Return getCoolingDevices(getCoolingDevices_cb) override { return {}; }
};

TEST(ThermalService, LookupsRegistrationAndCheckedCasts) {
    EXPECT_EQ(V2_0::IThermal::getService("default"), nullptr);
    sp<FakeThermal> hal = new FakeThermal;
    hal->registerDefault();
    EXPECT_EQ(V2_0::IThermal::getService("default").get(), hal.get());
    const sp<V1_0::IThermal> asParent = V1_0::IThermal::getService();
    ASSERT_EQ(asParent.get(), static_cast<V1_0::IThermal*>(hal.get())) << "also a 1.0 service";
    EXPECT_EQ(V2_0::IThermal::castFrom(asParent).withDefault(nullptr).get(), hal.get());
    sp<V1_0::IThermal> old = new Thermal10;
    EXPECT_EQ(V2_0::IThermal::castFrom(old).withDefault(nullptr), nullptr);
    hostplatform::clearServices();
}

TEST(HwBinderThreadPool, RunsPostedTransactionsInOrderOnItsOwnThread) {
    std::mutex mutex;
    std::vector<int> order;
    std::set<std::thread::id> threads;
    const auto record = [&](int n) {
        std::lock_guard<std::mutex> lock(mutex);
        order.push_back(n);
        threads.insert(std::this_thread::get_id());
    };
    EXPECT_FALSE(hostplatform::onHwBinderThread());
    std::promise<void> allPosted;
    for (int n = 0; n < 100; ++n) {
        hostplatform::postOnewayTransaction([&, n] {
            if (n == 0) {
                // From the pool itself, once the rest is queued: a nested post runs after
                // everything queued before it, and waiting there returns at once instead of
                // deadlocking.
                allPosted.get_future().wait();
                hostplatform::postOnewayTransaction([&] { record(100); });
                hostplatform::waitForOnewayTransactions();
            }
            record(n);
            EXPECT_TRUE(hostplatform::onHwBinderThread());
        });
    }
    allPosted.set_value();
    hostplatform::waitForOnewayTransactions();
    hostplatform::waitForOnewayTransactions();  // the nested post may follow the first wait
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(order.size(), 101u);
    for (int n = 0; n <= 100; ++n) EXPECT_EQ(order[n], n);
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
}

}  // namespace
