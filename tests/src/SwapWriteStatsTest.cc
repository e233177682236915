#include "SwapWriteStats.h"

#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using logcapture::error;

struct SwapWriteStatsTest : testing::Test {
    testing_support::FixtureTree tree{"memstorage/device"};
    Vistrel::SwapWriteStats swap;
    testing_support::FakeClock clock;
};

TEST_F(SwapWriteStatsTest, WritesAreSwapOutMinusWhatZramWrote) {
    clock.timestamp = 42;
    ASSERT_TRUE(swap.snapshot(clock, false));
    EXPECT_EQ(swap.swapWriteBytes, 500000 * 4096 - 3500000 * 512);
    EXPECT_EQ(swap.timestamp, 42);
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST_F(SwapWriteStatsTest, NeverNegative) {
    for (const char* sectors : {"4000000", "4000001"}) {  // exactly pswpout, and one sector more
        tree.write("/sys/block/zram0/stat",
                   std::string("0 0 0 0 1 0 ") + sectors + " 0 0 0 0 0 0 0 0\n");
        ASSERT_TRUE(swap.snapshot(clock, false));
        EXPECT_EQ(swap.swapWriteBytes, 0) << sectors;
    }
}

TEST_F(SwapWriteStatsTest, FailedReadChangesNothing) {
    ASSERT_TRUE(swap.snapshot(clock, false));
    clock.timestamp = 99;
    tree.remove("/sys/block/zram0/stat");
    EXPECT_FALSE(swap.snapshot(clock, false));
    tree.remove("/proc/vmstat");
    EXPECT_FALSE(swap.snapshot(clock, false));
    EXPECT_EQ(swap.swapWriteBytes, 256000000);
    EXPECT_EQ(swap.timestamp, 0);
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                      error("SwapWriteStats: failed to get block device stats"),
                      error("SwapWriteStats: failed to get vmstats")}));
}

}  // namespace
