#include "ProcessMemoryStats.h"

#include <android/log.h>
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <utils/String8.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "FakeClock.h"
#include "LogCapture.h"
#include "TriggerService.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Libc.h"
#include "hostplatform/MemoryFootprint.h"
#include "hostplatform/Properties.h"
#include "hostplatform/ServiceRegistry.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;
using testing_support::FakeClock;
using vendor::norvik::tarnet::ITrigger;
using Vistrel::ProcessMemorySnapshot;
using Vistrel::ProcessMemoryStats;

const std::string kTree = std::string(VISTREL_SOURCE_DIR) + "/tests/data/processmemory";
constexpr const char kMemtrackProperty[] = "mobile_vistrel_memory_extended_collector";

std::string utf8(const android::String16& text) { return android::String8(text).string(); }

// A report as plain strings: trigger name, process name, timestamp, then the annotations.
struct Report {
    std::string trigger;
    std::string process;
    int64_t timestampMs;
    std::vector<std::string> annotations;
    bool operator==(const Report& o) const {
        return std::tie(trigger, process, timestampMs, annotations) ==
               std::tie(o.trigger, o.process, o.timestampMs, o.annotations);
    }
};

void PrintTo(const Report& r, std::ostream* os) {
    *os << r.trigger << " / " << r.process << " / " << r.timestampMs << " /";
    for (const auto& a : r.annotations) *os << " " << a;
}

std::vector<Report> recordedReports() {
    std::vector<Report> reports;
    for (const auto& context : sim::recordedTriggerReports()) {
        Report r{utf8(context.triggerName), "<absent>", context.timestampMs, {}};
        if (context.processName) r.process = utf8(*context.processName);
        if (context.annotations) {
            for (const auto& a : *context.annotations) r.annotations.push_back(a ? utf8(*a) : "<absent>");
        } else {
            r.annotations.push_back("<no list>");
        }
        reports.push_back(r);
    }
    return reports;
}

Report overBudget(const std::string& name, int value, bool withMemtrack, int rssAnonPlusSwap,
                  int memtrack) {
    return Report{"memory_heartbeat_over_budget:" + name, name, 0,
                  {"threshold_current_value:" + std::to_string(value),
                   std::string("includes_memtrack:") + (withMemtrack ? "true" : "false"),
                   "rss_anon_plus_swap_kib:" + std::to_string(rssAnonPlusSwap),
                   "memtrack_pss_kib:" + std::to_string(memtrack),
                   withMemtrack ? "threshold_units:RSS_anon_plus_swap_plus_memtrack_KB"
                                : "threshold_units:RSS_anon_plus_swap_KB"}};
}

// Numeric entries of the fixture's /proc in the order readdir yields them (the scan order).
std::vector<std::string> fixtureScanOrder() {
    std::vector<std::string> names;
    DIR* dir = opendir((kTree + "/proc").c_str());
    while (const dirent* e = readdir(dir)) {
        if (std::all_of(e->d_name, e->d_name + strlen(e->d_name), ::isdigit)) names.push_back(e->d_name);
    }
    closedir(dir);
    return names;
}

std::vector<logcapture::Entry> errors(std::initializer_list<const char*> texts) {
    std::vector<logcapture::Entry> entries;
    for (const char* t : texts) entries.push_back({ANDROID_LOG_ERROR, "Vistrel", t});
    return entries;
}

// Fixture tree, 100 ticks per second, the simulated trigger service registered.
class ProcessMemoryStatsTest : public testing::Test {
protected:
    void SetUp() override {
        hostplatform::setFsRoot(kTree);
        hostplatform::setSysconf([](int name) { return name == _SC_CLK_TCK ? 100L : sysconf(name); });
        sim::installTriggerService();
        logcapture::clear();
    }
    void TearDown() override {
        sim::removeTriggerService();
        hostplatform::resetLibc();
        hostplatform::setFsRoot("");
    }

