// Runs the reference host binary against the simulated headset and checks its timeline.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
constexpr int64_t kMinuteNs = INT64_C(60000000000);

struct HostRun {
    int status;
    std::string output;
};

HostRun runHost(const std::string& arguments) {
    const std::string command = std::string(VISTREL_HOST_BINARY) + " " + arguments + " 2>&1";
    HostRun run{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof(chunk), pipe)) > 0) run.output.append(chunk, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) lines.push_back(json::parse(text.substr(start, end - start)));
        start = end + 1;
    }
    return lines;
}

// Independent packing of one-bit states: state i is bit (i mod 32) of word i / 32.
std::vector<std::string> packOneBit(const std::vector<bool>& states) {
    std::vector<uint32_t> words((states.size() + 31) / 32, 0);
    for (size_t i = 0; i < states.size(); ++i) words[i / 32] |= uint32_t{states[i]} << (i % 32);
    std::vector<std::string> hex;
    for (uint32_t w : words) {
        char text[16];
        snprintf(text, sizeof(text), "0x%x", w);
        hex.push_back(text);
    }
    return hex;
}

TEST(HostEndToEnd, SimulatedRunDeliversDonStateBatchesOnTheirCadence) {
    const HostRun run = runHost(
        "--simulate 3h --json --providers SystemStateStats --don-states 60 --don-period 1m "
        "--interactive '40m on, 20m off'");
    ASSERT_EQ(run.status, 0) << run.output;
    const auto lines = jsonLines(run.output);

    std::vector<int64_t> notifiedAt;
    std::vector<json> fetches;
    std::vector<std::string> hostEvents, loggedWords;
    for (const auto& line : lines) {
        const std::string event = line["event"];
        if (event == "notification" && line["source"] == "SystemStateStats") {
            EXPECT_EQ(line["name"], "SystemStateStats");
            EXPECT_EQ(line["detail"], "AggregatedDonStates");
            notifiedAt.push_back(line["t_ns"]);
        } else if (event == "fetch") {
            fetches.push_back(line);
        } else if (event == "host-event" && line["name"].get<std::string>().rfind("Screen", 0) == 0) {
            hostEvents.push_back(line["name"]);  // the screen events; chargers also raise events
        } else if (event == "log" && line["source"] == "Vistrel") {
            loggedWords.push_back(line["text"]);
        }
    }
    EXPECT_EQ(notifiedAt, (std::vector<int64_t>{60 * kMinuteNs, 120 * kMinuteNs, 180 * kMinuteNs}));
    EXPECT_EQ(hostEvents, (std::vector<std::string>{"ScreenOff", "ScreenOn", "ScreenOff", "ScreenOn",
                                                    "ScreenOff", "ScreenOn"}));

    // Samples fall at minutes 1..60 of each batch; the headset is interactive in minutes 0..39
    // of every hour, so every batch is minutes 1..39 on, 40..59 off, then minute 60 on.
    std::vector<bool> states;
    for (int minute = 1; minute <= 60; ++minute) states.push_back(minute % 60 < 40);
    const auto expected = packOneBit(states);
    ASSERT_EQ(fetches.size(), 3u);
    for (size_t batch = 0; batch < fetches.size(); ++batch) {
        EXPECT_EQ(fetches[batch]["donStates"].get<std::vector<std::string>>(), expected);
        EXPECT_EQ(fetches[batch]["eventStartMs"], static_cast<int64_t>(batch * 60 + 1) * 60000);
    }
    EXPECT_THAT(loggedWords, ::testing::Contains("SystemStateStats::getDonStates: " + expected[0].substr(2)));
}

TEST(HostEndToEnd, ReadableTimelineByDefault) {
    const HostRun run = runHost("--simulate 1h --providers SystemStateStats");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, ::testing::HasSubstr("notification  name=SystemStateStats detail=AggregatedDonStates"));
    EXPECT_THAT(run.output, ::testing::HasSubstr("eventStartMs=60000 donStates=[0xffffffff, 0x800007f]"));
}

TEST(HostEndToEnd, DefaultRunShowsBatteryNotificationsTransitionsAndRecords) {
    const HostRun run = runHost("--json --providers BatteryStats,BatteryStatsStates");
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, int> notifications, records, hostEvents, actions;
    for (const auto& line : jsonLines(run.output)) {
        const std::string event = line["event"];
        if (event == "notification") ++notifications[line["name"].get<std::string>()];
        if (event == "record") ++records[line["source"].get<std::string>()];
        if (event == "host-event") ++hostEvents[line["name"].get<std::string>()];
        if (event == "log" && line["text"].get<std::string>().rfind("BatteryStatsStates::", 0) == 0) {
            ++actions[line["text"].get<std::string>()];
        }
    }
    EXPECT_GT(notifications["HealthInfo"], 0);
    EXPECT_EQ(notifications["BatteryFull"], 2);
    EXPECT_GE(notifications["BatteryLow"], 2);
    EXPECT_EQ(records["BatteryStats"], 4) << "every hour for 4 hours";
    EXPECT_EQ(records["BatteryStatsStates"], 4);
    EXPECT_EQ(hostEvents["PowerConnected"], 2);
    EXPECT_EQ(hostEvents["PowerDisconnected"], 2);
    EXPECT_EQ(actions["BatteryStatsStates::chargeStartEvent()"], 2);
    EXPECT_EQ(actions["BatteryStatsStates::chargeEndEvent()"], 2);
    EXPECT_EQ(actions["BatteryStatsStates::batteryFullEvent()"], 2);
    EXPECT_EQ(actions["BatteryStatsStates::shutdownEvent()"], notifications["BatteryLow"]);
    EXPECT_GT(actions["BatteryStatsStates::activeStartEvent()"], 0);
    EXPECT_GT(actions["BatteryStatsStates::activeEndEvent()"], 0);
}

