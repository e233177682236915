// The run summary against a scripted run, the timeline's filters and folding, and the trace
// file against the run it records.
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostRun.h"

namespace {

using nlohmann::json;
using testing_support::HostRun;
using testing_support::runHost;

const std::string kData = std::string(VISTREL_SOURCE_DIR) + "/tests/data/";

// Two hours with host snapshots every 30 minutes: ThermalStats on the sysfs headset tree with two
// fired throttling pushes; StorageStats, whose hourly samples then find a snapshot too recent
// (a warning each); ZramStats, whose snapshots fail on a tree without zram (an error each).
const std::string kScripted =
        "--simulate 2h --snapshot-every 30m --providers ThermalStats,StorageStats,ZramStats "
        "--thermal sysfs --root " +
        kData + "thermal-headset --fire-throttling 10m --fire-throttling 50m";

TEST(HostSummary, CountsEachProvidersOwnCallsInAScriptedRun) {
    const HostRun run = runHost("--json " + kScripted);
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, json> summary;
    std::map<std::string, std::map<std::string, int>> notifications, timeline;
    for (const auto& line : run.lines) {
        const std::string source = line["source"], event = line["event"];
        if (event == "summary") summary[source] = line;
        if (event == "notification") ++notifications[source][line["name"]];
        ++timeline[source][event];
    }
    for (const std::string p : {"ThermalStats", "StorageStats", "ZramStats"}) {
        ASSERT_TRUE(summary.count(p)) << p;
        const json& s = summary[p];
        EXPECT_EQ(s["notifications"], json(notifications[p])) << p;
        EXPECT_EQ(s["snapshotsOk"], timeline[p]["record"]) << p;
        EXPECT_EQ(s["pushes"], timeline[p]["push (force)"]) << p;
        EXPECT_DOUBLE_EQ(s["cpuMsPerDeviceHour"].get<double>(), s["steadyCpuMs"].get<double>() / 2)
                << p << ": the steady cost per hour";
        EXPECT_NEAR(s["oneOffCpuMs"].get<double>() + s["steadyCpuMs"].get<double>(),
                    s["cpuMs"].get<double>(), 1e-9)
                << p;
    }
    EXPECT_EQ(summary["ThermalStats"]["samples"], 720) << "every 10 s";
    EXPECT_EQ(summary["StorageStats"]["samples"], 2);
    EXPECT_EQ(summary["ZramStats"]["samples"], 8);
    EXPECT_EQ(summary["ThermalStats"]["pushes"], 2);
    EXPECT_EQ(timeline["ThermalStats"]["hook"], 2) << "each fired push shows its hook";
    EXPECT_EQ(summary["ThermalStats"]["snapshotsOk"], 6) << "4 by the host, 2 forced by pushes";
    EXPECT_EQ(summary["ZramStats"]["snapshotsFailed"], 4);
    EXPECT_EQ(summary["StorageStats"]["snapshotsFailed"], 0);
    // Each log line goes to the provider whose call made it.
    EXPECT_EQ(summary["ThermalStats"]["logs"], (json{{"I", 3}, {"W", 1}}))
            << "W: the HAL ignoring camera-therm's empty temp, once";
    EXPECT_EQ(summary["StorageStats"]["logs"], (json{{"W", 2}}));
    EXPECT_EQ(summary["ZramStats"]["logs"], (json{{"E", 4}}));
    double total = 0;
    for (const std::string p : {"ThermalStats", "StorageStats", "ZramStats"}) {
        total += summary[p]["cpuMs"].get<double>();
    }
    EXPECT_NEAR(summary["all providers"]["cpuMs"].get<double>(), total, 1e-9);
}

TEST(HostSummary, OnlyAndHideFilterTheTimelineButNotTheSummary) {
    const HostRun run = runHost(kScripted + " --only StorageStats,host --hide ScreenOff");
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string timeline = run.output.substr(0, run.output.find("Run summary"));
    EXPECT_THAT(timeline, ::testing::HasSubstr("StorageStats snapshot failed since 1800 ms"))
            << "a log line made in a StorageStats call is StorageStats'";
    EXPECT_THAT(timeline, ::testing::HasSubstr("name=ScreenOn"));
    EXPECT_THAT(timeline, ::testing::Not(::testing::HasSubstr("ScreenOff")));
    EXPECT_THAT(timeline, ::testing::Not(::testing::HasSubstr("ZramStats")));
    EXPECT_THAT(timeline, ::testing::Not(::testing::HasSubstr("Thermal")));
    EXPECT_THAT(run.output.substr(timeline.size()),
                ::testing::ContainsRegex("\nZramStats +8 +0 +0 / 4 +E 4 "));
}

// Per provider: how many notifications the unfolded run shows, and how many the folded run
// shows plus those its "repeated" lines stand for.
TEST(HostSummary, FoldingAccountsForEveryNotification) {
    const HostRun plain = runHost("--json"), folded = runHost("--json --fold");
    ASSERT_EQ(plain.status, 0) << plain.output;
    ASSERT_EQ(folded.status, 0) << folded.output;
    std::map<std::string, int64_t> all, shown;
    for (const auto& line : plain.lines) {
        if (line["event"] == "notification") ++all[line["source"]];
    }
    for (const auto& line : folded.lines) {
        if (line["event"] == "notification") ++shown[line["source"]];
        if (line["event"] == "repeated") {
            shown[line["source"]] += line["count"].get<int64_t>();
            EXPECT_LE(line["first"].get<std::string>(), line["last"].get<std::string>());
        }
    }
    EXPECT_EQ(shown, all);
    EXPECT_LT(folded.lines.size() * 3, plain.lines.size()) << "HealthInfo every 10 s folds away";
}

TEST(HostTrace, CountersAndInstantsFollowTheRun) {
    const std::string path = testing::TempDir() + "trace.json";
    const HostRun run = runHost("--json --trace " + path);
    ASSERT_EQ(run.status, 0) << run.output;
    std::ifstream in(path);
    const json trace = json::parse(in);

    std::map<int, std::string> processes;
    std::map<std::pair<std::string, int64_t>, std::map<std::string, double>> counters;
    std::map<std::string, int> instants, lines;
    int64_t lastTs = 0;
    for (const auto& e : trace["traceEvents"]) {
        if (e["ph"] == "M") processes[e["pid"]] = e["args"]["name"];
        if (e["ph"] == "M") continue;
        EXPECT_GE(e["ts"].get<int64_t>(), lastTs) << "in device-time order";
        lastTs = e["ts"];
        const std::string process = processes[e["pid"]];
        if (e["ph"] == "C") counters[{process, e["ts"]}][e["name"]] = e["args"]["value"];
        if (e["ph"] == "i") ++instants[process + " " + e["cat"].get<std::string>()];
    }
    int batteryRecords = 0, thermalRecords = 0;
    size_t providers = 0;
    for (const auto& line : run.lines) {
        const std::string source = line["source"], event = line["event"];
        providers += event == "acquire";
        if (event == "notification" || event == "host-event") ++lines[source + " " + event];
        if (event.rfind("push", 0) == 0) ++lines[source + " push"];
        if (event != "record") continue;
        const auto& values = counters[{source, line["t_ns"].get<int64_t>() / 1000}];
        if (source == "BatteryStats") {
            ++batteryRecords;
            EXPECT_EQ(values.at("level"), line["level"]);
            EXPECT_EQ(values.at("currentMa last"), line["currentMa"]["last"]);
            EXPECT_EQ(values.at("voltageMv last"), line["voltageMv"]["last"]);
        }
        if (source == "ThermalStats") {
            ++thermalRecords;
            for (const auto& [sensor, stats] : line["temperatures"].items()) {
                EXPECT_EQ(values.at("temperatures " + sensor + " current"), stats["current"]);
            }
            EXPECT_EQ(values.at("coolingDevices fan current"),
                      line["coolingDevices"]["fan"]["current"]);
        }
    }
    EXPECT_EQ(batteryRecords, 4);
    EXPECT_GT(thermalRecords, 4) << "hourly and after each throttling push";
    EXPECT_EQ(instants, lines) << "an instant per notification, push and host event";
    EXPECT_EQ(processes[1], "host");
    EXPECT_EQ(processes.size(), providers + 1) << "the host and each provider";
}

}  // namespace