    const ProcessMemorySnapshot& entry(const std::string& key) {
        const auto it = stats.snapshots.find(key);
        EXPECT_NE(it, stats.snapshots.end()) << key;
        return it == stats.snapshots.end() ? missing : it->second;
    }

    ProcessMemoryStats stats;
    FakeClock clock;
    ProcessMemorySnapshot missing;
};

TEST_F(ProcessMemoryStatsTest, ContractAnswers) {
    EXPECT_STREQ(stats.name(), "ProcessMemoryStats");
    EXPECT_EQ(stats.sampleRate(), std::chrono::milliseconds(900000));
}

TEST_F(ProcessMemoryStatsTest, ScanKeysEveryProcessByArgv0) {
    clock.elapsed = 5123456789;
    const auto notification = stats.sample(clock);
    ASSERT_TRUE(notification);
    EXPECT_EQ(notification->name, "ProcessMemoryInfo");
    EXPECT_EQ(notification->detail, "Memory snapshot");
    EXPECT_TRUE(stats.sampleValid);
    EXPECT_EQ(stats.timestampMs, 5123);

    std::vector<std::string> keys;
    for (const auto& [key, value] : stats.snapshots) keys.push_back(key);
    EXPECT_THAT(keys, ElementsAre("", "/data/app/" + std::string(246, 'x'), "/data/local/my",
                                  "/system/bin/init", "/vendor/bin/badoom",
                                  "/vendor/bin/hw/sensors-service", "/vendor/bin/nostat",
                                  "/vendor/bin/overbudget", "/vendor/bin/underbudget"));

    const ProcessMemorySnapshot& init = entry("/system/bin/init");
    EXPECT_EQ(init.vmRssKb, 3000u);
    EXPECT_EQ(init.vmLibKb, 2000u);
    EXPECT_EQ(init.vmSwapKb, 0u);
    EXPECT_EQ(init.rssAnonKb, 1500u);
    EXPECT_TRUE(init.timeStatsValid);
    EXPECT_FLOAT_EQ(init.startTimeSec, 0.05f);
    EXPECT_FLOAT_EQ(init.userTimeSec, 2.5f);
    EXPECT_FLOAT_EQ(init.systemTimeSec, 1.3f);
    EXPECT_EQ(init.memtrackPssKb, -1);
    EXPECT_EQ(init.oomScoreAdj, -1000);
}

TEST_F(ProcessMemoryStatsTest, ProcessesSharingArgv0LeaveTheLastScanned) {
    const auto order = fixtureScanOrder();
    const auto at = [&](const char* pid) { return std::find(order.begin(), order.end(), pid); };
    const bool laterIs101 = at("101") > at("100");
    ASSERT_TRUE(stats.sample(clock));
    const ProcessMemorySnapshot& shared = entry("/vendor/bin/hw/sensors-service");
    EXPECT_EQ(shared.vmRssKb, laterIs101 ? 4200u : 4100u);
    EXPECT_EQ(shared.vmLibKb, laterIs101 ? 1200u : 1100u);
    EXPECT_EQ(shared.vmSwapKb, laterIs101 ? 22u : 11u);
    EXPECT_EQ(shared.rssAnonKb, laterIs101 ? 2200u : 2100u);
    EXPECT_EQ(shared.oomScoreAdj, laterIs101 ? -800 : -900);
    EXPECT_FLOAT_EQ(shared.userTimeSec, laterIs101 ? 6.0f : 3.0f);
}

TEST_F(ProcessMemoryStatsTest, ProcessesWithoutCommandLineShareTheEmptyKeyWithZeroMemory) {
    ASSERT_TRUE(stats.sample(clock));
    // Kernel threads, the zombie, the vanished pid and the numeric file: only the oom/time
    // steps touch this entry, so its memory figures and memtrack stay zero.
    const ProcessMemorySnapshot& none = entry("");
    EXPECT_EQ(none.vmRssKb, 0u);
    EXPECT_EQ(none.vmLibKb, 0u);
    EXPECT_EQ(none.vmSwapKb, 0u);
    EXPECT_EQ(none.rssAnonKb, 0u);
    EXPECT_EQ(none.memtrackPssKb, 0);
    EXPECT_EQ(none.oomScoreAdj, 0);
    EXPECT_TRUE(none.timeStatsValid);
    EXPECT_FLOAT_EQ(none.systemTimeSec, 0.07f);
}

