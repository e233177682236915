#include "SystemMemoryStats.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <utils/SystemClock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"
#include "hostplatform/Libc.h"
#include "hostplatform/Properties.h"

namespace {

using testing_support::FakeClock;
using testing_support::FixtureTree;
using Vistrel::SystemMemoryStats;
using Vistrel::ZramIdleStats;

constexpr char kZramDir[] = "/sys/devices/virtual/block/zram0/";
constexpr char kControl[] = "/sys/devices/virtual/block/zram0/calculate_idle_pg_stats";

std::vector<float> psi(const SystemMemoryStats& s) {
    return {s.psiSomeAvg10, s.psiSomeAvg60, s.psiSomeAvg300,
            s.psiFullAvg10, s.psiFullAvg60, s.psiFullAvg300};
}

// Boot-clock reads answer the given nanosecond values in turn; a negative value fails with EINVAL.
void scriptBootClock(std::vector<int64_t> answers) {
    hostplatform::setClockGettime([answers, next = size_t{0}](clockid_t clock, timespec* out) mutable {
        EXPECT_EQ(clock, CLOCK_BOOTTIME);
        const int64_t ns = answers.at(next++);
        if (ns < 0) {
            errno = EINVAL;
            return -1;
        }
        out->tv_sec = ns / 1000000000;
        out->tv_nsec = ns % 1000000000;
        return 0;
    });
}

bool allOnes(const ZramIdleStats& z) {
    ZramIdleStats ones;
    memset(&ones, 0xff, sizeof(ones));
    return memcmp(&z, &ones, sizeof(z)) == 0;
}

class SystemMemoryStatsTest : public ::testing::Test {
protected:
    void SetUp() override {
        logcapture::clear();
        hostplatform::clearProperties();
    }
    void TearDown() override { hostplatform::resetLibc(); }

    SystemMemoryStats stats;
    FakeClock clock;
};

TEST_F(SystemMemoryStatsTest, SampleReadsMeminfoPsiUptimeAndDuration) {
    FixtureTree tree("memstorage/device");
    scriptBootClock({INT64_C(7000000000), INT64_C(7250999999)});
    clock.elapsed = INT64_C(123456789012);
    const int64_t uptimeBefore = android::uptimeMillis();
    const auto n = stats.sample(clock);
    const int64_t uptimeAfter = android::uptimeMillis();

    ASSERT_TRUE(n);
    EXPECT_EQ(n->name, "SystemMemoryInfo");
    EXPECT_EQ(n->detail, "Memory snapshot");
    EXPECT_EQ(stats.memAvailableKb, 2103340u);
    EXPECT_EQ(stats.memUsedKb, 5804656u - 2103340u);
    EXPECT_EQ(psi(stats), (std::vector<float>{1.25f, 0.87f, 0.40f, 0.31f, 0.22f, 0.10f}));
    EXPECT_EQ(stats.timestampMs, 123456);
    EXPECT_EQ(stats.readDurationMs, 250);
    EXPECT_GE(stats.uptimeMs, uptimeBefore);
    EXPECT_LE(stats.uptimeMs, uptimeAfter);
    EXPECT_TRUE(stats.sampleValid);
    EXPECT_TRUE(logcapture::entries().empty()) << ::testing::PrintToString(logcapture::texts());
}

TEST_F(SystemMemoryStatsTest, TotalMemoryIsReadOncePerProcess) {
    FixtureTree tree("memstorage/device");
    stats.sample(clock);
    tree.write("/proc/meminfo", "MemTotal: 9000000 kB\nMemAvailable: 1000000 kB\n");
    SystemMemoryStats other;
    other.sample(clock);
    EXPECT_EQ(other.memAvailableKb, 1000000u);
    EXPECT_EQ(other.memUsedKb, 5804656u - 1000000u) << "the first sample's total is kept";
}

TEST_F(SystemMemoryStatsTest, OldKernelWithoutMemAvailableOrPsi) {
    FixtureTree tree("memstorage/legacy");
    const auto n = stats.sample(clock);
    ASSERT_TRUE(n) << "the sample still succeeds";
    EXPECT_EQ(stats.memAvailableKb, 0u);
    EXPECT_EQ(stats.memUsedKb, 5804656u);
    EXPECT_EQ(psi(stats), std::vector<float>(6, -1.0f));
    EXPECT_TRUE(stats.sampleValid);
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel",
                   "Failed to open memory pressure file: No such file or directory"}}));
}

TEST_F(SystemMemoryStatsTest, FailedBootClockReadsLogAtErrorAndCountFromZero) {
    FixtureTree tree("memstorage/device");
    scriptBootClock({-1, INT64_C(5000000000)});
    stats.sample(clock);
    EXPECT_EQ(stats.readDurationMs, 5000) << "the failed start reads as 0";
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{{6, "Vistrel", "error getting time: Invalid argument"}}));

    logcapture::clear();
    scriptBootClock({-1, -1});
    stats.sample(clock);
    EXPECT_EQ(stats.readDurationMs, 0);
    EXPECT_EQ(logcapture::count(6, "Vistrel", "error getting time: Invalid argument"), 2u);
    EXPECT_TRUE(stats.sampleValid);
}

