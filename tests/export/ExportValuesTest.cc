// The exporter's readers of untrusted text and its value conversions that no Prometheus tool
// checks on its own: label values made valid UTF-8, RFC 3339 start times, listen addresses, and
// the don states of a packed batch.
#include <gtest/gtest.h>

#include "ExportOptions.h"
#include "MetricFamilies.h"
#include "ProviderMetrics.h"

namespace {

TEST(ExportValues, LabelValuesAreValidUtf8) {
    for (const std::string& valid :
         std::vector<std::string>{"system_server", "caf\xc3\xa9", "\xe2\x82\xac",
                                  "\xf0\x9d\x84\x9e", std::string("a\0b", 3)}) {
        EXPECT_EQ(metrics::labelValue(valid), valid);
    }
    const std::string r = "\xef\xbf\xbd";  // U+FFFD for each byte of a malformed sequence
    const std::pair<std::string, std::string> invalid[] = {
            {"a\x80z", "a" + r + "z"},            // stray continuation byte
            {"\xc0\x80", r + r},                  // overlong NUL
            {"\xed\xa0\x80", r + r + r},          // surrogate
            {"\xf5\x80\x80\x80", r + r + r + r},  // beyond U+10FFFF
            {"app\xe2\x82", "app" + r + r},       // cut at the end
    };
    for (const auto& [text, expected] : invalid) EXPECT_EQ(metrics::labelValue(text), expected);
}

TEST(ExportValues, StartTimesAreRfc3339FromTheEpochOn) {
    EXPECT_EQ(metrics::parseRfc3339("2024-05-01T00:00:00Z"), INT64_C(1714521600000));
    EXPECT_EQ(metrics::parseRfc3339("2024-05-01T02:30:00.25+02:30"), INT64_C(1714521600250));
    EXPECT_EQ(metrics::parseRfc3339("2024-02-29t23:59:59.9999-01:00"), INT64_C(1709254799999));
    EXPECT_EQ(metrics::parseRfc3339("1970-01-01T00:00:00Z"), 0);
    for (const char* bad : {"2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z", "2024-05-01T24:00:00Z",
                            "2024-05-01T00:00:00", "2024-05-01 00:00:00Z", "2024-05-01T00:00:00.Z",
                            "2024-05-01T00:00:00Z ", "1969-12-31T23:59:59Z",
                            "1970-01-01T00:00:00+00:01", "2024-5-01T00:00:00Z", ""}) {
        EXPECT_FALSE(metrics::parseRfc3339(bad)) << bad;
    }
}

TEST(ExportValues, ListenAddressesDefaultToLoopback) {
    std::string error;
    const std::pair<const char*, std::pair<const char*, int>> good[] = {
            {"9464", {"127.0.0.1", 9464}},
            {":0", {"127.0.0.1", 0}},
            {"0.0.0.0:80", {"0.0.0.0", 80}},
            {"[::1]:65535", {"[::1]", 65535}},
    };
    for (const auto& [text, expected] : good) {
        const auto address = metrics::parseListenAddress(text, &error);
        ASSERT_TRUE(address) << text;
        EXPECT_EQ(address->host, expected.first);
        EXPECT_EQ(address->port, expected.second);
    }
    for (const char* bad : {"", ":", "65536", "-1", "+80", "localhost:80", "::1:80", "[::1]",
                            "1.2.3:80", "127.0.0.1:", "[127.0.0.1]:80"}) {
        EXPECT_FALSE(metrics::parseListenAddress(bad, &error)) << bad;
    }
}

TEST(ExportValues, WornRatioCountsTheBatchsStatesOnly) {
    const auto worn = [](std::vector<int64_t> words, uint32_t bits, int32_t states) {
        const auto families = metrics::render(metrics::DonBatch{words, bits, states}, {});
        return families.empty() ? -1.0 : families[0].series[0].value;
    };
    EXPECT_DOUBLE_EQ(worn({0xffffffff, 0x1000ffff}, 1, 60), 48.0 / 60);  // bit 28: past 60
    EXPECT_DOUBLE_EQ(worn({0x000000ff, 0x3}, 4, 9), 3.0 / 9);            // 2 of 8 slots, then 1
    EXPECT_DOUBLE_EQ(worn({0xffffffff}, 32, 1), 1.0);
    EXPECT_EQ(worn({0xffffffff}, 3, 10), -1.0);  // slots that do not divide the word: left out
    EXPECT_EQ(worn({0xffffffff}, 0, 10), -1.0);
    EXPECT_EQ(worn({}, 1, 60), -1.0);
}

}  // namespace
