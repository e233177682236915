#include "ProcessMemoryStats.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <algorithm>
#include <filesystem>

#include "FakeClock.h"
#include "LogCapture.h"
#include "TriggerService.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Libc.h"
#include "hostplatform/MemoryFootprint.h"
#include "hostplatform/Properties.h"

namespace {

using logcapture::error;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::FakeClock;
using Vistrel::ProcessMemorySnapshot;
using Vistrel::ProcessMemoryStats;

const std::string kTree = std::string(VISTREL_SOURCE_DIR) + "/tests/data/processmemory";
constexpr const char kMemtrackProperty[] = "mobile_vistrel_memory_extended_collector";

using Report = std::vector<std::string>;  // trigger name, process name, then the annotations

std::vector<Report> recordedReports() {
    const auto utf8 = [](const android::String16& text) {
        return std::string(android::String8(text).string());
    };
    std::vector<Report> reports;
    for (const auto& context : sim::recordedTriggerReports()) {
        Report r{utf8(context.triggerName),
                 context.processName ? utf8(*context.processName) : "<absent>"};
        if (context.annotations) {
            for (const auto& a : *context.annotations) r.push_back(a ? utf8(*a) : "<absent>");
        }
        reports.push_back(r);
    }
    return reports;
}

Report overBudget(const std::string& name, int value, bool withMemtrack, int rssAnonPlusSwap,
                  int memtrack) {
    return {"memory_heartbeat_over_budget:" + name,
            name,
            "threshold_current_value:" + std::to_string(value),
            std::string("includes_memtrack:") + (withMemtrack ? "true" : "false"),
            "rss_anon_plus_swap_kib:" + std::to_string(rssAnonPlusSwap),
            "memtrack_pss_kib:" + std::to_string(memtrack),
            withMemtrack ? "threshold_units:RSS_anon_plus_swap_plus_memtrack_KB"
                         : "threshold_units:RSS_anon_plus_swap_KB"};
}

long openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Fixture tree, 100 ticks per second, the simulated trigger service registered. Every test case
// runs in its own process, so nothing needs undoing; each ends with no descriptor left open.
class ProcessMemoryStatsTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(openDescriptors(), descriptorsBefore); }
    void SetUp() override {
        hostplatform::setFsRoot(kTree);
        hostplatform::setSysconf(
                [](int name) { return name == _SC_CLK_TCK ? 100L : sysconf(name); });
        sim::installTriggerService();
        // Replaces the simulated service's memtrack source, used only with the property on.
        hostplatform::setMemoryFootprintSource(
                [this](pid_t, memory_footprint_data* data, uint32_t what) {
                    requested.push_back(what);
                    data->memtrack_pss_kb = memtrackKb;
                    return 0;
                });
    }
    const ProcessMemorySnapshot& entry(const std::string& key) { return stats.snapshots.at(key); }
    std::vector<uint32_t> memory(const std::string& key) {
        const ProcessMemorySnapshot& s = entry(key);
        return {s.vmRssKb, s.vmLibKb, s.vmSwapKb, s.rssAnonKb};
    }

    const long descriptorsBefore = openDescriptors();
    ProcessMemoryStats stats;
    FakeClock clock;
    int32_t memtrackKb = -5;
    std::vector<uint32_t> requested;  // what each footprint call asked for
};

