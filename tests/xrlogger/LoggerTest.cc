#include "xrlogger/Logger.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

namespace {

struct Mapping {
    int32_t severity;
    int priority;
};

class LoggerPriority : public ::testing::TestWithParam<Mapping> {};

TEST_P(LoggerPriority, MapsSeverityToAndroidPriority) {
    logcapture::clear();
    xrlogger::Log(static_cast<xrlogger::LoggingSeverity>(GetParam().severity), "Vistrel", "message");
    ASSERT_EQ(logcapture::entries().size(), 1u);
    EXPECT_EQ(logcapture::entries()[0].priority, GetParam().priority);
}

// Debug (3) is never produced; anything outside 0..4 (compared unsigned) is UNKNOWN (0).
INSTANTIATE_TEST_SUITE_P(
        AllSeverities, LoggerPriority,
        ::testing::Values(Mapping{0, ANDROID_LOG_VERBOSE}, Mapping{1, ANDROID_LOG_INFO},
                          Mapping{2, ANDROID_LOG_WARN}, Mapping{3, ANDROID_LOG_ERROR},
                          Mapping{4, ANDROID_LOG_FATAL}, Mapping{5, ANDROID_LOG_UNKNOWN},
                          Mapping{100, ANDROID_LOG_UNKNOWN}, Mapping{-1, ANDROID_LOG_UNKNOWN},
                          Mapping{INT32_MIN, ANDROID_LOG_UNKNOWN}));

TEST(Logger, PassesTheTextThrough) {
    logcapture::clear();
    xrlogger::Log(xrlogger::ERROR, xrlogger::kTag, "fopen %s: %s", "/sys/x", "No such file");
    xrlogger::Log(xrlogger::INFO, "Other", "BatteryStats: force sampled in snapshot");
    const auto lines = logcapture::entries();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              (logcapture::Entry{ANDROID_LOG_ERROR, "Vistrel", "fopen /sys/x: No such file"}));
    EXPECT_EQ(lines[1].tag, "Other");
    EXPECT_EQ(lines[1].text, "BatteryStats: force sampled in snapshot");
}

}  // namespace
