// Runs the reference host on the process memory fixture tree and checks that it prints the
// collector's records and every over-budget report of the simulated trigger service.
#include <cstdio>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

std::vector<json> runHostJson(const std::string& arguments, int* status) {
    const std::string command = std::string(VISTREL_HOST_BINARY) + " --json " + arguments;
    std::vector<json> lines;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return lines;
    char line[8192];
    while (fgets(line, sizeof(line), pipe) != nullptr) lines.push_back(json::parse(line));
    *status = pclose(pipe);
    return lines;
}

TEST(ProcessMemoryHost, PrintsRecordsAndEveryOverBudgetReport) {
    int status = -1;
    const auto lines = runHostJson(
        std::string("--simulate 31m --snapshot-every 15m --providers ProcessMemoryStats --root ") + VISTREL_SOURCE_DIR +
            "/tests/data/processmemory --prop mobile_vistrel_memory_extended_collector=true",
        &status);
    ASSERT_EQ(status, 0);
    std::vector<json> records;
    std::vector<std::vector<std::string>> reports;
    for (const auto& line : lines) {
        if (line["event"] == "record") records.push_back(line);
        if (line["event"] == "trigger-report") reports.push_back(line["annotations"]);
    }
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["timestampMs"], 900000);
    EXPECT_EQ(records[0]["processNames"], 9);
    ASSERT_EQ(records[0]["topByRss"].size(), 3u);
    EXPECT_EQ(records[0]["topByRss"][2]["name"], "/data/local/my");
    EXPECT_EQ(records[0]["topByRss"][2]["vmRssKb"], 5000);

    // Simulated memtrack: pid 400 gets the HAL's error (-1), pid 401 gets 512 KiB.
    const std::vector<std::string> over = {
        "threshold_current_value:10240", "includes_memtrack:false", "rss_anon_plus_swap_kib:10240",
        "memtrack_pss_kib:-1", "threshold_units:RSS_anon_plus_swap_KB"};
    const std::vector<std::string> under = {
        "threshold_current_value:10751", "includes_memtrack:true", "rss_anon_plus_swap_kib:10239",
        "memtrack_pss_kib:512", "threshold_units:RSS_anon_plus_swap_plus_memtrack_KB"};
    EXPECT_THAT(reports, testing::UnorderedElementsAre(over, under, over, under));
}

}  // namespace
