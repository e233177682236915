// Runs the reference host binary against the simulated headset and checks its timeline.
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FixtureTree.h"
#include "HostRun.h"
#include "Occurrences.h"
#include "Options.h"

namespace {

using nlohmann::json;
constexpr int64_t kMinuteNs = INT64_C(60000000000);
const std::string kData = std::string(VISTREL_SOURCE_DIR) + "/tests/data/";

using testing_support::FixtureTree;
using testing_support::HostRun;
using testing_support::occurrences;
using testing_support::runHost;

// In the readable timeline (the default), a batch every hour, each sampled at minutes 1..60 of
// its hour: on for 1..39, off for 40..59, on again at 60.
TEST(HostEndToEnd, DonStateBatchesArriveOnTheirCadence) {
    const HostRun run =
            runHost("--simulate 3h --providers SystemStateStats --don-states 60 --don-period 1m "
                    "--interactive '40m on, 20m off'");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(occurrences(run.output, "notification  name=SystemStateStats"), 3u);
    for (const auto& [at, startMs] :
         {std::pair{"1:00:00", "60000"}, {"2:00:00", "3660000"}, {"3:00:00", "7260000"}}) {
        EXPECT_THAT(run.output,
                    ::testing::ContainsRegex(std::string(at) +
                                             ".000  SystemStateStats +notification  "
                                             "name=SystemStateStats detail=AggregatedDonStates\n"))
                << at;
        EXPECT_EQ(occurrences(run.output, std::string("fetch         eventStartMs=") + startMs +
                                                  " donStates=[0xffffffff, 0x800007f]\n"),
                  1u)
                << at;
    }
}

TEST(HostEndToEnd, BatteryRunShowsEveryEventKind) {
    const HostRun run = runHost("--json --providers BatteryStats,BatteryStatsStates");
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, int> seen;  // by kind of line and notification name, source or log text
    for (const auto& line : run.lines) {
        const json& what = line.contains("name")   ? line["name"]
                           : line.contains("text") ? line["text"]
                                                   : line["source"];
        ++seen[line["event"].get<std::string>() + " " + what.get<std::string>()];
    }
    EXPECT_GT(seen["notification HealthInfo"], 0);
    EXPECT_EQ(seen["notification BatteryFull"], 2);
    EXPECT_GE(seen["notification BatteryLow"], 1);
    EXPECT_EQ(seen["host-event PowerConnected"], 2);
    EXPECT_EQ(seen["host-event PowerDisconnected"], 2);
    EXPECT_EQ(seen["log BatteryStatsStates::chargeStartEvent()"], 2);
    EXPECT_EQ(seen["log BatteryStatsStates::chargeEndEvent()"], 2);
    EXPECT_EQ(seen["log BatteryStatsStates::batteryFullEvent()"], 2);
    EXPECT_EQ(seen["log BatteryStatsStates::shutdownEvent()"], seen["notification BatteryLow"]);
    EXPECT_GT(seen["log BatteryStatsStates::activeStartEvent()"], 0);
    EXPECT_GT(seen["log BatteryStatsStates::activeEndEvent()"], 0);
}

// The usage error that parsing `arguments` (split at blanks, '' an empty value) with the
// environment `env` ends in; status -1 when it yields a configuration.
host::ParseExit usageErrorOf(const std::string& arguments, const char* env) {
    std::vector<std::string> words = {"vistrel-host"};
    std::istringstream in(arguments);
    for (std::string word; in >> word;) words.push_back(word == "''" ? "" : word);
    std::vector<const char*> argv;
    for (const auto& word : words) argv.push_back(word.c_str());
    const char* envp[] = {env, nullptr};
    auto parsed = host::parseOptions(static_cast<int>(argv.size()), argv.data(), envp);
    const auto* exit = std::get_if<host::ParseExit>(&parsed);
    return exit ? *exit : host::ParseExit{-1, ""};
}

TEST(HostEndToEnd, CommandLineErrorsExitWithStatus2AndAMessage) {
    FixtureTree fifo(""), device(""), empty("");
    std::filesystem::create_directories(fifo.at("/proc"));
    mkfifo(fifo.at("/proc/meminfo").c_str(), 0600);
    std::filesystem::create_directories(device.at("/sys/class/thermal/thermal_zone0"));
    std::filesystem::create_symlink("/dev/zero",
                                    device.at("/sys/class/thermal/thermal_zone0/temp"));
    const std::tuple<std::string, std::string, const char*> cases[] = {
            {"--frobnicate", "", "--frobnicate"},
            {"--simulate 2x", "", "bad duration '2x'"},
            {"--providers NoSuchStats", "", "unknown provider 'NoSuchStats'"},
            {"--don-bits 33", "", "--don-bits must be 0 to 32"},
            {"--don-bits -1", "", "--don-bits must be 0 to 32"},
            {"--don-states 0", "", "--don-states must be 1 to"},
            {"--data-total 1G --data-available 2G", "", "must not exceed --data-total"},
            {"--only HealthInfo", "", "unknown provider 'HealthInfo' in --only"},
            {"--providers CpuStats --only BatteryStats", "",
             "'BatteryStats' in --only does not run"},
            {"--battery acpi", "", "--battery"},
            {"--root /no/such/dir", "", "is not a directory"},
            {"--thermal acpi", "", "--thermal"},
            {"--thermal-scenario cold-room", "", "unknown thermal scenario 'cold-room'"},
            {"--thermal sysfs --thermal-scenario hot-room", "",
             "--thermal-scenario needs --thermal sim"},
            {"--fire-throttling soon", "", "bad duration 'soon'"},
            {"--providers ZramStats --fire-throttling 1m", "",
             "needs ThermalStats among the providers"},
            {"--seed -3", "", "--seed must be a non-negative integer, not '-3'"},
            {"--seed 18446744073709551616", "", "--seed must be a non-negative integer"},
            {"--kernel-files simulated --root " + empty.at("").string(), "",
             "not with --root or VISTREL_FS_ROOT"},
            {"--kernel-files simulated --battery sysfs", "", "read real sysfs files"},
            // Nothing silently taken for a default or ignored:
            {"--providers ''", "", "--providers: the value is empty"},
            {"--simulate ''", "", "--simulate: the value is empty"},
            {"--trace ''", "", "--trace: the value is empty"},
            {"--trace= --json", "", "--trace: the value is empty"},
            {"--prop= --simulate 1m", "", "--prop: the value is empty"},
            {"--only ''", "", "--only: the value is empty"},
            {"--providers ZramStats,", "", "empty name in --providers 'ZramStats,'"},
            {"--hide HealthInfo --hide Nothing", "", "unknown name 'Nothing' in --hide"},
            {"--simulate 1h --fire-throttling 61m", "", "61m is past the end of the run (1:00:00"},
            {"", "VISTREL_FS_ROOT=/no/such/dir",
             "VISTREL_FS_ROOT '/no/such/dir' is not a directory"},
            {"--root " + fifo.at("").string(), "", "/proc/meminfo is a FIFO"},
            {"", "VISTREL_FS_ROOT=" + device.at("").string(),
             "/sys/class/thermal/thermal_zone0/temp is a character device"},
    };
    for (const auto& [arguments, env, message] : cases) {
        const host::ParseExit exit = usageErrorOf(arguments, env.c_str());
        EXPECT_EQ(exit.status, 2) << arguments << " " << env;
        EXPECT_THAT(exit.text, ::testing::HasSubstr(message)) << arguments << " " << env;
    }
}

// SIGTERM, or a hang-up, once the providers are acquired (their first lines are out), long
// before the hour.
TEST(HostEndToEnd, AStoppedRealRunReleasesSummarizesAndClosesItsTrace) {
    const std::string out = testing::TempDir() + "stopped.jsonl";
    const std::string trace = testing::TempDir() + "stopped-trace.json";
    for (const auto& [name, signal] : {std::pair{"TERM", 15}, std::pair{"HUP", 1}}) {
        std::remove(out.c_str());  // the wait below must see this run's lines
        const HostRun run = runHost("--real 1h --json --providers BatteryStats --trace " + trace +
                                    " > " + out + " & until grep -q acquire " + out +
                                    " 2>/dev/null; do sleep 0.1; done; kill -" + name +
                                    " $!; wait $!; s=$?; cat " + out + "; exit $s");
        EXPECT_EQ(run.status, 128 + signal) << name;
        std::vector<std::string> events;
        for (const json& line : run.lines) events.push_back(line.value("event", ""));
        EXPECT_THAT(events, testing::IsSupersetOf({"acquire", "record", "release", "summary"}))
                << name;
        std::ifstream traceFile(trace);
        EXPECT_TRUE(json::parse(traceFile, nullptr, false).contains("traceEvents"))
                << name << ": the trace is closed as a whole JSON document";
    }
}

// A second stop signal ends the process at once (or the run, when it is ending already): either
// way no simulated kernel file is left.
TEST(HostEndToEnd, ASecondStopSignalLeavesNoSimulatedKernelFiles) {
    const std::string out = testing::TempDir() + "stopped-twice.jsonl";
    std::remove(out.c_str());
    const HostRun run = runHost("--real 1h --json --kernel-files simulated > " + out +
                                " & until grep -q acquire " + out +
                                " 2>/dev/null; do sleep 0.1; done; kill -INT $!; kill -TERM $!; "
                                "wait $!; s=$?; ls -d /dev/shm/vistrel-headset-$!-* 2>&1; exit $s");
    EXPECT_THAT(run.status, testing::AnyOf(130, 143));
    EXPECT_THAT(run.output, testing::HasSubstr("No such file")) << "the tree is left";
}

// A closed pipe, a full disk, a file-size limit: one line on stderr, status 74, and a trace that
// is whole.
TEST(HostEndToEnd, AnOutputThatCannotBeWrittenEndsTheRunWithStatus74) {
    const std::string trace = testing::TempDir() + "write-error-trace.json";
    const std::string limited = testing::TempDir() + "write-error-limited.json";
    const std::string pipe = testing::TempDir() + "write-error-pipe";
    std::remove(pipe.c_str());
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    constexpr rlim_t kNoLimit = RLIM_INFINITY;
    const std::tuple<std::string, rlim_t, int, std::string> cases[] = {
            {"--json --trace " + trace + " 2>&1 >" + pipe + " & head -1 " + pipe +
                     " >/dev/null; wait $!",
             kNoLimit, 74, "cannot write the timeline: Broken pipe"},
            {"--simulate 1h --trace /dev/full", kNoLimit, 74,
             "cannot write trace file '/dev/full': No space left on device"},
            {"--simulate 1h 2>&1 >/dev/full; exit $?", kNoLimit, 74,
             "cannot write the timeline: No space left on device"},
            {"--simulate 4h --trace " + limited + " 2>&1 >/dev/null; exit $?", 16384, 74,
             "cannot write trace file '" + limited + "': File too large"},
            {"--trace /no/such/dir/trace.json", kNoLimit, 2, "cannot write trace file"},
    };
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    for (const auto& [arguments, fileSizeLimit, status, message] : cases) {
        rlimit limit = saved;  // inherited by the host, not written to by this test meanwhile
        limit.rlim_cur = std::min(fileSizeLimit, saved.rlim_max);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        const HostRun run = runHost(arguments);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
        EXPECT_EQ(run.status, status) << arguments;
        EXPECT_EQ(occurrences(run.output, message), 1u) << arguments << "\n" << run.output;
    }
    for (const std::string& path : {trace, limited}) {
        std::ifstream traceFile(path);
        EXPECT_TRUE(json::parse(traceFile, nullptr, false).contains("traceEvents")) << path;
    }
}

// Snapshots more frequent than the providers' periods find no provider without a reading, and a
// run too short for a provider's own rules says why it gives no record of that provider.
TEST(HostEndToEnd, NoSnapshotFailsForWantOfASampleAndARecordlessProviderSaysWhy) {
    const std::pair<std::string, json> cases[] = {
            {"--simulate 20m --snapshot-every 1m --don-states 5", json::object()},
            {"--simulate 10m",
             {{"SystemStateStats",
               "its first batch of don states ends at 1:00:00.000 of device time"}}},
    };
    for (const auto& [arguments, reasons] : cases) {
        const HostRun run = runHost(arguments + " --json");
        ASSERT_EQ(run.status, 0) << run.output;
        json said = json::object();
        for (const auto& line : run.lines) {
            EXPECT_NE(line.value("priority", ""), "E") << line.dump();
            if (line.contains("noRecord"))
                said[line["source"].get<std::string>()] = line["noRecord"];
        }
        EXPECT_EQ(said, reasons) << arguments;
        EXPECT_EQ(occurrences(run.output, ": no record; "), reasons.size()) << "one line on stderr";
    }
}

// Lines written from several threads, and the summary, in device-time order; a run shorter than
// its longest period (an hour) gives no share of the budget.
TEST(HostEndToEnd, AShortRealRunKeepsDeviceTimeInOrderAndExtrapolatesNothing) {
    const HostRun run = runHost("--real 2s --json");
    ASSERT_EQ(run.status, 0) << run.output;
    int64_t last = 0;
    for (const auto& line : run.lines) {
        EXPECT_GE(line["t_ns"].get<int64_t>(), last) << line.dump();
        last = line["t_ns"];
    }
    EXPECT_EQ(run.lines.back()["percentOfBudget"], nullptr) << run.lines.back().dump();
}

// Memory and storage collectors against the fixture trees (read only: the zram idle collector
// stays off, so nothing is written into the tree).

TEST(HostEndToEnd, CounterHeartbeatsArriveOnTheirPeriods) {
    const HostRun run = runHost(
            "--simulate 3h --json --snapshot-every 1h --root " + kData + "memstorage/device" +
            " --providers SystemMemoryStats,ZramStats,SwapWriteStats,StorageStats");
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, std::vector<int64_t>> heartbeats;
    std::map<std::string, json> last;
    for (const auto& line : run.lines) {
        if (line["event"] == "notification")
            heartbeats[line["name"]].push_back(line["t_ns"].get<int64_t>() / kMinuteNs);
        if (line["event"] == "record") last[line["source"]] = line;
        EXPECT_NE(line["event"], "log") << line.dump();
    }
    const auto every = [](int64_t minutes, int count) {
        std::vector<int64_t> at;
        for (int i = 1; i <= count; ++i) at.push_back(i * minutes);
        return at;
    };
    EXPECT_EQ(heartbeats["SystemMemoryInfo"], every(5, 36));
    EXPECT_EQ(heartbeats["ZramHeartbeat"], every(15, 12));
    EXPECT_EQ(heartbeats["SwapHeartbeat"], every(60, 3));
    EXPECT_EQ(heartbeats["StorageHeartbeat"], every(60, 3))
            << "an hourly host snapshot still lets it through";
    EXPECT_EQ(last["SystemMemoryStats"]["memUsedKb"], 5804656 - 2103340);
    EXPECT_EQ(last["StorageStats"]["totalBytes"], INT64_C(128) << 30);
}

// Process memory on its fixture tree with the simulated memtrack: pid 400 gets the HAL's error
// (-1), pid 401 gets 512 KiB; each scan reports both.
TEST(HostEndToEnd, ProcessMemoryRunReportsEveryScan) {
    const HostRun run = runHost(
            "--simulate 30m --json --snapshot-every 15m --providers ProcessMemoryStats --root " +
            kData + "processmemory --prop mobile_vistrel_memory_extended_collector=true");
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<json> records;
    std::vector<std::vector<std::string>> reports;
    for (const auto& line : run.lines) {
        if (line["event"] == "record") records.push_back(line);
        if (line["event"] == "trigger-report") reports.push_back(line["annotations"]);
    }
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["timestampMs"], 900000);
    EXPECT_EQ(records[0]["processNames"], 9);
    EXPECT_EQ(records[0]["topByRss"][2]["name"], "/data/local/my");
    EXPECT_EQ(records[0]["topByRss"][2]["vmRssKb"], 5000);
    const std::vector<std::string> over = {"threshold_current_value:10240",
                                           "includes_memtrack:false",
                                           "rss_anon_plus_swap_kib:10240", "memtrack_pss_kib:-1",
                                           "threshold_units:RSS_anon_plus_swap_KB"};
    const std::vector<std::string> under = {"threshold_current_value:10751",
                                            "includes_memtrack:true",
                                            "rss_anon_plus_swap_kib:10239", "memtrack_pss_kib:512",
                                            "threshold_units:RSS_anon_plus_swap_plus_memtrack_KB"};
    EXPECT_THAT(reports, ::testing::UnorderedElementsAre(over, under, over, under));
}

