#include "SystemMemoryStats.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/SystemClock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "FakeClock.h"
#include "FixtureTree.h"
#include "LogCapture.h"
#include "hostplatform/Libc.h"
#include "hostplatform/Properties.h"

namespace {

using logcapture::Entry;
using logcapture::error;
using logcapture::verbose;
using Entries = std::vector<Entry>;
using testing::ElementsAre;
using testing_support::FakeClock;
using testing_support::FixtureTree;
using Vistrel::SystemMemoryStats;

const std::string kZram = "/sys/devices/virtual/block/zram0/";
const std::string kControl = kZram + "calculate_idle_pg_stats";
constexpr char kCollector[] = "mobile_vistrel_zram_idle_collector";
const Entry kEnabled = verbose("mobile_vistrel_zram_idle_collector returned 1");

std::vector<float> psi(const SystemMemoryStats& s) {
    return {s.psiSomeAvg10, s.psiSomeAvg60, s.psiSomeAvg300,
            s.psiFullAvg10, s.psiFullAvg60, s.psiFullAvg300};
}

template <typename T>
bool allOnes(const T& o) {
    return std::all_of((const uint8_t*)&o, (const uint8_t*)(&o + 1),
                       [](uint8_t b) { return b == 0xff; });
}

// Boot-clock reads answer the given nanosecond values in turn; a negative value fails with EINVAL.
void scriptBootClock(std::vector<int64_t> answers) {
    hostplatform::setClockGettime(
            [answers, next = size_t{0}](clockid_t clock, timespec* out) mutable {
                EXPECT_EQ(clock, CLOCK_BOOTTIME);
                const int64_t ns = answers.at(next++);
                if (ns < 0) return errno = EINVAL, -1;
                *out = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
                return 0;
            });
}

// On the device tree. Every test case runs in its own process, so properties and seams start
// unset.
struct SystemMemoryStatsTest : ::testing::Test {
    FixtureTree tree{"memstorage/device"};
    SystemMemoryStats stats;
    FakeClock clock;
};

TEST_F(SystemMemoryStatsTest, SampleFillsTheRecord) {
    scriptBootClock({INT64_C(7000000000), INT64_C(7250999999)});
    clock.elapsed = INT64_C(123456789012);
    const int64_t uptimeBefore = android::uptimeMillis();
    EXPECT_EQ(testing_support::textOf(stats.sample(clock)), "SystemMemoryInfo/Memory snapshot");
    EXPECT_EQ(stats.memAvailableKb, 2103340u);
    EXPECT_EQ(stats.memUsedKb, 5804656u - 2103340u);
    EXPECT_EQ(psi(stats), (std::vector<float>{1.25f, 0.87f, 0.40f, 0.31f, 0.22f, 0.10f}));
    EXPECT_EQ(stats.timestampMs, 123456);
    EXPECT_EQ(stats.readDurationMs, 250);
    EXPECT_GE(stats.uptimeMs, uptimeBefore);
    EXPECT_LE(stats.uptimeMs, android::uptimeMillis());
    EXPECT_EQ(logcapture::entries(), Entries{});
}

TEST_F(SystemMemoryStatsTest, TotalIsReadOncePerProcess) {
    stats.sample(clock);
    tree.write("/proc/meminfo", "MemTotal: 9000000 kB\nMemAvailable: 1000000 kB\n");
    SystemMemoryStats other;
    other.sample(clock);
    EXPECT_EQ(other.memUsedKb, 5804656u - 1000000u);
}

TEST_F(SystemMemoryStatsTest, OldKernelWithoutMemAvailableOrPsi) {
    FixtureTree legacy("memstorage/legacy");
    ASSERT_TRUE(stats.sample(clock)) << "the sample still succeeds";
    EXPECT_EQ(stats.memAvailableKb, 0u);
    EXPECT_EQ(stats.memUsedKb, 5804656u);
    EXPECT_EQ(psi(stats), std::vector<float>(6, -1.0f));
    EXPECT_EQ(logcapture::entries(),
              Entries{error("Failed to open memory pressure file: No such file or directory")});
}

TEST_F(SystemMemoryStatsTest, FailedBootClockReadCountsFromZero) {
    scriptBootClock({-1, INT64_C(5000000000), -1, -1});
    stats.sample(clock);
    EXPECT_EQ(stats.readDurationMs, 5000) << "the failed start reads as 0";
    EXPECT_EQ(logcapture::entries(), Entries{error("error getting time: Invalid argument")});
    stats.sample(clock);
    EXPECT_EQ(stats.readDurationMs, 0);
    EXPECT_EQ(
            logcapture::count(ANDROID_LOG_ERROR, "Vistrel", "error getting time: Invalid argument"),
            3u);
}

TEST_F(SystemMemoryStatsTest, SnapshotsReportTheLastSampleOrForceOne) {
    EXPECT_FALSE(stats.snapshot(clock, false));
    clock.elapsed = INT64_C(3000000000);
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(stats.timestampMs, 3000);
    EXPECT_EQ(logcapture::entries(),
              (Entries{error("SystemMemoryStats snapshot failed because last sample failed"),
                       logcapture::info("SystemMemoryStats: force sampled in snapshot")}));
    clock.elapsed = INT64_C(9000000000);
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.timestampMs, 3000) << "a plain snapshot reads nothing";
}

