// The reference host with ThermalStats on the sysfs backend over the hand-made headset tree, with
// scripted throttling notifications. (The default simulated run's thermal records are checked
// with its trace, its heartbeat cadence by the soak run.)
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HostRun.h"

namespace {

using nlohmann::json;
constexpr int64_t kSecondNs = INT64_C(1000000000);

using testing_support::HostRun;
using testing_support::runHost;

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

}  // namespace
