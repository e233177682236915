// The reference host with ThermalStats: the default simulated run, the sysfs backend on the
// hand-made headset tree with scripted throttling notifications, and the thermal options' errors.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostRun.h"

namespace {

using nlohmann::json;
constexpr int64_t kSecondNs = INT64_C(1000000000);

using testing_support::HostRun;
using testing_support::runHost;

TEST(HostThermal, DefaultRunHasRecordsHeartbeatsAndThrottlingFromTheSimulatedHal) {
    const HostRun run = runHost("--json");
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<int64_t> heartbeats, throttles;
    std::vector<json> records;
    for (const auto& line : run.lines) {
        if (line["source"] != "ThermalStats") continue;
        if (line["event"] == "notification") {
            EXPECT_EQ(line["detail"], "120 seconds");
            heartbeats.push_back(line["t_ns"].get<int64_t>() / kSecondNs);
        } else if (line["event"] == "push (force)") {
            EXPECT_EQ(line["name"], "ThermalThrottle");
            throttles.push_back(line["t_ns"]);
        } else if (line["event"] == "record") {
            records.push_back(line);
        }
    }
    std::vector<int64_t> every120s;
    for (int64_t at = 120; at <= 4 * 3600; at += 120) every120s.push_back(at);
    EXPECT_EQ(heartbeats, every120s) << "throttling pushes fall between heartbeats";
    EXPECT_GE(throttles.size(), 3u) << "charging while in use crosses thresholds";
    ASSERT_EQ(records.size(), 4 + throttles.size()) << "hourly, and one per forced push";
    const json& last = records.back();
    EXPECT_EQ(last["sensorsByType"]["0xc"], json::array({"display"}));
    EXPECT_EQ(last["temperatures"].size(), 9u);
    EXPECT_EQ(last["coolingDevices"].size(), 3u);
    EXPECT_EQ(last["temperatures"]["cpu-0"]["current"], 33.0) << "idle after the last 20 minutes";
}

TEST(HostThermal, SysfsBackendShowsTheCapturedSensorsAndFiredThrottlingSnapshotsThePusher) {
    const HostRun run = runHost(
            "--json --simulate 10m --snapshot-every 5m --providers ThermalStats --fire-throttling "
            "7m --fire-throttling 8m --thermal sysfs --root " VISTREL_SOURCE_DIR
            "/tests/data/thermal-headset");
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<json> records;
    std::map<int64_t, std::vector<std::string>> byMinute;  // all but the heartbeats
    for (const auto& line : run.lines) {
        if (line["event"] == "record") records.push_back(line);
        if (line["event"] == "notification") continue;
        std::string text = line["event"].get<std::string>();
        if (line.contains("detail")) text += " " + line["detail"].get<std::string>();
        if (line.contains("text")) text += " " + line["text"].get<std::string>();
        byMinute[line["t_ns"].get<int64_t>() / (60 * kSecondNs)].push_back(text);
    }
    const std::vector<std::string> fired = {"hook", "push (force) testSensor",
                                            "log ThermalStats: force sample in snapshot", "record"};
    EXPECT_EQ(byMinute[7], fired) << "no other push: nothing changes in a captured tree";
    EXPECT_EQ(byMinute[8], fired);
    ASSERT_EQ(records.size(), 4u);
    const json& r = records.back();
    EXPECT_EQ(r["sensorsByType"]["SKIN"], json::array({"skin-msm-therm", "xo-therm"}));
    EXPECT_EQ(r["sensorsByType"]["UNKNOWN"],
              json::array({"aoss0-usr", "pm8250-tz", "camera-therm"}));
    EXPECT_EQ(r["temperatures"]["cpu-1-0-usr"],
              (json{{"current", 52.6}, {"max", 52.6}, {"min", 52.6}, {"average", 52.6}}));
    EXPECT_TRUE(r["temperatures"]["camera-therm"]["current"].is_null()) << "NAN";
    EXPECT_EQ(r["throttlingStatus"]["skin-msm-therm"], 1);
    EXPECT_EQ(r["coolingDevices"]["pwm-fan"]["current"], 2.0);
}

TEST(HostThermal, ThermalOptionErrorsExitWithStatus2) {
    const std::pair<const char*, const char*> cases[] = {
            {"--thermal acpi", "--thermal"},
            {"--thermal-scenario cold-room", "unknown thermal scenario 'cold-room'"},
            {"--thermal sysfs --thermal-scenario hot-room",
             "--thermal-scenario needs --thermal sim"},
            {"--fire-throttling soon", "bad duration 'soon'"},
            {"--providers ZramStats --fire-throttling 1m",
             "needs ThermalStats among the providers"},
    };
    for (const auto& [arguments, message] : cases) {
        const HostRun run = runHost(arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_THAT(run.output, ::testing::HasSubstr(message)) << arguments;
    }
}

}  // namespace
