// The host platform layer's seams: file-system root, libc substitutes, properties, services,
// the power manager, and the simulated headset's scripts.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "Headset.h"
#include "SharedOsServicesProperties.sysprop.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Libc.h"
#include "hostplatform/Power.h"
#include "hostplatform/Properties.h"
#include "hostplatform/ServiceRegistry.h"
#include "seams/FsRoot.h"
#include "seams/Libc.h"
#include "vistrelcore/PowerManager.h"

namespace {

namespace props = halden::sysprop::SharedOsServicesProperties;

TEST(FsRoot, IdentityWithoutRootAndPrefixWithRoot) {
    seam::PathBuffer buf;
    hostplatform::setFsRoot("");
    EXPECT_STREQ(seam::path("/proc/meminfo", buf), "/proc/meminfo");

    hostplatform::setFsRoot("/tmp/tree/");  // a trailing slash is not doubled
    EXPECT_STREQ(seam::path("/proc/meminfo", buf), "/tmp/tree/proc/meminfo");
    EXPECT_EQ(hostplatform::fsRoot(), "/tmp/tree");
    hostplatform::setFsRoot("");
}

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

TEST(LibcSeam, SubstitutesAndRestores) {
    hostplatform::setStatvfs([](const char* path, struct statvfs* out) {
        *out = {};
        out->f_bsize = 4096;
        out->f_blocks = strcmp(path, "/data") == 0 ? 100 : 0;
        return 0;
    });
    hostplatform::setClockGettime([](clockid_t, timespec*) {
        errno = EINVAL;
        return -1;
    });
    hostplatform::setSysconf([](int) { return 0L; });

    struct statvfs st;
    ASSERT_EQ(seam::statvfs("/data", &st), 0);
    EXPECT_EQ(st.f_blocks, 100u);
    timespec ts;
    EXPECT_EQ(seam::clock_gettime(CLOCK_BOOTTIME, &ts), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(seam::sysconf(_SC_CLK_TCK), 0);

    hostplatform::resetLibc();
    EXPECT_EQ(seam::clock_gettime(CLOCK_BOOTTIME, &ts), 0);
    EXPECT_EQ(seam::sysconf(_SC_CLK_TCK), sysconf(_SC_CLK_TCK));
    EXPECT_EQ(seam::statvfs("/", &st), 0);
}

// Each accessor's reading of a raw text, rendered as text ("" for an empty optional).
std::string readAs(const std::string& name) {
    const auto show = [](const auto& value) {
        return value ? std::to_string(*value) : std::string();
    };
    if (name == "enable_fg_apps_cpu_events") return show(props::enable_fg_apps_cpu_events());
    if (name == "mobile_vistrel_zram_idle_collector")
        return show(props::mobile_vistrel_zram_idle_collector());
    if (name == "mobile_vistrel_memory_extended_collector") {
        return show(props::mobile_vistrel_memory_extended_collector());
    }
    if (name == "mobile_vistrel_zram_idle_threshold")
        return show(props::mobile_vistrel_zram_idle_threshold());
    if (name == "mobile_vistrel_zram_idle_histo_bucket") {
        return show(props::mobile_vistrel_zram_idle_histo_bucket());
    }
    return show(props::vistrel_instruction_sampler_sampling_period_us());
}

TEST(Properties, ParseAsTheGeneratedAccessorsDoAndReadBadTextAsEmpty) {
    const struct {
        const char* name;
        const char* text;  // nullptr: unset
        const char* read;
    } cases[] = {
            {"mobile_vistrel_zram_idle_collector", nullptr, ""},
            {"mobile_vistrel_zram_idle_collector", "", ""},
            {"mobile_vistrel_zram_idle_collector", "yes", ""},
            {"enable_fg_apps_cpu_events", "TRUE", "1"},
            {"mobile_vistrel_memory_extended_collector", "0", "0"},
            {"mobile_vistrel_zram_idle_threshold", "-300", "-300"},
            {"mobile_vistrel_zram_idle_threshold", "12abc", ""},
            {"mobile_vistrel_zram_idle_histo_bucket", "0x10", "16"},
            {"mobile_vistrel_zram_idle_histo_bucket", "010", "10"},  // decimal, not octal
            {"mobile_vistrel_zram_idle_histo_bucket", "-0x10", ""},  // hex only after a bare 0x
            {"mobile_vistrel_zram_idle_histo_bucket", "2147483648", ""},
            {"vistrel_instruction_sampler_sampling_period_us", "4294967295", "4294967295"},
            {"vistrel_instruction_sampler_sampling_period_us", "-5", ""},
    };
    for (const auto& c : cases) {
        hostplatform::clearProperties();
        if (c.text != nullptr) hostplatform::setProperty(c.name, c.text);
        EXPECT_EQ(readAs(c.name), c.read) << c.name << "=" << (c.text ? c.text : "(unset)");
    }
}

struct IFake : virtual public android::RefBase {
    static const char* descriptor;
    virtual int answer() = 0;
};
const char* IFake::descriptor = "test.IFake";

struct Fake : IFake {
    explicit Fake(int a, bool* destroyed = nullptr) : a(a), destroyed(destroyed) {}
    ~Fake() override {
        if (destroyed) *destroyed = true;
    }
    int answer() override { return a; }
    int a;
    bool* destroyed;
};

TEST(ServiceRegistry, LookupRegisterReplaceUnregister) {
    hostplatform::clearServices();
    EXPECT_EQ(hostplatform::findService<IFake>("default"), nullptr);

    bool firstDestroyed = false;
    hostplatform::addService<IFake>("default", android::sp<IFake>(new Fake(1, &firstDestroyed)));
    ASSERT_NE(hostplatform::findService<IFake>("default"), nullptr);
    EXPECT_EQ(hostplatform::findService<IFake>("default")->answer(), 1);
    EXPECT_EQ(hostplatform::findService<IFake>("other"), nullptr);

    hostplatform::addService<IFake>("default", android::sp<IFake>(new Fake(2)));
    EXPECT_TRUE(firstDestroyed) << "a replaced implementation is released";
    EXPECT_EQ(hostplatform::findService<IFake>("default")->answer(), 2);

    android::sp<IFake> held = hostplatform::findService<IFake>("default");
    EXPECT_TRUE(hostplatform::removeService<IFake>("default"));
    EXPECT_FALSE(hostplatform::removeService<IFake>("default"));
    EXPECT_EQ(hostplatform::findService<IFake>("default"), nullptr);
    EXPECT_EQ(held->answer(), 2) << "a client's reference outlives unregistration";
}

TEST(PowerManager, DefaultInstanceAnswersTheInstalledSource) {
    Vistrel::PowerManager manager;
    hostplatform::resetInteractiveSource();
    EXPECT_TRUE(manager.getIsInteractive());
    hostplatform::setInteractiveSource([] { return false; });
    EXPECT_FALSE(manager.getIsInteractive());
    hostplatform::resetInteractiveSource();
}

TEST(SimHeadset, InteractiveScriptCyclesAndDrivesThePowerManager) {
    const int64_t minute = INT64_C(60000000000);
    const auto script = sim::InteractiveScript::defaults();
    EXPECT_TRUE(script.at(0));
    EXPECT_TRUE(script.at(40 * minute - 1));
    EXPECT_FALSE(script.at(40 * minute));
    EXPECT_TRUE(script.at(60 * minute));
    EXPECT_EQ(script.nextChangeAfter(0), 40 * minute);
    EXPECT_EQ(script.nextChangeAfter(40 * minute), 60 * minute);
    EXPECT_FALSE(sim::InteractiveScript({{60 * minute, true}}).nextChangeAfter(0));

    int64_t now = 0;
    sim::HeadsetConfig config;
    config.interactive = script;
    {
        sim::Headset headset(config, [&] { return now; });
        Vistrel::PowerManager manager;
        EXPECT_TRUE(manager.getIsInteractive());
        now = 45 * minute;
        EXPECT_FALSE(manager.getIsInteractive());
        const auto events = headset.nextEventsAfter(now);
        ASSERT_FALSE(events.empty());
        EXPECT_EQ(events.front().atNs, 60 * minute);
        EXPECT_EQ(events.front().name, "ScreenOn");
    }
    Vistrel::PowerManager manager;
    EXPECT_TRUE(manager.getIsInteractive()) << "a destroyed headset withdraws its source";
}

}  // namespace
