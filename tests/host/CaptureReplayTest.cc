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

#include "HostRun.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing_support::HostRun;
using testing_support::runHost;

const std::string kSource = VISTREL_SOURCE_DIR;
const std::string kHeadset = kSource + "/tests/data/headset-capture";

// A scratch directory, removed with the object.
struct Scratch {
    Scratch() {
        char pattern[] = "/tmp/vistrel-capture-XXXXXX";
        dir = mkdtemp(pattern);
    }
    ~Scratch() { fs::remove_all(dir); }
    fs::path dir;
};

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
    EXPECT_EQ(last["ThermalStats"]["temperatures"].size(), 17u);
}

TEST(CaptureReplay, CapturingTheHeadsetTreeGivesItBack) {
    Scratch all, largest;
    const std::string from = "VISTREL_CAPTURE_FROM='" + kHeadset + "'";
    ASSERT_EQ(capture(from, all.dir.string()), 0);
    EXPECT_TRUE(sameTree(kHeadset, all.dir));
    ASSERT_EQ(capture(from, largest.dir.string() + " --processes 3"), 0);
    EXPECT_EQ(processesIn(largest.dir), (std::set<std::string>{"1120", "1460", "2011"}))
            << "the three with the most resident memory";
    EXPECT_EQ(capture(from, all.dir.string()), 2) << "refuses a directory that is not empty";
}

// A machine without thermal zones (an empty thermal class, as in many virtual machines) and its
// capture give the same records and log lines.
TEST(CaptureReplay, ACaptureReplaysAsTheMachineItWasTakenFrom) {
    Scratch machine, captured;
    fs::copy(kHeadset, machine.dir, fs::copy_options::recursive);
    fs::remove_all(machine.dir / "sys/class/thermal");
    fs::create_directory(machine.dir / "sys/class/thermal");
    ASSERT_EQ(capture("VISTREL_CAPTURE_FROM='" + machine.dir.string() + "'", captured.dir), 0);
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
    EXPECT_EQ(recordsAndLogs(captured.dir), recordsAndLogs(machine.dir));
}

TEST(CaptureReplay, LocalCaptureOfThisMachineReplays) {
    Scratch tree;
    ASSERT_EQ(capture("", tree.dir.string() + " --processes 4"), 0);
    ASSERT_TRUE(fs::exists(tree.dir / "proc/meminfo"));
    const auto pids = processesIn(tree.dir);
    ASSERT_GE(pids.size(), 1u);
    EXPECT_LE(pids.size(), 4u);
    for (const auto& pid : pids) EXPECT_TRUE(fs::exists(tree.dir / "proc" / pid / "status"));

    const HostRun run =
            runHost("--json --simulate 15m --snapshot-every 15m --root " + tree.dir.string() +
                    " --providers SystemMemoryStats,ProcessMemoryStats");
    ASSERT_EQ(run.status, 0) << run.output;
    std::ifstream meminfo(tree.dir / "proc/meminfo");
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
    Scratch bin, tree;
    const fs::path calls = bin.dir / "calls";
    std::ofstream(bin.dir / "adb") << "#!/bin/sh\n"
                                      "echo \"$1 $2 $3\" >> '"
                                   << calls.string()
                                   << "'\n"
                                      "[ \"$1\" = -s ] && shift 2\n"
                                      "[ \"$1\" = shell ] || exit 1\n"
                                      "shift\n"
                                      "{ sh -c \"$*\"; printf '=== /proc/../escaped\\nAAAA\\n'; } "
                                      "| sed 's/$/\\r/'\n";
    fs::permissions(bin.dir / "adb", fs::perms::owner_all);
    const std::string environment = "PATH='" + bin.dir.string() + "':\"$PATH\" " +
                                    "VISTREL_CAPTURE_FROM='" + kHeadset + "'";
    ASSERT_EQ(capture(environment, tree.dir.string() + " --adb HEADSET42"), 0);
    EXPECT_TRUE(sameTree(kHeadset, tree.dir)) << "nothing escaped, nothing lost to CR LF";
    EXPECT_FALSE(fs::exists(tree.dir / "escaped"));
    std::ifstream log(calls);
    std::string call;
    std::getline(log, call);
    EXPECT_EQ(call, "-s HEADSET42 shell");
}

}  // namespace