TEST_F(SystemMemoryStatsTest, ZramIdleDisabledOnlyResetsTheEntries) {
    memset(&stats.zramIdle, 0, sizeof(stats.zramIdle));
    EXPECT_EQ(stats.getZramIdleMemStats(), &stats.zramIdle);
    EXPECT_TRUE(allOnes(stats.zramIdle));
    EXPECT_EQ(tree.read(kControl), "");
    EXPECT_EQ(logcapture::entries(),
              Entries{verbose("mobile_vistrel_zram_idle_collector returned 0")});
}

TEST_F(SystemMemoryStatsTest, ZramIdleRequestsWithThePropertiesAndReadsEveryFile) {
    hostplatform::setProperty(kCollector, "true");
    const Vistrel::ZramIdleStats* z = stats.getZramIdleMemStats();
    EXPECT_EQ(tree.read(kControl), "60 300") << "60 s buckets, 300 s idle age";
    EXPECT_THAT(z->idleHistogram, ElementsAre(4081, 1203, 977, 640, 512, 388, 301, 255, 190, 150,
                                              120, 98, 80, 66, 51, 40 + 33 + 20 + 9 + 2));
    EXPECT_THAT(z->idleClusterSizes, ElementsAre(812, 301, 77, 20, 4, 1, 0, 0));
    EXPECT_THAT(z->simulatedBdStat, ElementsAre(1024, 4096, 52, 7));
    EXPECT_EQ(logcapture::entries(),
              (Entries{kEnabled, verbose("zram0 histBucketSz 60 idleSecs 300")}));

    hostplatform::setProperty("mobile_vistrel_zram_idle_threshold", "3600");
    hostplatform::setProperty("mobile_vistrel_zram_idle_histo_bucket", "120");
    stats.getZramIdleMemStats();
    stats.getZramIdleMemStats();
    EXPECT_EQ(tree.read(kControl), "120 3600") << "the properties, written anew";
}

TEST_F(SystemMemoryStatsTest, ZramIdleRequestReachesTheKernelAfterTheReads) {
    // An idlehisto that shows the control file reads it still empty.
    hostplatform::setProperty(kCollector, "true");
    tree.remove(kZram + "idlehisto");
    std::filesystem::create_symlink(tree.at(kControl), tree.at(kZram + "idlehisto"));
    EXPECT_TRUE(allOnes(stats.getZramIdleMemStats()->idleHistogram));
    EXPECT_EQ(tree.read(kControl), "60 300");
}

TEST_F(SystemMemoryStatsTest, ZramIdleMissingOrUnwritableControlFileStopsIt) {
    const Entry kRequest = verbose("zram0 histBucketSz 60 idleSecs 300");
    hostplatform::setProperty(kCollector, "true");
    for (const bool missing : {true, false}) {
        tree.remove(kControl);
        // A directory in its place: stat succeeds, fopen "w" fails.
        if (!missing) std::filesystem::create_directory(tree.at(kControl));
        logcapture::clear();
        EXPECT_TRUE(allOnes(*stats.getZramIdleMemStats()));
        EXPECT_EQ(logcapture::entries(),
                  missing ? (Entries{kEnabled,
                                     verbose("stat failed " + kControl +
                                             ": No such file or directory"),
                                     kRequest,
                                     error("fopen " + kControl + ": No such file or directory")})
                          : (Entries{kEnabled, kRequest,
                                     error("fopen " + kControl + ": Is a directory")}));
    }
}

TEST_F(SystemMemoryStatsTest, ZramIdleMissingReadFileLogsItsOwnLine) {
    const std::pair<std::string, std::string> cases[] = {
            {"idle_cluster_sz", "fopen " + kZram + "idle_cluster_sz: No such file or directory"},
            {"simulated_bd_stat",
             "Failed to open " + kZram + "simulated_bd_stat : No such file or directory"},
            {"idlehisto", "Failed to open " + kZram + "idlehisto : No such file or directory"},
    };
    hostplatform::setProperty(kCollector, "true");
    for (const auto& [file, line] : cases) {
        FixtureTree fresh("memstorage/device");
        fresh.remove(kZram + file);
        logcapture::clear();
        const Vistrel::ZramIdleStats* z = stats.getZramIdleMemStats();
        EXPECT_EQ(logcapture::entries(),
                  (Entries{kEnabled, verbose("zram0 histBucketSz 60 idleSecs 300"), error(line)}));
        EXPECT_EQ(allOnes(z->idleClusterSizes), file == "idle_cluster_sz") << file;
        EXPECT_EQ(allOnes(z->simulatedBdStat), file == "simulated_bd_stat") << file;
        EXPECT_EQ(allOnes(z->idleHistogram), file == "idlehisto") << file;
    }
}

}  // namespace