TEST(HostEndToEnd, CommandLineErrorsExitNonZeroWithAMessage) {
    const struct {
        const char* arguments;
        const char* message;
    } cases[] = {
        {"--frobnicate", "--frobnicate"},
        {"--simulate 2 hours", "hours"},
        {"--simulate 2x", "bad duration '2x'"},
        {"--prop no_such_property=1", "unknown property 'no_such_property'"},
        {"--prop mobile_vistrel_zram_idle_collector=perhaps", "mobile_vistrel_zram_idle_collector"},
        {"--providers NoSuchStats", "unknown provider 'NoSuchStats'"},
        {"--simulate 1h --real 1s", "excludes"},
    };
    for (const auto& c : cases) {
        const HostRun run = runHost(c.arguments);
        EXPECT_EQ(run.status, 2) << c.arguments;
        EXPECT_THAT(run.output, ::testing::HasSubstr(c.message)) << c.arguments;
    }
}

// Memory and storage counters against the device-like fixture tree (read only: the zram idle
// collector stays off, so nothing is written into the tree).
const std::string kDeviceTree = std::string(VISTREL_SOURCE_DIR) + "/tests/data/memstorage/device";
const std::string kCounters = "SystemMemoryStats,ZramStats,SwapWriteStats,StorageStats";

TEST(HostEndToEnd, CounterHeartbeatsArriveOnTheirPeriodsAndRecordsShowTheTree) {
    const HostRun run = runHost("--simulate 3h --json --snapshot-every 1h --root " + kDeviceTree +
                                " --providers " + kCounters);
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, std::vector<int64_t>> heartbeats;
    std::map<std::string, json> lastRecord;
    for (const auto& line : jsonLines(run.output)) {
        if (line["event"] == "notification") heartbeats[line["name"]].push_back(line["t_ns"]);
        if (line["event"] == "record") lastRecord[line["source"]] = line;
        EXPECT_NE(line["event"], "log") << line.dump();
    }
    auto every = [](int64_t periodMinutes, int count) {
        std::vector<int64_t> at;
        for (int i = 1; i <= count; ++i) at.push_back(i * periodMinutes * kMinuteNs);
        return at;
    };
    EXPECT_EQ(heartbeats["SystemMemoryInfo"], every(5, 36));
    EXPECT_EQ(heartbeats["ZramHeartbeat"], every(15, 12));
    EXPECT_EQ(heartbeats["SwapHeartbeat"], every(60, 3));
    EXPECT_EQ(heartbeats["StorageHeartbeat"], every(60, 3)) << "an hourly host snapshot still lets it through";

    EXPECT_EQ(lastRecord["SystemMemoryStats"]["memAvailableKb"], 2103340);
    EXPECT_EQ(lastRecord["SystemMemoryStats"]["memUsedKb"], 5804656 - 2103340);
    EXPECT_EQ(lastRecord["ZramStats"]["column10"], 77);
    EXPECT_EQ(lastRecord["SwapWriteStats"]["swapWriteBytes"], 256000000);
    EXPECT_EQ(lastRecord["StorageStats"]["totalBytes"], INT64_C(128) << 30);
    EXPECT_EQ(lastRecord["StorageStats"]["lowStorage"], false);
}

TEST(HostEndToEnd, SetDataFiguresRaiseLowStorageAndFrequentSnapshotsHoldTheGate) {
    const HostRun low = runHost("--simulate 1h --json --snapshot-every 1h --root " + kDeviceTree +
                                " --providers StorageStats --data-total 64G --data-available 3G");
    ASSERT_EQ(low.status, 0) << low.output;
    EXPECT_THAT(low.output, ::testing::HasSubstr(
        R"("name":"LowStorage","detail":"Equal to or larger than 90% Disk Usage")"));

    // Host snapshots every 15 minutes restart the one-hour gate every time.
    const HostRun gated =
        runHost("--simulate 2h --snapshot-every 15m --providers StorageStats --data-available 1T");
    ASSERT_EQ(gated.status, 0) << gated.output;
    EXPECT_THAT(gated.output, ::testing::Not(::testing::HasSubstr("StorageHeartbeat")));
    EXPECT_THAT(gated.output, ::testing::HasSubstr(
        "StorageStats snapshot failed since 900 ms less than 3600000 ms have passed"));
    EXPECT_THAT(gated.output, ::testing::HasSubstr("lowStorage=false"));

    const HostRun bad = runHost("--data-total 12Q");
    EXPECT_NE(bad.status, 0);
    EXPECT_THAT(bad.output, ::testing::HasSubstr("bad byte count '12Q'"));
}

}  // namespace
