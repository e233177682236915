#include "ZramStats.h"

#include <gtest/gtest.h>

#include <vector>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"

namespace {

using testing_support::FixtureTree;

std::vector<int64_t> record(const Vistrel::ZramStats& z) {
    return {z.origDataSize, z.comprDataSize,  z.memUsedTotal, z.memLimit,       z.memUsedMax,
            z.samePages,    z.pagesCompacted, z.hugePages,    z.hugePagesSince, z.column10};
}

const std::vector<int64_t> kDevice = {1433600000, 402653184, 419430400, 0,   436207616,
                                      12045,      913,       210,       388, 77};

// Ten columns are copied; nine give a zero record; a missing file keeps the last record.
TEST(ZramStatsTest, CopiesTheTenColumnsOfTheDeviceFile) {
    Vistrel::ZramStats zram;
    testing_support::FakeClock clock;
    FixtureTree tree("memstorage/device");
    ASSERT_TRUE(zram.snapshot(clock, false));
    EXPECT_EQ(record(zram), kDevice);
    {
        FixtureTree empty("");
        EXPECT_FALSE(zram.snapshot(clock, false));
        EXPECT_EQ(record(zram), kDevice);
        EXPECT_EQ(logcapture::entries(), std::vector<logcapture::Entry>{logcapture::error(
                                                 "ZramStats: failed to get zramStats")});
    }
    FixtureTree legacy("memstorage/legacy");
    EXPECT_TRUE(zram.snapshot(clock, true));
    EXPECT_EQ(record(zram), std::vector<int64_t>(10, 0));
}

}  // namespace
