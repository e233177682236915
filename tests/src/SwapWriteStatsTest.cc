#include "SwapWriteStats.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using testing_support::FakeClock;
using testing_support::FixtureTree;
using Vistrel::SwapWriteStats;

constexpr char kZramStat[] = "/sys/block/zram0/stat";

TEST(SwapWriteStatsSnapshot, SwapOutMinusZramWrites) {
    FixtureTree tree("memstorage/device");
    SwapWriteStats swap;
    FakeClock clock;
    clock.timestamp = 1700000000123;
    logcapture::clear();
    ASSERT_TRUE(swap.snapshot(clock, false));
    // 500000 pages * 4 KiB * 1024 - 3500000 sectors * 512
    EXPECT_EQ(swap.swapWriteBytes, 256000000);
    EXPECT_EQ(swap.timestamp, 1700000000123);
    EXPECT_TRUE(logcapture::entries().empty());
    EXPECT_EQ(swap.sample(clock)->name, "SwapHeartbeat");
}

TEST(SwapWriteStatsSnapshot, NeverNegativeWhenZramWroteMore) {
    FixtureTree tree("memstorage/device");
    tree.write(kZramStat, "0 0 0 0 1 0 4000001 0 0 0 0 0 0 0 0\n");  // one sector past pswpout
    SwapWriteStats swap;
    FakeClock clock;
    ASSERT_TRUE(swap.snapshot(clock, false));
    EXPECT_EQ(swap.swapWriteBytes, 0);

    tree.write(kZramStat, "0 0 0 0 1 0 4000000 0 0 0 0 0 0 0 0\n");  // exactly pswpout
    ASSERT_TRUE(swap.snapshot(clock, false));
    EXPECT_EQ(swap.swapWriteBytes, 0);
}

TEST(SwapWriteStatsSnapshot, FailuresLogTheirReasonAndChangeNothing) {
    FixtureTree device("memstorage/device");
    SwapWriteStats swap;
    FakeClock clock;
    clock.timestamp = 42;
    ASSERT_TRUE(swap.snapshot(clock, false));
    clock.timestamp = 99;

    FixtureTree legacy("memstorage/legacy");  // vmstat present, no zram0 stat
    logcapture::clear();
    EXPECT_FALSE(swap.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel", "SwapWriteStats: failed to get block device stats"}}));

    FixtureTree empty("");
    logcapture::clear();
    EXPECT_FALSE(swap.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel", "SwapWriteStats: failed to get vmstats"}}));
    EXPECT_EQ(swap.swapWriteBytes, 256000000);
    EXPECT_EQ(swap.timestamp, 42);
}

}  // namespace