TEST_F(SystemMemoryStatsTest, SnapshotReportsWhetherASampleCompleted) {
    FixtureTree tree("memstorage/device");
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_ERROR, "Vistrel",
                   "SystemMemoryStats snapshot failed because last sample failed"}}));

    logcapture::clear();
    clock.elapsed = INT64_C(3000000000);
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(stats.timestampMs, 3000) << "the forced snapshot sampled";
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_INFO, "Vistrel", "SystemMemoryStats: force sampled in snapshot"}}));

    clock.elapsed = INT64_C(9000000000);
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.timestampMs, 3000) << "a plain snapshot reads nothing";
}

TEST_F(SystemMemoryStatsTest, ZramIdleDisabledWritesNothingAndResetsEveryEntry) {
    FixtureTree tree("memstorage/device");
    memset(&stats.zramIdle, 0, sizeof(stats.zramIdle));
    EXPECT_FALSE(stats.getZramIdleMemStatsEnabled());
    EXPECT_EQ(stats.getZramIdleMemStats(), &stats.zramIdle);
    EXPECT_TRUE(allOnes(stats.zramIdle));
    EXPECT_EQ(tree.read(kControl), "");
    EXPECT_EQ(logcapture::count(ANDROID_LOG_VERBOSE, "Vistrel",
                                "mobile_vistrel_zram_idle_collector returned 0"),
              2u);
}

TEST_F(SystemMemoryStatsTest, ZramIdleEnabledRequestsAndReadsEveryFile) {
    FixtureTree tree("memstorage/device");
    hostplatform::setProperty("mobile_vistrel_zram_idle_collector", "true");
    const ZramIdleStats* z = stats.getZramIdleMemStats();

    EXPECT_EQ(tree.read(kControl), "60 300") << "defaults: 60 s buckets, 300 s idle age";
    const uint32_t firstFifteen[] = {4081, 1203, 977, 640, 512, 388, 301, 255,
                                     190,  150,  120, 98,  80,  66,  51};
    for (int i = 0; i < 15; ++i) EXPECT_EQ(z->idleHistogram[i], firstFifteen[i]) << i;
    EXPECT_EQ(z->idleHistogram[15], 40u + 33u + 20u + 9u + 2u);
    const uint32_t clusters[] = {812, 301, 77, 20, 4, 1, 0, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(z->idleClusterSizes[i], clusters[i]) << i;
    const uint64_t bd[] = {1024, 4096, 52, 7};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(z->simulatedBdStat[i], bd[i]) << i;
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_VERBOSE, "Vistrel", "mobile_vistrel_zram_idle_collector returned 1"},
                  {ANDROID_LOG_VERBOSE, "Vistrel", "zram0 histBucketSz 60 idleSecs 300"}}));

    hostplatform::setProperty("mobile_vistrel_zram_idle_threshold", "3600");
    hostplatform::setProperty("mobile_vistrel_zram_idle_histo_bucket", "120");
    stats.getZramIdleMemStats();
    EXPECT_EQ(tree.read(kControl), "120 3600") << "the control file is rewritten, not appended";
}

TEST_F(SystemMemoryStatsTest, ZramIdleRequestReachesTheKernelOnlyAfterTheReads) {
    // idlehisto made to show the control file: had the request been flushed before the reads,
    // the histogram would read it back.
    FixtureTree tree("memstorage/device");
    tree.remove(std::string(kZramDir) + "idlehisto");
    std::filesystem::create_symlink(tree.at(kControl), tree.at(std::string(kZramDir) + "idlehisto"));
    hostplatform::setProperty("mobile_vistrel_zram_idle_collector", "1");
    stats.getZramIdleMemStats();
    EXPECT_EQ(stats.zramIdle.idleHistogram[0], UINT32_MAX);
    EXPECT_EQ(stats.zramIdle.idleHistogram[1], UINT32_MAX);
    EXPECT_EQ(tree.read(kControl), "60 300");
}

TEST_F(SystemMemoryStatsTest, ZramIdleWithoutTheControlFileLogsAndReadsNothing) {
    FixtureTree tree("memstorage/device");
    tree.remove(kControl);
    hostplatform::setProperty("mobile_vistrel_zram_idle_collector", "true");
    hostplatform::setProperty("mobile_vistrel_zram_idle_threshold", "900");
    stats.getZramIdleMemStats();
    EXPECT_TRUE(allOnes(stats.zramIdle));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{
                  {ANDROID_LOG_VERBOSE, "Vistrel", "mobile_vistrel_zram_idle_collector returned 1"},
                  {ANDROID_LOG_VERBOSE, "Vistrel",
                   std::string("stat failed ") + kControl + ": No such file or directory"},
                  {ANDROID_LOG_VERBOSE, "Vistrel", "zram0 histBucketSz 60 idleSecs 900"},
                  {ANDROID_LOG_ERROR, "Vistrel",
                   std::string("fopen ") + kControl + ": No such file or directory"}}));
}

}  // namespace