TEST_F(ProcessMemoryStatsTest, CommandNamesAreArgv0WithinTheFirst256Bytes) {
    EXPECT_EQ(stats.getProcessName(1), "/system/bin/init");
    EXPECT_EQ(stats.getProcessName(300), "/data/local/my") << "cut at the first blank";
    EXPECT_EQ(stats.getProcessName(900), "/data/app/" + std::string(246, 'x'));
    EXPECT_EQ(stats.getProcessName(2).value_or(""), "");
    EXPECT_EQ(stats.getProcessName(600), std::nullopt);
    EXPECT_EQ(stats.getProcessName(700), std::nullopt);
}

TEST_F(ProcessMemoryStatsTest, TimeFieldsAreCountedFromTheWordAfterTheCommandUncompensated) {
    ProcessMemorySnapshot s;
    ASSERT_TRUE(stats.getProcessTimeStat(300, s));
    // "(my (odd) proc)" splits into three words, so fields 14, 15 and 22 land on the kernel's
    // majflt (17), cmajflt (29) and num_threads (4).
    EXPECT_TRUE(s.timeStatsValid);
    EXPECT_FLOAT_EQ(s.userTimeSec, 0.17f);
    EXPECT_FLOAT_EQ(s.systemTimeSec, 0.29f);
    EXPECT_FLOAT_EQ(s.startTimeSec, 0.04f);

    hostplatform::setSysconf([](int) { return 0L; });
    ProcessMemorySnapshot untouched;
    EXPECT_FALSE(stats.getProcessTimeStat(1, untouched));
    EXPECT_FALSE(untouched.timeStatsValid);
    EXPECT_THAT(logcapture::entries(), IsEmpty()) << "a zero tick rate is not logged here";
}

TEST_F(ProcessMemoryStatsTest, PerProcessFailuresAreLoggedWithThePid) {
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_THAT(logcapture::entries(),
                UnorderedElementsAreArray(errors({
                    "ProcessMemoryStats failed to read oom_score_adj",
                    "ProcessMemoryStats fail to get oom_score_adj for pid 500.",
                    "ProcessMemoryStats fail to read stats",
                    "ProcessMemoryStats fail to get process time stats for pid 510.",
                    "ProcessMemoryStats fail to open /proc/600/oom_score_adj",
                    "ProcessMemoryStats fail to get oom_score_adj for pid 600.",
                    "ProcessMemoryStats fail to read stats",
                    "ProcessMemoryStats fail to get process time stats for pid 600.",
                    "ProcessMemoryStats fail to open /proc/700/oom_score_adj",
                    "ProcessMemoryStats fail to get oom_score_adj for pid 700.",
                    "ProcessMemoryStats fail to read stats",
                    "ProcessMemoryStats fail to get process time stats for pid 700.",
                })));
    EXPECT_EQ(entry("/vendor/bin/badoom").oomScoreAdj, 9999) << "not read";
    EXPECT_TRUE(entry("/vendor/bin/badoom").timeStatsValid);
    EXPECT_FALSE(entry("/vendor/bin/nostat").timeStatsValid);
    EXPECT_EQ(entry("/vendor/bin/nostat").oomScoreAdj, 0);
}

TEST_F(ProcessMemoryStatsTest, ThresholdIsReachedAtExactly10240KibWithoutMemtrack) {
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_THAT(recordedReports(), ElementsAre(overBudget("/vendor/bin/overbudget", 10240, false, 10240, -1)));
    EXPECT_EQ(entry("/vendor/bin/underbudget").memtrackPssKb, -1);

    // Every scan reports again.
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(recordedReports().size(), 2u);
}