// One scan of the fixture tree: the notification, each process keyed by argv[0] and its figures.
TEST_F(ProcessMemoryStatsTest, AScanKeysEveryProcessByArgv0WithItsFigures) {
    clock.elapsed = 5123456789;
    EXPECT_EQ(testing_support::textOf(stats.sample(clock)), "ProcessMemoryInfo/Memory snapshot");
    EXPECT_EQ(stats.timestampMs, 5123);
    std::vector<std::string> keys;
    for (const auto& [key, value] : stats.snapshots) keys.push_back(key);
    EXPECT_THAT(keys, ElementsAre("", "/data/app/" + std::string(246, 'x'), "/data/local/my",
                                  "/system/bin/init", "/vendor/bin/badoom",
                                  "/vendor/bin/hw/sensors-service", "/vendor/bin/nostat",
                                  "/vendor/bin/overbudget", "/vendor/bin/underbudget"));

    const ProcessMemorySnapshot& init = entry("/system/bin/init");
    EXPECT_EQ(memory("/system/bin/init"), (std::vector<uint32_t>{3000, 2000, 0, 1500}));
    EXPECT_TRUE(init.timeStatsValid);
    EXPECT_EQ(std::vector<float>({init.startTimeSec, init.userTimeSec, init.systemTimeSec}),
              std::vector<float>({5 / 100.0f, 250 / 100.0f, 130 / 100.0f}));
    EXPECT_EQ(init.memtrackPssKb, -1);
    EXPECT_EQ(init.oomScoreAdj, -1000);

    // Kernel threads, the zombie, the vanished pid and the numeric file share the empty name:
    // only the oom and time steps touch that entry, so its memory figures and memtrack stay zero.
    const ProcessMemorySnapshot& none = entry("");
    EXPECT_EQ(memory(""), std::vector<uint32_t>(4, 0));
    EXPECT_EQ(none.memtrackPssKb, 0);
    EXPECT_EQ(none.oomScoreAdj, 0);
    EXPECT_FLOAT_EQ(none.systemTimeSec, 0.07f);

    // Two processes of one name: the one scanned last (in readdir's order) wins.
    std::vector<std::string> order;
    for (const auto& e : std::filesystem::directory_iterator(kTree + "/proc"))
        order.push_back(e.path().filename());
    const bool laterIs101 = std::find(order.begin(), order.end(), "101") >
                            std::find(order.begin(), order.end(), "100");
    const std::string shared = "/vendor/bin/hw/sensors-service";
    EXPECT_EQ(memory(shared), laterIs101 ? std::vector<uint32_t>({4200, 1200, 22, 2200})
                                         : std::vector<uint32_t>({4100, 1100, 11, 2100}));
    EXPECT_EQ(entry(shared).oomScoreAdj, laterIs101 ? -800 : -900);
    EXPECT_FLOAT_EQ(entry(shared).userTimeSec, laterIs101 ? 6.0f : 3.0f);
}

TEST_F(ProcessMemoryStatsTest, ZeroTickRateFailsTheTimesWithoutALog) {
    hostplatform::setSysconf([](int) { return 0L; });
    ProcessMemorySnapshot untouched;
    EXPECT_FALSE(stats.getProcessTimeStat(1, untouched));
    EXPECT_FALSE(untouched.timeStatsValid);
    EXPECT_THAT(logcapture::entries(), IsEmpty());
}

