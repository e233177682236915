#include "StorageStats.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeClock.h"
#include "LogCapture.h"
#include "hostplatform/Libc.h"

namespace {

using logcapture::Entry;
using testing_support::FakeClock;
using Vistrel::StorageStats;

constexpr int64_t kMinuteNs = INT64_C(60000000000);
constexpr int64_t kHourNs = 60 * kMinuteNs;

const Entry kForced = logcapture::info("StorageStats: force sampled in snapshot");

Entry gateWarning(int seconds) {
    return logcapture::warning("StorageStats snapshot failed since " + std::to_string(seconds) +
                               " ms less than 3600000 ms have passed since the last snapshot");
}

// /data answers 1000 blocks of f_bsize 4096 (f_frsize 512, so using it shows), `available` of them
// available and 50 more free, even when the call fails; queries are counted. Every test case
// runs in its own process, so the seam needs no reset.
class StorageStatsTest : public ::testing::Test {
protected:
    void SetUp() override {
        hostplatform::setStatvfs([this](const char* path, struct statvfs* out) {
            EXPECT_STREQ(path, "/data");
            *out = {};
            out->f_bsize = 4096;
            out->f_frsize = 512;
            out->f_blocks = 1000;
            out->f_bavail = available;
            out->f_bfree = available + 50;
            return ++queries, fail ? -1 : 0;
        });
        clock.now = kHourNs;
    }

    uint64_t available = 500;
    bool fail = false;
    int queries = 0;
    StorageStats stats;
    FakeClock clock;
};

TEST_F(StorageStatsTest, FirstSampleSnapshotsAtOnce) {
    clock.now = 5 * kMinuteNs;
    EXPECT_EQ(testing_support::textOf(stats.sample(clock)), "StorageHeartbeat/1 Hour");
    EXPECT_EQ(std::vector<int64_t>({stats.totalBytes, stats.availableBytes, stats.freeBytes}),
              std::vector<int64_t>({4096000, 2048000, 2252800}));
    EXPECT_EQ(stats.lastSnapshotNs, 5 * kMinuteNs);
}

TEST_F(StorageStatsTest, LowStorageBelowTenPercentOnly) {
    available = 100;  // exactly 10 %
    EXPECT_EQ(stats.sample(clock)->name, "StorageHeartbeat");
    available = 99;
    clock.now += kHourNs;
    EXPECT_EQ(testing_support::textOf(stats.sample(clock)),
              "LowStorage/Equal to or larger than 90% Disk Usage");
    EXPECT_TRUE(stats.lowStorage);
}

TEST_F(StorageStatsTest, SampleWithinTheHourOfAnySnapshotIsGated) {
    ASSERT_TRUE(stats.sample(clock));
    clock.now += 10 * kMinuteNs;
    EXPECT_FALSE(stats.sample(clock));
    ASSERT_TRUE(stats.snapshot(clock, false));  // the host's own snapshot restarts the hour
    clock.now += kHourNs - 1;                   // one nanosecond short of it
    EXPECT_FALSE(stats.sample(clock));
    clock.now += 1;
    EXPECT_TRUE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries(), (std::vector<Entry>{gateWarning(600), gateWarning(3599)}));
    EXPECT_EQ(queries, 3) << "a gated sample queries nothing";
}

TEST_F(StorageStatsTest, ForcedSnapshotQueriesTwiceOnAFreshObjectThenItsSampleIsGated) {
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(queries, 2) << "its own sample snapshots, then the snapshot itself";
    clock.now += 2 * kMinuteNs;
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(queries, 3);
    EXPECT_EQ(logcapture::entries(), (std::vector<Entry>{kForced, kForced, gateWarning(120)}));
}

TEST_F(StorageStatsTest, FailedStatvfsFailsTheSnapshotSilentlyAndTheSampleLogsIt) {
    ASSERT_TRUE(stats.snapshot(clock, false));
    fail = true;
    available = 1;
    clock.now += 2 * kHourNs;
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_TRUE(logcapture::entries().empty());
    EXPECT_EQ(stats.availableBytes, 2048000);
    EXPECT_EQ(stats.lastSnapshotNs, kHourNs);
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries(),
              std::vector<Entry>({logcapture::error("Failed to get updated storage stats")}));
}

}  // namespace