TEST_F(ProcessMemoryStatsTest, MemtrackFigureCountsOnlyWhenPositive) {
    hostplatform::setProperty(kMemtrackProperty, "true");
    std::vector<uint32_t> requested;
    int32_t figure = -5;
    hostplatform::setMemoryFootprintSource([&](pid_t, memory_footprint_data* data, uint32_t what) {
        requested.push_back(what);
        data->memtrack_pss_kb = figure;
        return 0;
    });
    ASSERT_TRUE(stats.sample(clock));
    // A negative figure adds nothing and is sent as "not included".
    EXPECT_THAT(recordedReports(), ElementsAre(overBudget("/vendor/bin/overbudget", 10240, false, 10240, -5)));
    EXPECT_EQ(entry("/vendor/bin/underbudget").memtrackPssKb, -5);
    EXPECT_EQ(entry("").memtrackPssKb, 0) << "no footprint for processes without memory";
    EXPECT_EQ(requested.size(), 9u) << "one call per process with memory figures";
    EXPECT_THAT(requested, testing::Each(4u));

    figure = 1;
    sim::removeTriggerService();
    sim::installTriggerService();
    hostplatform::setMemoryFootprintSource([&](pid_t, memory_footprint_data* data, uint32_t) {
        data->memtrack_pss_kb = figure;
        return 0;
    });
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_THAT(recordedReports(),
                UnorderedElementsAreArray({overBudget("/vendor/bin/overbudget", 10241, true, 10240, 1),
                                           overBudget("/vendor/bin/underbudget", 10240, true, 10239, 1)}));
}

TEST_F(ProcessMemoryStatsTest, MemtrackNeedsThePropertySetAndTrue) {
    int calls = 0;
    hostplatform::setMemoryFootprintSource([&](pid_t, memory_footprint_data*, uint32_t) { return ++calls, 0; });
    for (const char* value : {"false", "0", "bogus"}) {
        hostplatform::setProperty(kMemtrackProperty, value);
        ASSERT_TRUE(stats.sample(clock));
        EXPECT_EQ(entry("/system/bin/init").memtrackPssKb, -1) << value;
    }
    EXPECT_EQ(calls, 0);
    hostplatform::setProperty(kMemtrackProperty, "1");
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(entry("/system/bin/init").memtrackPssKb, 0) << "zeroed data, untouched by the source";
    EXPECT_EQ(calls, 9);
}

TEST_F(ProcessMemoryStatsTest, MissingTriggerServiceIsLoggedAndTheReportDropped) {
    sim::removeTriggerService();
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(logcapture::count(ANDROID_LOG_ERROR, "Vistrel",
                                "Error while getting the service proxy: -2 , triggerService is null!"),
              1u);
    EXPECT_TRUE(stats.sampleValid);
}

TEST_F(ProcessMemoryStatsTest, ReportSumsWrapAs32BitWithoutOverflowing) {
    std::string name = "/x";
    stats.reportToTarnet(name, INT32_MAX, INT32_MAX);  // wraps to -2: not reported
    stats.reportToTarnet(name, 10239, 0);
    EXPECT_THAT(recordedReports(), IsEmpty());
    stats.reportToTarnet(name, 0, 10240);
    EXPECT_THAT(recordedReports(), ElementsAre(overBudget("/x", 10240, true, 0, 10240)));
}

TEST_F(ProcessMemoryStatsTest, SnapshotReportsWhetherTheLastScanCompleted) {
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_THAT(logcapture::entries(),
                ElementsAre(logcapture::Entry{ANDROID_LOG_ERROR, "Vistrel",
                                              "ProcessMemoryStats snapshot failed because last sample failed"}));

    logcapture::clear();
    clock.elapsed = 7000000000;
    EXPECT_TRUE(stats.snapshot(clock, true));
    EXPECT_EQ(stats.timestampMs, 7000) << "forced snapshot samples";
    EXPECT_EQ(logcapture::count(ANDROID_LOG_INFO, "Vistrel", "ProcessMemoryStats: force sampled in snapshot"), 1u);

    logcapture::clear();
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_THAT(logcapture::entries(), IsEmpty());
}

