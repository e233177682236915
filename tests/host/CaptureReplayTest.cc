// scripts/capture-tree.sh locally and over adb (a stand-in adb first on the PATH), and the
// reference host replaying captured trees.
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FixtureTree.h"
#include "HostRun.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing_support::FixtureTree;
using testing_support::HostRun;
using testing_support::runHost;

const std::string kSource = VISTREL_SOURCE_DIR;
const std::string kHeadset = kSource + "/tests/data/headset-capture";

// Runs the capture script with `environment` (VAR=value ...) in front; its exit status.
int capture(const std::string& environment, const std::string& arguments) {
    const std::string command = environment + " " + kSource + "/scripts/capture-tree.sh " +
                                arguments + " >/dev/null 2>&1";
    const int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool sameTree(const fs::path& a, const fs::path& b) {
    return system(("diff -r '" + a.string() + "' '" + b.string() + "' >&2").c_str()) == 0;
}

std::set<std::string> processesIn(const fs::path& tree) {
    std::set<std::string> pids;
    for (const auto& entry : fs::directory_iterator(tree / "proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos) pids.insert(name);
    }
    return pids;
}

// However short (70 minutes, off the hourly snapshots), a run ends with every provider's record;
// the library logs no warning. (The sysfs thermal HAL notes the capture's empty temp once.)
TEST(CaptureReplay, EveryProviderRunsOnTheCapturedHeadset) {
    const HostRun run =
            runHost("--json --simulate 70m --don-states 5 --battery sysfs --thermal "
                    "sysfs --root " +
                    kHeadset);
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, json> acquired, last;
    for (const auto& line : run.lines) {
        if (line["event"] == "acquire") acquired[line["source"]] = line;
        if (line["event"] == "record") last[line["source"]] = line;
        if (line["event"] == "log" && line["source"] != "SysfsThermal") {
            EXPECT_THAT(line["priority"], testing::AnyOf("V", "D", "I")) << line.dump();
        }
    }
    for (const auto& [provider, line] : acquired) {
        EXPECT_EQ(line["ok"], true) << provider;
        EXPECT_EQ(last[provider]["t_ns"], INT64_C(4200000000000)) << provider << "'s last record";
    }
    EXPECT_EQ(last["BatteryStats"]["level"], 62.0);
    EXPECT_EQ(last["BatteryStats"]["status"], "CHARGING");
    EXPECT_EQ(last["BatteryStats"]["powerSource"], "USB") << "a blank before the first one only";
    EXPECT_EQ(last["BatteryStats"]["currentMa"]["last"], 1250.0);
    EXPECT_EQ(last["ProcessMemoryStats"]["processNames"], 29);
    EXPECT_EQ(last["ProcessMemoryStats"]["topByRss"][0]["name"], "com.example.beatgame");
    EXPECT_EQ(last["SystemMemoryStats"]["memAvailableKb"], 2103340);
    EXPECT_EQ(last["ZramStats"]["column10"], 412);
    EXPECT_EQ(last["SwapWriteStats"]["swapWriteBytes"], 256000000);
    const json& thermal = last["ThermalStats"];
    EXPECT_EQ(thermal["temperatures"].size(), 17u);
    EXPECT_EQ(thermal["temperatures"]["cpu-1-0-usr"],
              (json{{"current", 52.6}, {"max", 52.6}, {"min", 52.6}, {"average", 52.6}}));
    EXPECT_TRUE(thermal["temperatures"]["camera-therm"]["current"].is_null()) << "NAN";
    EXPECT_EQ(thermal["sensorsByType"]["SKIN"], json::array({"skin-msm-therm", "xo-therm"}));
    EXPECT_EQ(thermal["throttlingStatus"]["skin-msm-therm"], 1);
    EXPECT_EQ(thermal["coolingDevices"]["pwm-fan"]["current"], 2.0);
}

TEST(CaptureReplay, CapturingTheHeadsetTreeGivesItBack) {
    FixtureTree all(""), largest("");  // empty directories, removed afterwards
    const std::string from = "VISTREL_CAPTURE_FROM='" + kHeadset + "'";
    ASSERT_EQ(capture(from, all.at("").string()), 0);
    EXPECT_TRUE(sameTree(kHeadset, all.at("")));
    ASSERT_EQ(capture(from, largest.at("").string() + " --processes 3"), 0);
    EXPECT_EQ(processesIn(largest.at("")), (std::set<std::string>{"1120", "1460", "2011"}))
            << "the three with the most resident memory";
    EXPECT_EQ(capture(from, all.at("").string()), 2) << "refuses a directory that is not empty";
}

// A machine without thermal zones (an empty thermal class, as in many virtual machines) and its
// capture give the same records and log lines.
TEST(CaptureReplay, ACaptureReplaysAsTheMachineItWasTakenFrom) {
    FixtureTree machine("headset-capture"), captured("");
    fs::remove_all(machine.at("/sys/class/thermal"));
    fs::create_directory(machine.at("/sys/class/thermal"));
    ASSERT_EQ(capture("VISTREL_CAPTURE_FROM='" + machine.at("").string() + "'", captured.at("")), 0);
    const auto recordsAndLogs = [](const fs::path& root) {
        const HostRun run = runHost("--json --simulate 2h --battery sysfs --thermal sysfs --root " +
                                    root.string());
        std::vector<std::string> lines;
        for (json line : run.lines) {
            if (line["event"] != "record" && line["event"] != "log") continue;
            // What the wall clock and the workstation's own timing give.
            for (const char* key : {"timestamp", "stateStartStamp", "previousStateStartStamp",
                                    "sampleDurationMs", "readDurationMs", "uptimeMs"}) {
                line.erase(key);
            }
            lines.push_back(line.dump());
        }
        // Lines of one instant from several threads (an SDK listener's) come in any order.
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    EXPECT_EQ(recordsAndLogs(captured.at("")), recordsAndLogs(machine.at("")));
}

TEST(CaptureReplay, LocalCaptureOfThisMachineReplays) {
    FixtureTree tree("");
    ASSERT_EQ(capture("", tree.at("").string() + " --processes 4"), 0);
    ASSERT_TRUE(fs::exists(tree.at("/proc/meminfo")));
    const auto pids = processesIn(tree.at(""));
    ASSERT_GE(pids.size(), 1u);
    EXPECT_LE(pids.size(), 4u);
    for (const auto& pid : pids) EXPECT_TRUE(fs::exists(tree.at("") / "proc" / pid / "status"));

    const HostRun run =
            runHost("--json --simulate 15m --snapshot-every 15m --root " + tree.at("").string() +
                    " --providers SystemMemoryStats,ProcessMemoryStats");
    ASSERT_EQ(run.status, 0) << run.output;
    std::ifstream meminfo(tree.at("/proc/meminfo"));
    int64_t available = -1;
    for (std::string key; meminfo >> key;) {
        if (key == "MemAvailable:") meminfo >> available;
    }
    std::map<std::string, json> records;
    for (const auto& line : run.lines) {
        if (line["event"] == "record") records[line["source"]] = line;
    }
    EXPECT_EQ(records["SystemMemoryStats"]["memAvailableKb"], available);
    EXPECT_LE(records["ProcessMemoryStats"]["processNames"].get<size_t>(), pids.size());
}

// The stand-in adb runs the shell command here, answering with CR LF line ends as a pty-based
// adb does, and appends an entry whose path climbs out of /proc.
TEST(CaptureReplay, AdbModeRunsTheSenderThroughAdbShell) {
    FixtureTree bin(""), tree("");
    const fs::path calls = bin.at("/calls");
    std::ofstream(bin.at("/adb")) << "#!/bin/sh\n"
                                     "echo \"$1 $2 $3\" >> '"
                                  << calls.string()
                                  << "'\n"
                                     "[ \"$1\" = -s ] && shift 2\n"
                                     "[ \"$1\" = shell ] || exit 1\n"
                                     "shift\n"
                                     "{ sh -c \"$*\"; printf '=== /proc/../escaped\\nAAAA\\n'; } "
                                     "| sed 's/$/\\r/'\n";
    fs::permissions(bin.at("/adb"), fs::perms::owner_all);
    const std::string environment = "PATH='" + bin.at("").string() + "':\"$PATH\" " +
                                    "VISTREL_CAPTURE_FROM='" + kHeadset + "'";
    ASSERT_EQ(capture(environment, tree.at("").string() + " --adb HEADSET42"), 0);
    EXPECT_TRUE(sameTree(kHeadset, tree.at(""))) << "nothing escaped, nothing lost to CR LF";
    EXPECT_FALSE(fs::exists(tree.at("/escaped")));
    std::ifstream log(calls);
    std::string call;
    std::getline(log, call);
    EXPECT_EQ(call, "-s HEADSET42 shell");
}

}  // namespace
