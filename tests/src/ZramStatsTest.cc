#include "ZramStats.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <vector>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using testing_support::FakeClock;
using testing_support::FixtureTree;
using Vistrel::ZramStats;

std::vector<int64_t> record(const ZramStats& z) {
    return {z.origDataSize, z.comprDataSize, z.memUsedTotal, z.memLimit,       z.memUsedMax,
            z.samePages,    z.pagesCompacted, z.hugePages,   z.hugePagesSince, z.column10};
}

const std::vector<int64_t> kDeviceMmStat = {1433600000, 402653184, 419430400, 0,   436207616,
                                             12045,      913,       210,       388, 77};

TEST(ZramStatsSnapshot, CopiesAllTenColumns) {
    FixtureTree tree("memstorage/device");
    ZramStats zram;
    FakeClock clock;
    logcapture::clear();
    EXPECT_TRUE(zram.snapshot(clock, false));
    EXPECT_EQ(record(zram), kDeviceMmStat);
    EXPECT_TRUE(logcapture::entries().empty());
}

TEST(ZramStatsSnapshot, NineColumnsSucceedWithAllZeroFields) {
    FixtureTree device("memstorage/device");
    ZramStats zram;
    FakeClock clock;
    ASSERT_TRUE(zram.snapshot(clock, false));
    FixtureTree legacy("memstorage/legacy");
    EXPECT_TRUE(zram.snapshot(clock, true));
    EXPECT_EQ(record(zram), std::vector<int64_t>(10, 0));
}

TEST(ZramStatsSnapshot, MissingMmStatLogsAndKeepsThePreviousRecord) {
    FixtureTree device("memstorage/device");
    ZramStats zram;
    FakeClock clock;
    ASSERT_TRUE(zram.snapshot(clock, false));
    FixtureTree empty("");
    logcapture::clear();
    EXPECT_FALSE(zram.snapshot(clock, false));
    EXPECT_EQ(record(zram), kDeviceMmStat);
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel", "ZramStats: failed to get zramStats"}}));

    const auto n = zram.sample(clock);
    ASSERT_TRUE(n) << "the heartbeat does not depend on the device";
    EXPECT_EQ(n->name, "ZramHeartbeat");
    EXPECT_EQ(n->detail, "15 minutes");
}

}  // namespace