TEST_F(ProcessMemoryStatsTest, UnopenableProcKeepsTheOldMapButInvalidatesTheSample) {
    ASSERT_TRUE(stats.sample(clock));
    const size_t before = stats.snapshots.size();
    hostplatform::setFsRoot(kTree + "/missing");
    logcapture::clear();
    EXPECT_EQ(stats.sample(clock), std::nullopt);
    EXPECT_THAT(logcapture::entries(), ElementsAre(logcapture::Entry{ANDROID_LOG_ERROR, "Vistrel", "Cannot open /proc"}));
    EXPECT_FALSE(stats.sampleValid);
    EXPECT_EQ(stats.snapshots.size(), before);
    EXPECT_FALSE(stats.snapshot(clock, false));
}

TEST_F(ProcessMemoryStatsTest, FailingBootClockIsLoggedDirectlyAndCountsAsZero) {
    hostplatform::setClockGettime([](clockid_t clockId, timespec* out) {
        if (clockId != CLOCK_BOOTTIME) return clock_gettime(clockId, out);
        errno = EINVAL;
        return -1;
    });
    ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(logcapture::count(ANDROID_LOG_ERROR, "Vistrel", std::string("error getting time: ") + strerror(EINVAL)), 2u);
    EXPECT_EQ(stats.sampleDurationMs, 0u);
}

TEST_F(ProcessMemoryStatsTest, RepeatedSamplesLeaveNoDescriptorBehind) {
    const auto openDescriptors = [] {
        int count = 0;
        DIR* fds = opendir("/proc/self/fd");
        while (readdir(fds) != nullptr) ++count;
        closedir(fds);
        return count;
    };
    const int before = openDescriptors();
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(stats.sample(clock));
    EXPECT_EQ(openDescriptors(), before);
}

// Against the real /proc: a process that exits after the listing but before its turn.
TEST(ProcessMemoryStatsLiveTest, ProcessExitingMidScanIsLoggedAndSkipped) {
    const char* argv[] = {"vistrel-vanishing-child", "60", nullptr};
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, "/bin/sleep", nullptr, nullptr, const_cast<char**>(argv), environ), 0);
    // Wait until the child runs sleep under its own command line.
    ProcessMemoryStats stats;
    for (int i = 0; i < 1000 && stats.getProcessName(child) != "vistrel-vanishing-child"; ++i) usleep(1000);
    ASSERT_EQ(stats.getProcessName(child), "vistrel-vanishing-child");

    hostplatform::setProperty(kMemtrackProperty, "true");
    bool ended = false;
    // The first footprint request comes after the listing: end and reap the child there, unless
    // the child itself is being measured (then it is not yet its turn to vanish).
    hostplatform::setMemoryFootprintSource([&](pid_t pid, memory_footprint_data*, uint32_t) {
        if (!ended && pid != child) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            ended = true;
        }
        return 0;
    });
    logcapture::clear();
    FakeClock clock;
    ASSERT_TRUE(stats.sample(clock));
    if (!ended) kill(child, SIGKILL), waitpid(child, nullptr, 0);
    ASSERT_TRUE(ended);

    const std::string pid = std::to_string(child);
    EXPECT_EQ(stats.snapshots.count("vistrel-vanishing-child"), 0u);
    EXPECT_EQ(logcapture::count(ANDROID_LOG_ERROR, "Vistrel", "ProcessMemoryStats fail to open /proc/" + pid + "/oom_score_adj"), 1u);
    EXPECT_EQ(logcapture::count(ANDROID_LOG_ERROR, "Vistrel", "ProcessMemoryStats fail to get oom_score_adj for pid " + pid + "."), 1u);
    EXPECT_EQ(logcapture::count(ANDROID_LOG_ERROR, "Vistrel", "ProcessMemoryStats fail to get process time stats for pid " + pid + "."), 1u);
    EXPECT_TRUE(stats.snapshots.count("")) << "its entry falls to the empty name";
}

}  // namespace
