#include "StorageStats.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"
#include "hostplatform/Libc.h"

namespace {

using testing_support::FakeClock;
using testing_support::FixtureTree;
using Vistrel::StorageStats;

constexpr int64_t kMinuteNs = INT64_C(60000000000);
constexpr int64_t kHourNs = 60 * kMinuteNs;

// Answers statvfs with fixed block counts (f_frsize deliberately differs from f_bsize) and
// records every path asked for.
class FakeDataPartition {
public:
    FakeDataPartition(uint64_t blocks, uint64_t available, uint64_t free) {
        hostplatform::setStatvfs([this, blocks, available, free](const char* path, struct statvfs* out) {
            paths.push_back(path);
            if (fail) return -1;
            *out = {};
            out->f_bsize = 4096;
            out->f_frsize = 512;
            out->f_blocks = blocks;
            out->f_bavail = available;
            out->f_bfree = free;
            return 0;
        });
    }
    ~FakeDataPartition() { hostplatform::resetLibc(); }

    std::vector<std::string> paths;
    bool fail = false;
};

std::string gateWarning(int seconds) {
    return "StorageStats snapshot failed since " + std::to_string(seconds) +
           " ms less than 3600000 ms have passed since the last snapshot";
}

TEST(StorageStatsSample, FreshObjectSnapshotsAtOnceWithBsizeFigures) {
    FakeDataPartition data(1000, 100, 150);
    StorageStats stats;
    FakeClock clock;
    clock.now = 5 * kMinuteNs;
    const auto n = stats.sample(clock);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "StorageHeartbeat") << "exactly 10 % available is not low";
    EXPECT_EQ(n->detail, "1 Hour");
    EXPECT_EQ(stats.totalBytes, 4096000);
    EXPECT_EQ(stats.availableBytes, 409600);
    EXPECT_EQ(stats.freeBytes, 614400);
    EXPECT_FALSE(stats.lowStorage);
    EXPECT_EQ(stats.lastSnapshotNs, 5 * kMinuteNs);
    EXPECT_EQ(data.paths, (std::vector<std::string>{"/data"}));
}

TEST(StorageStatsSample, NinetyFivePercentUsedRaisesTheAlarm) {
    FakeDataPartition data(1000, 50, 60);
    StorageStats stats;
    FakeClock clock;
    const auto n = stats.sample(clock);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "LowStorage");
    EXPECT_EQ(n->detail, "Equal to or larger than 90% Disk Usage");
    EXPECT_TRUE(stats.lowStorage);
    // One block short of 10 % is low as well.
    FakeDataPartition justBelow(1000, 99, 99);
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_TRUE(stats.lowStorage);
}

TEST(StorageStatsSample, WithinTheHourWarnsWithSecondsAndReturnsNothing) {
    FakeDataPartition data(1000, 500, 500);
    StorageStats stats;
    FakeClock clock;
    clock.now = kHourNs;
    ASSERT_TRUE(stats.sample(clock));
    logcapture::clear();
    clock.now += 10 * kMinuteNs;
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{{ANDROID_LOG_WARN, "Vistrel", gateWarning(600)}}));

    // One nanosecond short of the hour is still inside; exactly one hour is outside.
    clock.now = 2 * kHourNs - 1;
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::count(ANDROID_LOG_WARN, "Vistrel", gateWarning(3599)), 1u);
    clock.now = 2 * kHourNs;
    EXPECT_TRUE(stats.sample(clock));
    EXPECT_EQ(stats.lastSnapshotNs, 2 * kHourNs);
    EXPECT_EQ(data.paths.size(), 2u) << "warnings do not query the file system";
}

TEST(StorageStatsSample, EverySuccessfulSnapshotRestartsTheHour) {
    FakeDataPartition data(1000, 500, 500);
    StorageStats stats;
    FakeClock clock;
    clock.now = kHourNs;
    ASSERT_TRUE(stats.snapshot(clock, false));
    for (int i = 0; i < 8; ++i) {  // a host snapshotting every 15 minutes
        clock.now += 15 * kMinuteNs;
        EXPECT_FALSE(stats.sample(clock));
        EXPECT_TRUE(stats.snapshot(clock, false));
    }
    EXPECT_EQ(logcapture::count(ANDROID_LOG_WARN, "Vistrel", gateWarning(900)), 8u);
}

TEST(StorageStatsSnapshot, ForcedSnapshotQueriesTwiceOnAFreshObjectAndWarnsLater) {
    FakeDataPartition data(1000, 500, 500);
    StorageStats stats;
    FakeClock clock;
    clock.now = kHourNs;
    logcapture::clear();
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(data.paths.size(), 2u) << "its own sample snapshots, then the snapshot itself";
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_INFO, "Vistrel", "StorageStats: force sampled in snapshot"}}));

    logcapture::clear();
    clock.now += 2 * kMinuteNs;
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(data.paths.size(), 3u);
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_INFO, "Vistrel", "StorageStats: force sampled in snapshot"},
                  {ANDROID_LOG_WARN, "Vistrel", gateWarning(120)}}));
    EXPECT_EQ(stats.lastSnapshotNs, kHourNs + 2 * kMinuteNs);
}

TEST(StorageStatsSnapshot, FailedStatvfsIsSilentKeepsTheRecordAndSampleLogsIt) {
    FakeDataPartition data(1000, 300, 400);
    StorageStats stats;
    FakeClock clock;
    clock.now = kHourNs;
    ASSERT_TRUE(stats.snapshot(clock, false));
    data.fail = true;
    logcapture::clear();
    clock.now += 2 * kHourNs;
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_TRUE(logcapture::entries().empty());
    EXPECT_EQ(stats.totalBytes, 4096000);
    EXPECT_EQ(stats.availableBytes, 1228800);
    EXPECT_EQ(stats.lastSnapshotNs, kHourNs);

    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel", "Failed to get updated storage stats"}}));
}

TEST(StorageStatsSnapshot, DataPathGoesThroughTheFileSystemRoot) {
    FakeDataPartition data(10, 5, 5);
    FixtureTree tree("");
    StorageStats stats;
    FakeClock clock;
    ASSERT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(data.paths, (std::vector<std::string>{tree.at("/data").string()}));
}

TEST(StorageStatsIdentity, NameAndPeriod) {
    StorageStats stats;
    EXPECT_STREQ(stats.name(), "StorageStats");
    EXPECT_EQ(stats.sampleRate(), Vistrel::SamplePeriod(std::chrono::milliseconds(3600000)));
}

}  // namespace
