#include "StorageStats.h"

#include <android/log.h>
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

// Answers statvfs with 4096-byte blocks (f_frsize deliberately 512) and counts the queries.
struct FakeDataPartition {
    FakeDataPartition(uint64_t blocks, uint64_t available, uint64_t free) {
        hostplatform::setStatvfs([=](const char* path, struct statvfs* out) {
            paths.push_back(path);
            *out = {};
            out->f_bsize = 4096;
            out->f_frsize = 512;
            out->f_blocks = blocks;
            out->f_bavail = available;
            out->f_bfree = free;
            return fail ? -1 : 0;
        });
    }
    ~FakeDataPartition() { hostplatform::resetLibc(); }
    std::vector<std::string> paths;
    bool fail = false;
};

Entry gateWarning(int seconds) {
    return {ANDROID_LOG_WARN, "Vistrel",
            "StorageStats snapshot failed since " + std::to_string(seconds) +
                " ms less than 3600000 ms have passed since the last snapshot"};
}

TEST(StorageStats, FreshSampleSnapshotsAtOnceAndAlarmsBelowTenPercent) {
    FakeDataPartition data(1000, 100, 150);
    StorageStats stats;
    FakeClock clock;
    clock.now = 5 * kMinuteNs;
    auto n = stats.sample(clock);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "StorageHeartbeat") << "exactly 10 % available is not low";
    EXPECT_EQ(n->detail, "1 Hour");
    EXPECT_EQ(std::vector<int64_t>({stats.totalBytes, stats.availableBytes, stats.freeBytes}),
              std::vector<int64_t>({4096000, 409600, 614400}));
    EXPECT_EQ(stats.lastSnapshotNs, 5 * kMinuteNs);
    EXPECT_EQ(data.paths, std::vector<std::string>{"/data"});

    FakeDataPartition full(1000, 50, 60);  // 95 % used
    clock.now += kHourNs;
    n = stats.sample(clock);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "LowStorage");
    EXPECT_EQ(n->detail, "Equal to or larger than 90% Disk Usage");
    EXPECT_TRUE(stats.lowStorage);
}

TEST(StorageStats, EverySuccessfulSnapshotRestartsTheHourOfTheGate) {
    FakeDataPartition data(1000, 500, 500);
    StorageStats stats;
    FakeClock clock;
    clock.now = kHourNs;
    ASSERT_TRUE(stats.sample(clock));
    logcapture::clear();
    clock.now += 10 * kMinuteNs;
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries(), std::vector<Entry>{gateWarning(600)}) << "seconds, not ms";

    clock.now = 2 * kHourNs - 1;  // one nanosecond short of the hour
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries().back(), gateWarning(3599));
    EXPECT_EQ(data.paths.size(), 1u) << "a gated sample queries nothing";

    ASSERT_TRUE(stats.snapshot(clock, false));  // the host's own snapshot restarts the hour
    clock.now = 3 * kHourNs - 2;
    EXPECT_FALSE(stats.sample(clock));
    clock.now += 1;
    EXPECT_TRUE(stats.sample(clock));
    EXPECT_EQ(stats.lastSnapshotNs, 3 * kHourNs - 1);
}

TEST(StorageStats, ForcedSnapshotQueriesTwiceOnAFreshObjectAndIsGatedLater) {
    FakeDataPartition data(1000, 500, 500);
    StorageStats stats;
    FakeClock clock;
    clock.now = kHourNs;
    logcapture::clear();
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(data.paths.size(), 2u) << "its own sample snapshots, then the snapshot itself";
    const Entry forced{ANDROID_LOG_INFO, "Vistrel", "StorageStats: force sampled in snapshot"};
    EXPECT_EQ(logcapture::entries(), std::vector<Entry>{forced});

    logcapture::clear();
    clock.now += 2 * kMinuteNs;
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(data.paths.size(), 3u);
    EXPECT_EQ(logcapture::entries(), (std::vector<Entry>{forced, gateWarning(120)}));
}

TEST(StorageStats, FailedStatvfsIsSilentKeepsTheRecordAndSampleLogsIt) {
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
    EXPECT_EQ(stats.availableBytes, 1228800);
    EXPECT_EQ(stats.lastSnapshotNs, kHourNs);

    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(logcapture::entries(),
              std::vector<Entry>({{ANDROID_LOG_ERROR, "Vistrel", "Failed to get updated storage stats"}}));
}

}  // namespace
