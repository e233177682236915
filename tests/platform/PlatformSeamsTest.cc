// The host platform layer's seams that the reference host and captured trees rely on: the
// file-system root and the property store's parsing.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <tuple>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "SharedOsServicesProperties.sysprop.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"
#include "seams/FsRoot.h"

namespace {

namespace props = halden::sysprop::SharedOsServicesProperties;

TEST(FsRoot, TooLongResultIsUnopenableRatherThanTruncated) {
    hostplatform::setFsRoot("/" + std::string(PATH_MAX - 10, 'r'));
    seam::PathBuffer buf;
    const char* resolved = seam::path("/proc/12345/status", buf);
    EXPECT_STREQ(resolved, "");
    EXPECT_EQ(open(resolved, O_RDONLY), -1);
    hostplatform::setFsRoot("");
}

TEST(FsRoot, ReadsTheEnvironmentWhenThePlatformLoads) {
    // Re-run this executable with the variable set; the child prints what /proc resolves to.
    if (const char* probe = getenv("VISTREL_FSROOT_PROBE")) {
        seam::PathBuffer buf;
        std::ofstream(probe) << seam::path("/proc", buf);
        std::_Exit(0);
    }
    const std::string out = ::testing::TempDir() + "fsroot_probe.txt";
    char self[PATH_MAX] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
    const std::string command =
            "VISTREL_FSROOT_PROBE=" + out + " VISTREL_FS_ROOT=/captured " +
            testing_support::commandToRun(self) +
            " --gtest_filter=FsRoot.ReadsTheEnvironmentWhenThePlatformLoads >/dev/null";
    ASSERT_EQ(system(command.c_str()), 0) << command;
    std::string seen;
    std::getline(std::ifstream(out), seen);
    EXPECT_EQ(seen, "/captured/proc");
}

// Each accessor's reading, as text ("" for an empty optional), by property name.
std::map<std::string, std::string> readings() {
    const auto show = [](const auto& value) {
        return value ? std::to_string(*value) : std::string();
    };
    using namespace props;
    return {{"enable_fg_apps_cpu_events", show(enable_fg_apps_cpu_events())},
            {"mobile_vistrel_zram_idle_collector", show(mobile_vistrel_zram_idle_collector())},
            {"mobile_vistrel_memory_extended_collector",
             show(mobile_vistrel_memory_extended_collector())},
            {"mobile_vistrel_zram_idle_threshold", show(mobile_vistrel_zram_idle_threshold())},
            {"mobile_vistrel_zram_idle_histo_bucket", show(mobile_vistrel_zram_idle_histo_bucket())},
            {"vistrel_instruction_sampler_sampling_period_us",
             show(vistrel_instruction_sampler_sampling_period_us())}};
}

TEST(Properties, ParseAsTheGeneratedAccessors) {
    // Name, raw text (nullptr: unset), reading.
    const std::tuple<const char*, const char*, const char*> cases[] = {
            {"mobile_vistrel_zram_idle_collector", nullptr, ""},
            {"mobile_vistrel_zram_idle_collector", "yes", ""},
            {"enable_fg_apps_cpu_events", "TRUE", "1"},
            {"mobile_vistrel_memory_extended_collector", "0", "0"},
            {"mobile_vistrel_zram_idle_threshold", "12abc", ""},
            {"mobile_vistrel_zram_idle_histo_bucket", "0x10", "16"},
            {"mobile_vistrel_zram_idle_histo_bucket", "010", "10"},  // decimal, not octal
            {"mobile_vistrel_zram_idle_histo_bucket", "2147483648", ""},
            {"vistrel_instruction_sampler_sampling_period_us", "-5", ""},
    };
    for (const auto& [name, text, read] : cases) {
        hostplatform::clearProperties();
        if (text != nullptr) hostplatform::setProperty(name, text);
        EXPECT_EQ(readings().at(name), read) << name << "=" << (text ? text : "(unset)");
    }
}

}  // namespace
