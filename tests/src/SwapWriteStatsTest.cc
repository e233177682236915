#include "SwapWriteStats.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using testing_support::FakeClock;
using testing_support::FixtureTree;

TEST(SwapWriteStats, SwapOutMinusZramWritesNeverNegative) {
    FixtureTree tree("memstorage/device");
    Vistrel::SwapWriteStats swap;
    FakeClock clock;
    clock.timestamp = 1700000000123;
    ASSERT_TRUE(swap.snapshot(clock, false));
    EXPECT_EQ(swap.swapWriteBytes, 500000 * 4096 - 3500000 * 512);
    EXPECT_EQ(swap.timestamp, 1700000000123);
    EXPECT_EQ(swap.sample(clock)->name, "SwapHeartbeat");
    EXPECT_TRUE(logcapture::entries().empty());

    for (const char* sectors : {"4000000", "4000001"}) {  // exactly pswpout, and one sector more
        tree.write("/sys/block/zram0/stat", std::string("0 0 0 0 1 0 ") + sectors + " 0 0 0 0 0 0 0 0\n");
        ASSERT_TRUE(swap.snapshot(clock, false));
        EXPECT_EQ(swap.swapWriteBytes, 0) << sectors;
    }
}

TEST(SwapWriteStats, FailuresLogTheirReasonAndChangeNothing) {
    FixtureTree device("memstorage/device");
    Vistrel::SwapWriteStats swap;
    FakeClock clock;
    clock.timestamp = 42;
    ASSERT_TRUE(swap.snapshot(clock, false));
    clock.timestamp = 99;
    FixtureTree legacy("memstorage/legacy");  // vmstat present, no zram0 stat
    EXPECT_FALSE(swap.snapshot(clock, false));
    FixtureTree empty("");
    EXPECT_FALSE(swap.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(), (std::vector<logcapture::Entry>{
                                         {ANDROID_LOG_ERROR, "Vistrel", "SwapWriteStats: failed to get block device stats"},
                                         {ANDROID_LOG_ERROR, "Vistrel", "SwapWriteStats: failed to get vmstats"}}));
    EXPECT_EQ(swap.swapWriteBytes, 256000000);
    EXPECT_EQ(swap.timestamp, 42);
}

}  // namespace
