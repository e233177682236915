// Simulated days of every provider in the reference host (a month in the plain build, a few in the
// sanitizer and arm64 builds: VISTREL_SOAK_DAYS) against the simulated headset,
// its kernel files included (applications started and killed, pids wrapping around): the heap in
// use after the first day grows by at most 1 MiB, open file descriptors and threads stay as they
// were, every heartbeat still arrives on its period on the last day, and the kernel tree is gone
// afterwards. Label "soak".
#include <malloc.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Headset.h"
#include "Host.h"
#include "LogCapture.h"
#include "Sanitizers.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"

#if VISTREL_SANITIZED_HEAP
// The sanitizer runtime's allocator statistics (g++ ships no header for them).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

constexpr int64_t kSecondNs = INT64_C(1000000000);
constexpr int64_t kMinuteNs = 60 * kSecondNs;
constexpr int64_t kHourNs = 60 * kMinuteNs;
constexpr int64_t kDayNs = 24 * kHourNs;
constexpr int kDays = VISTREL_SOAK_DAYS;
static_assert(kDays >= 2, "the soak compares later days with the first");

size_t heapInUse() {
#if VISTREL_SANITIZED_HEAP
    return __sanitizer_get_current_allocated_bytes();  // the sanitizer's allocator, not malloc's
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

size_t entriesOf(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

struct Checkpoint {
    size_t heap, descriptors, threads;
};

TEST(Soak, DaysOfEveryProviderKeepHeapDescriptorsThreadsAndCadence) {
    hostplatform::setProperty("enable_fg_apps_cpu_events", "true");  // as the host does
    const std::map<std::string, int64_t> periods = {
            {"ThermalHeartbeat", 2 * kMinuteNs}, {"SystemMemoryInfo", 5 * kMinuteNs},
            {"ZramHeartbeat", 15 * kMinuteNs},   {"ProcessMemoryInfo", 15 * kMinuteNs},
            {"SwapHeartbeat", kHourNs},          {"StorageHeartbeat", kHourNs},
            {"SystemStateStats", kHourNs},       {"ProcessCpuHeartbeat", 5 * kMinuteNs},
    };
    std::map<std::string, std::vector<int64_t>> lastDay;  // notification times, by name
    for (const auto& [name, period] : periods) lastDay[name].reserve(kDayNs / period + 1);
    std::vector<Checkpoint> checkpoints;
    checkpoints.reserve(kDays);
    std::vector<std::string> refused;  // providers that could not acquire their resources
    std::string tree;                  // the headset's kernel tree while it lives

    FILE* sink = fopen("/dev/null", "w");
    ASSERT_NE(sink, nullptr);
    {
        host::HostClock clock(host::HostClock::Mode::Simulated);
        host::Output output(sink, false, [&clock] { return clock.deviceNs(); });
        output.observe([&lastDay, &periods, &refused](const host::Line& line) {
            if (line.event == "acquire" && line.fields["ok"] != true)
                refused.push_back(line.source);
            if (line.event != "notification" || line.deviceNs <= (kDays - 1) * kDayNs) return;
            const std::string name = line.fields["name"];
            if (periods.count(name)) lastDay[name].push_back(line.deviceNs);
        });
        sim::HeadsetConfig config;
        config.kernelFiles = sim::HeadsetConfig::KernelFiles::Simulated;
        sim::Headset headset(config, [&clock] { return clock.deviceNs(); });
        tree = hostplatform::fsRoot();
        host::Host host(clock, output, headset, host::makeProviders({}, {}), kHourNs);
        for (int day = 1; day <= kDays; ++day) {
            host.callAt(day * kDayNs, [&checkpoints] {
                logcapture::clear();  // the test's own record of log lines
                checkpoints.push_back(
                        {heapInUse(), entriesOf("/proc/self/fd"), entriesOf("/proc/self/task")});
            });
        }
        ASSERT_EQ(host.run(kDays * kDayNs), 0);
    }
    fclose(sink);

    EXPECT_TRUE(refused.empty()) << refused.front() << " did not acquire";
    EXPECT_FALSE(tree.empty() || std::filesystem::exists(tree)) << tree;
    ASSERT_EQ(checkpoints.size(), static_cast<size_t>(kDays));
    const Checkpoint& first = checkpoints.front();
    EXPECT_LE(static_cast<int64_t>(checkpoints.back().heap) - static_cast<int64_t>(first.heap),
              INT64_C(1) << 20)
            << "heap in use on day 1: " << first.heap << " bytes";
    for (int day = 1; day <= kDays; ++day) {
        EXPECT_EQ(checkpoints[day - 1].descriptors, first.descriptors) << "day " << day;
        EXPECT_EQ(checkpoints[day - 1].threads, first.threads) << "day " << day;
    }
    for (const auto& [name, period] : periods) {
        std::vector<int64_t> expected;
        for (int64_t at = (kDays - 1) * kDayNs + period; at <= kDays * kDayNs; at += period) {
            expected.push_back(at);
        }
        EXPECT_EQ(lastDay[name], expected) << name << " on day " << kDays;
    }
}

}  // namespace
