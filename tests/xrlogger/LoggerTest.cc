#include "xrlogger/Logger.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

namespace {

// Debug (3) is never produced; anything outside 0..4 (compared unsigned) is UNKNOWN (0).
TEST(Logger, MapsSeverityToAndroidPriority) {
    const std::pair<int32_t, int> mappings[] = {
            {0, ANDROID_LOG_VERBOSE},        {1, ANDROID_LOG_INFO},
            {2, ANDROID_LOG_WARN},           {3, ANDROID_LOG_ERROR},
            {4, ANDROID_LOG_FATAL},          {5, ANDROID_LOG_UNKNOWN},
            {100, ANDROID_LOG_UNKNOWN},      {-1, ANDROID_LOG_UNKNOWN},
            {INT32_MIN, ANDROID_LOG_UNKNOWN}};
    for (const auto& [severity, priority] : mappings) {
        logcapture::clear();
        xrlogger::Log(static_cast<xrlogger::LoggingSeverity>(severity), "Vistrel", "message");
        ASSERT_EQ(logcapture::entries().size(), 1u) << severity;
        EXPECT_EQ(logcapture::entries()[0].priority, priority) << severity;
    }
}

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