// The focus collector through the real module loader: the default module directory, then an
// empty one.
TEST(HostEndToEnd, ForegroundAppPushesAreAnsweredWithSnapshotsOfTheScriptedLists) {
    const HostRun run =
            runHost("--simulate 50m --json --providers VrFocusProviderStats --focus "
                    "'10m com.a.shell; 20m com.b.game; 10m com.c.dialog,com.b.game; 20m none'");
    ASSERT_EQ(run.status, 0) << run.output;
    int loadingLines = 0;
    std::vector<std::pair<int64_t, std::string>> records;
    int64_t lastPushNs = -1;
    for (const auto& line : run.lines) {
        if (line["event"] == "log" && line["source"] == "PlatkitLoader") {
            EXPECT_EQ(line["priority"], "D");
            EXPECT_EQ(line["text"], "Platkit loading module 'libplatkit.halden.so'");
            ++loadingLines;
        }
        if (line["event"] == "push (force)") {
            EXPECT_EQ(line["name"], "ForegroundAppsStats");
            EXPECT_EQ(line["detail"], "ForegroundApps snapshot");
            lastPushNs = line["t_ns"];
        }
        if (line["event"] == "record" && line["t_ns"] == lastPushNs) {
            records.emplace_back(line["t_ns"].get<int64_t>() / kMinuteNs, line["foregroundApps"]);
            EXPECT_EQ(line["snapshotTimeNs"], lastPushNs);
        }
    }
    EXPECT_EQ(loadingLines, 1);
    EXPECT_EQ(records,
              (std::vector<std::pair<int64_t, std::string>>{{0, "com.a.shell,"},
                                                            {10, "com.b.game,"},
                                                            {30, "com.c.dialog,com.b.game,"},
                                                            {40, ""}}));
}

