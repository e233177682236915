// The HIDL return-status checks and the health HAL service lookup.
#include <android/hardware/health/2.1/IHealth.h>
#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include "FakeHealth.h"
#include "hostplatform/HidlServices.h"

namespace {

using android::sp;
using android::hardware::Return;
using android::hardware::Status;
using testing_support::FakeHealth;
namespace V2_0 = android::hardware::health::V2_0;
namespace V2_1 = android::hardware::health::V2_1;

TEST(HidlReturnDeathTest, OnlyAnUncheckedFailureAborts) {
    EXPECT_DEATH({ Return<void> r = Status::fromStatusT(android::DEAD_OBJECT); },
                 "Failed HIDL return status not checked");
    EXPECT_DEATH(
            {
                Return<bool> r = Status::fromExceptionCode(Status::EX_SECURITY, "nope");
                static_cast<void>(static_cast<bool>(r));
            },
            "Attempted to retrieve value from failed HIDL call: Status\\(EX_SECURITY\\): 'nope'");
    { Return<void> unchecked = android::hardware::Void(); }
}

TEST(HealthService, GetServiceWithAStringLiteralIsNotAStubRequest) {
    sp<FakeHealth> registered = new FakeHealth;
    sp<FakeHealth> passthrough = new FakeHealth;
    registered->registerDefault();
    hostplatform::addPassthroughService<V2_1::IHealth>("default", passthrough);

    EXPECT_EQ(V2_1::IHealth::getService("default").get(), registered.get());
    EXPECT_EQ(V2_1::IHealth::getService().get(), registered.get());
    EXPECT_EQ(V2_1::IHealth::getService(android::hardware::hidl_string("default")).get(),
              registered.get());
    EXPECT_EQ(V2_1::IHealth::getService(true).get(), passthrough.get());
    EXPECT_EQ(V2_1::IHealth::getService("default", true).get(), passthrough.get());
    EXPECT_EQ(V2_1::IHealth::getService("other"), nullptr);
    EXPECT_EQ(V2_1::IHealth::getService(static_cast<const char*>(nullptr)), nullptr);
    EXPECT_EQ(V2_0::IHealth::getService("default"), nullptr) << "registered as 2.1 only";
}

}  // namespace