TEST_F(ProcessMemoryStatsTest, PerProcessFailuresAreLoggedWithThePid) {
    // 500: unreadable oom_score_adj, 510: empty stat, 600: vanished after the listing, 700: a file.
    ASSERT_TRUE(stats.sample(clock));
    std::vector<logcapture::Entry> expected = {
            error("ProcessMemoryStats failed to read oom_score_adj"),
            error("ProcessMemoryStats fail to get oom_score_adj for pid 500."),
            error("ProcessMemoryStats fail to read stats"),
            error("ProcessMemoryStats fail to get process time stats for pid 510.")};
    for (const std::string pid : {"600", "700"}) {
        expected.push_back(error("ProcessMemoryStats fail to open /proc/" + pid + "/oom_score_adj"));
        expected.push_back(
                error("ProcessMemoryStats fail to get oom_score_adj for pid " + pid + "."));
        expected.push_back(error("ProcessMemoryStats fail to read stats"));
        expected.push_back(
                error("ProcessMemoryStats fail to get process time stats for pid " + pid + "."));
    }
    EXPECT_THAT(logcapture::entries(), testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ(entry("/vendor/bin/badoom").oomScoreAdj, 9999) << "not read";
    EXPECT_TRUE(entry("/vendor/bin/badoom").timeStatsValid);
    EXPECT_FALSE(entry("/vendor/bin/nostat").timeStatsValid);
}

TEST_F(ProcessMemoryStatsTest, MissingTriggerServiceIsLogged) {
    sim::removeTriggerService();
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(logcapture::count(
                      ANDROID_LOG_ERROR, "Vistrel",
                      "Error while getting the service proxy: -2 , triggerService is null!"),
              1u);
}

TEST_F(ProcessMemoryStatsTest, MemtrackIsReadOnlyWhenThePropertyIsTrueAndCountsOnlyWhenPositive) {
    for (const char* value : {"false", "0", "bogus"}) {
        hostplatform::setProperty(kMemtrackProperty, value);
        ASSERT_TRUE(stats.sample(clock));
        EXPECT_EQ(entry("/system/bin/init").memtrackPssKb, -1) << value;
    }
    EXPECT_THAT(requested, IsEmpty());
    hostplatform::setProperty(kMemtrackProperty, "true");
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(entry("/vendor/bin/underbudget").memtrackPssKb, -5);
    EXPECT_EQ(entry("").memtrackPssKb, 0) << "no footprint for processes without memory";
    EXPECT_EQ(requested, std::vector<uint32_t>(9, MEMORY_FOOTPRINT_MEMTRACK))
            << "one per process with memory";
    const auto reports = recordedReports();
    ASSERT_EQ(reports.size(), 4u) << "one a scan: overbudget's 10240 KiB, not underbudget's 10239";
    EXPECT_EQ(reports.back(), overBudget("/vendor/bin/overbudget", 10240, false, 10240, -5))
            << "a negative memtrack is not included";

    memtrackKb = 1;
    ASSERT_TRUE(stats.sample(clock));
    const auto later = recordedReports();
    EXPECT_THAT(std::vector<Report>(later.begin() + 4, later.end()),
                testing::UnorderedElementsAre(
                        overBudget("/vendor/bin/overbudget", 10241, true, 10240, 1),
                        overBudget("/vendor/bin/underbudget", 10240, true, 10239, 1)));
}

TEST_F(ProcessMemoryStatsTest, ReportSumWrapsAs32BitAndAZeroMemtrackIsIncluded) {
    std::string name = "/x";
    stats.reportToTarnet(name, INT32_MAX, INT32_MAX);  // wraps to -2: not reported
    stats.reportToTarnet(name, 10239, 0);
    stats.reportToTarnet(name, 0, 10240);
    EXPECT_THAT(recordedReports(), ElementsAre(overBudget("/x", 10240, true, 0, 10240)));
}

TEST_F(ProcessMemoryStatsTest, SnapshotBeforeAnyScanFailsAndAForcedOneScans) {
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_THAT(
            logcapture::entries(),
            ElementsAre(error("ProcessMemoryStats snapshot failed because last sample failed")));
    clock.elapsed = 7000000000;
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(stats.timestampMs, 7000);
    EXPECT_EQ(logcapture::count(ANDROID_LOG_INFO, "Vistrel",
                                "ProcessMemoryStats: force sampled in snapshot"),
              1u);
}

TEST_F(ProcessMemoryStatsTest, UnopenableProcFailsTheSnapshot) {
    ASSERT_TRUE(stats.sample(clock));
    const size_t before = stats.snapshots.size();
    hostplatform::setFsRoot(kTree + "/missing");
    logcapture::clear();
    EXPECT_EQ(stats.sample(clock), std::nullopt);
    EXPECT_THAT(logcapture::entries(), ElementsAre(error("Cannot open /proc")));
    EXPECT_EQ(stats.snapshots.size(), before);
    EXPECT_FALSE(stats.snapshot(clock, false));
}

}  // namespace