TEST(HostEndToEnd, AnEmptyModuleDirectoryIsReportedOnceAndTheCollectorFails) {
    const HostRun run = runHost("--simulate 10m --providers VrFocusProviderStats --sdk-dir " +
                                std::string(VISTREL_SDK_MODULE_ROOT) + "/empty");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(occurrences(run.output, "Platkit module 'libplatkit.halden.so' not found"), 1u);
    EXPECT_EQ(occurrences(run.output, "Could not connect to VR Focus Manager"), 1u);
    EXPECT_THAT(run.output, ::testing::HasSubstr("acquire       ok=false"));
}

// CpuStats through the real sampler module in its simulated mode: a heartbeat every five
// minutes, each followed by the statistics of the minute before it.
TEST(HostEndToEnd, CpuHeartbeatsAreFollowedByPerNameAndPerFeatureStatistics) {
    const HostRun run = runHost("--simulate 11m --json --providers CpuStats");
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<int64_t> heartbeats;
    std::vector<json> records;
    for (const auto& line : run.lines) {
        if (line["event"] == "notification") {
            EXPECT_EQ(line["name"], "ProcessCpuHeartbeat");
            EXPECT_EQ(line["detail"], "300.000000 seconds");
            heartbeats.push_back(line["t_ns"].get<int64_t>() / kMinuteNs);
        }
        if (line["event"] == "record") records.push_back(line);
        if (line["event"] == "log") {
            EXPECT_EQ(line["text"], "Platkit loading module 'libinstsamp.halden.so'");
        }
    }
    EXPECT_EQ(heartbeats, (std::vector<int64_t>{5, 10}));
    ASSERT_EQ(records.size(), 2u) << "one snapshot right after each heartbeat";
    for (const json& record : records) {
        // The headset is in use with the launcher in front: the XR compositor's thread leads,
        // then the launcher's main thread, named as Android names its process.
        EXPECT_EQ(record["topByMeanRate"][0]["name"], "compositor");
        EXPECT_EQ(record["topByMeanRate"][1]["name"], "om.halden.shell");
        EXPECT_EQ(record["topByMeanRate"][0]["totalTimeMs"], 60000.0)
                << "six 10 s intervals, 250 s to 300 s of the period";
        std::vector<std::string> features;
        for (const auto& [name, row] : record["features"].items()) features.push_back(name);
        EXPECT_EQ(features,
                  (std::vector<std::string>{"audio", "input", "passthrough", "render", "tracking"}))
                << "the decoy section features.100 is never read";
        EXPECT_GT(record["features"]["render"]["meanRate"], record["topByMeanRate"][0]["meanRate"])
                << "the compositor's thread and the other render threads";
        EXPECT_EQ(record["features"]["passthrough"]["meanRate"], 0.0) << "no passthrough in front";
        EXPECT_EQ(record["featureIds"].size(), 4u);
    }
}

}  // namespace
