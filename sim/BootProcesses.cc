#include "BootProcesses.h"

#include <iterator>
#include <string_view>

#include "Seed.h"

namespace sim {
namespace {

using namespace std::string_view_literals;

constexpr int64_t kSecondNs = INT64_C(1000000000);
constexpr int64_t kMinuteNs = 60 * kSecondNs;
constexpr uint32_t kSystemUid = 1000;
constexpr uint32_t kFirstAppUid = 10000;
constexpr int kCpus = 8;

struct ThreadRow {
    int32_t offset;    // tid - pid
    const char* name;  // nullptr: the main thread, named by the process
    ThreadLoad load;
    double busyInUse, busyIdle;
    std::vector<int> cpus;
    const char* feature;
};

// The CPUs as a mask, bit i for CPU i.
uint32_t cpuMask(const std::vector<int>& cpus) {
    uint32_t mask = 0;
    for (const int cpu : cpus) mask |= 1u << cpu;
    return mask;
}

ThreadRow fixed(int32_t offset, const char* name, double inUse, double idle, std::vector<int> cpus,
                const char* feature = "") {
    return {offset, name, ThreadLoad::Fixed, inUse, idle, std::move(cpus), feature};
}

ThreadRow mainThread(double inUse, double idle, std::vector<int> cpus = {0, 1, 2, 3}) {
    return fixed(0, nullptr, inUse, idle, std::move(cpus));
}

// A process of the boot table; memory in MiB, its start in seconds after boot.
struct Boot {
    int32_t pid, ppid;
    ProcessKind kind;
    std::string_view cmdline;
    const char* comm;
    int32_t oom;
    uint32_t uid;
    double startS, anonMb, fileMb, shmemMb, vmSizeMb, vmLibMb;
    std::vector<ThreadRow> threads;
};

const std::vector<Boot>& bootTable() {
    constexpr auto N = ProcessKind::Native;
    constexpr auto S = ProcessKind::System;
    constexpr uint32_t root = 0, sys = kSystemUid;
    // clang-format off
    static const auto* table = new std::vector<Boot>{
        {1, 0, N, "/system/bin/init\0second_stage\0"sv, "init", -1000, root,
         0.3, 2.2, 3.5, 0.4, 134, 3.0, {mainThread(0.0006, 0.0006)}},
        {180, 1, N, "/system/bin/ueventd\0"sv, "ueventd", -1000, root,
         0.6, 1.1, 2.3, 0.1, 40, 2.1, {mainThread(0, 0)}},
        {260, 1, N, "/system/bin/logd\0"sv, "logd", -1000, 1036,
         1.0, 4.2, 3.5, 0.2, 60, 2.9,
         {mainThread(0.001, 0.001), fixed(1, "logd.writer", 0.012, 0.004, {0, 1}),
          fixed(2, "logd.reader.per", 0.003, 0.001, {0})}},
        {270, 1, N, "/system/bin/lmkd\0"sv, "lmkd", -1000, 1069,
         1.1, 1.0, 1.8, 0.1, 30, 1.9, {mainThread(0.001, 0.001)}},
        {280, 1, N, "/system/bin/servicemanager\0"sv, "servicemanager", -1000, sys,
         1.2, 1.4, 3.0, 0.2, 35, 2.4, {mainThread(0.004, 0.002)}},
        {281, 1, N, "/system/bin/hwservicemanager\0"sv, "hwservicemanage", -1000, sys,
         1.2, 1.6, 3.4, 0.2, 36, 2.6, {mainThread(0.003, 0.001)}},
        {300, 1, N,
         "/system/bin/vold\0--blkid_context=u:r:blkid:s0\0--fsck_context=u:r:fsck:s0\0"sv,
         "vold", -1000, root, 1.5, 3.1, 5.1, 0.2, 70, 4.0, {mainThread(0.0005, 0.0005)}},
        {420, 1, N, "/vendor/bin/hw/android.hardware.health@2.1-service\0"sv,
         "android.hardwar", -1000, sys, 2.0, 1.9, 3.7, 0.1, 40, 3.1, {mainThread(0.001, 0.001)}},
        {430, 1, N, "/vendor/bin/hw/android.hardware.thermal@2.0-service\0"sv,
         "android.hardwar", -1000, sys, 2.0, 2.0, 4.0, 0.1, 41, 3.2, {mainThread(0.002, 0.002)}},
        {440, 1, N, "/vendor/bin/hw/android.hardware.power-service\0"sv, "android.hardwar",
         -1000, sys, 2.1, 1.5, 3.1, 0.1, 38, 2.8, {mainThread(0.001, 0.0005)}},
        {450, 1, N, "/vendor/bin/hw/android.hardware.graphics.composer@2.4-service\0"sv,
         "android.hardwar", -1000, sys, 2.1, 9.0, 21.0, 1.2, 160, 12.0,
         {mainThread(0.002, 0.001), fixed(3, "hwc_vsync", 0.03, 0.004, {0, 1})}},
        {460, 1, N, "/vendor/bin/hw/android.hardware.audio.service\0"sv, "android.hardwar",
         -1000, 1041, 2.2, 6.0, 12.0, 0.8, 90, 9.0,
         {mainThread(0.001, 0.001), fixed(4, "AudioOut_D", 0.06, 0.03, {0}, "audio")}},
        {500, 1, N, "/system/bin/surfaceflinger\0"sv, "surfaceflinger", -1000, sys,
         2.5, 22, 46, 2.5, 2100, 24,
         {mainThread(0.02, 0.004), fixed(6, "RenderEngine", 0.03, 0, {4}, "render"),
          fixed(8, "binder:500_2", 0.004, 0.002, {2})}},
        {520, 1, N, "/vendor/bin/xrcompositor\0--display\0primary\0"sv, "xrcompositor", -1000,
         sys, 2.6, 95, 120, 8.0, 2600, 40,
         {mainThread(0.01, 0.002, {0}), fixed(3, "compositor", 0.45, 0.08, {4, 5}, "render"),
          fixed(4, "timewarp", 0.10, 0, {6}, "render")}},
        {540, 1, N, "/vendor/bin/trackingd\0"sv, "trackingd", -1000, sys,
         2.8, 120, 80, 4.0, 1800, 35,
         {mainThread(0.005, 0.002), fixed(2, "SensorFusion", 0.15, 0.12, {1, 2}, "tracking"),
          fixed(3, "HandTracking", 0.20, 0, {3}, "tracking"),
          {5, "CameraIngest", ThreadLoad::Passthrough, 0.22, 0, {2, 3}, "passthrough"}}},
        {560, 1, N, "/system/bin/audioserver\0"sv, "audioserver", -1000, 1041,
         3.0, 9.0, 13, 0.6, 110, 10, {mainThread(0.004, 0.002)}},
        {570, 1, N, "/system/bin/cameraserver\0"sv, "cameraserver", -1000, 1047,
         3.0, 7.0, 12, 0.4, 95, 9.0, {mainThread(0.002, 0.0005)}},
        {580, 1, N, "/system/bin/netd\0"sv, "netd", -1000, root,
         3.1, 5.0, 8.0, 0.3, 80, 5.0, {mainThread(0.001, 0.001)}},
        {590, 1, N, "/apex/com.android.os.statsd/bin/statsd\0"sv, "statsd", -1000, 1066,
         3.2, 4.0, 6.0, 0.2, 60, 4.0, {mainThread(0.002, 0.001)}},
        {600, 1, N, "/system/bin/installd\0"sv, "installd", -1000, root,
         3.2, 2.0, 4.0, 0.1, 40, 3.0, {mainThread(0, 0)}},
        {650, 1, N, "zygote64\0"sv, "zygote64", -1000, root,
         3.5, 28, 70, 3.0, 5600, 110, {mainThread(0, 0)}},
        {652, 1, N, "zygote\0"sv, "zygote", -1000, root,
         3.5, 16, 44, 2.0, 1600, 80, {mainThread(0, 0)}},
        {1100, 650, S, "system_server\0"sv, "system_server", -900, sys,
         9.0, 170, 190, 12, 6800, 120,
         {mainThread(0.005, 0.002), fixed(5, "binder:1100_1", 0.015, 0.006, {2}),
          fixed(6, "binder:1100_2", 0.012, 0.005, {3}),
          fixed(9, "android.display", 0.01, 0.002, {0, 1}),
          fixed(11, "InputReader", 0.015, 0.001, {1}, "input"),
          fixed(12, "InputDispatcher", 0.01, 0.001, {1}, "input"),
          fixed(14, "ActivityManager", 0.005, 0.002, {0, 1, 2, 3})}},
        {1300, 650, S, "com.halden.systemui\0"sv, "halden.systemui", -800, kSystemUid + 10,
         14, 80, 110, 4.0, 5200, 95,
         {mainThread(0.01, 0.001), fixed(8, "RenderThread", 0.02, 0, {5}, "render")}},
        {1340, 650, S, "com.halden.guardian\0"sv, "halden.guardian", -800, kSystemUid + 11,
         15, 45, 60, 2.0, 4900, 85,
         {mainThread(0.004, 0.001), fixed(6, "GuardianCheck", 0.03, 0, {2}, "tracking")}},
        {1380, 650, S, "com.android.bluetooth\0"sv, "droid.bluetooth", -800, 1002,
         15, 30, 50, 1.5, 4800, 80, {mainThread(0.002, 0.002)}},
        {1420, 650, S, "com.halden.companion\0"sv, "alden.companion", 200, kFirstAppUid + 12,
         20, 35, 45, 1.0, 4800, 80, {mainThread(0.004, 0.004)}},
    };
    // clang-format on
    return *table;
}

// Kernel threads of every headset: names, with kswapd0 doing the page reclaim.
std::vector<SimProcess> kernelThreads() {
    std::vector<SimProcess> threads;
    const auto add = [&threads](int32_t pid, std::string name, ThreadRow row) {
        SimProcess p;
        p.pid = pid;
        p.ppid = pid == 2 ? 0 : 2;
        p.kind = ProcessKind::Kernel;
        p.comm = std::move(name);
        p.startNs = 0;
        p.threads.push_back(
                {pid, p.comm, row.load, row.busyInUse, row.busyIdle, cpuMask(row.cpus), ""});
        threads.push_back(std::move(p));
    };
    add(2, "kthreadd", mainThread(0, 0));
    for (int cpu = 0; cpu < kCpus; ++cpu) {
        add(12 + 4 * cpu, "migration/" + std::to_string(cpu), mainThread(0, 0, {cpu}));
        add(13 + 4 * cpu, "ksoftirqd/" + std::to_string(cpu), mainThread(0.004, 0.001, {cpu}));
    }
    for (const auto& [pid, name] :
         std::vector<std::pair<int32_t, const char*>>{{3, "rcu_gp"},
                                                      {4, "rcu_par_gp"},
                                                      {9, "mm_percpu_wq"},
                                                      {10, "rcu_preempt"},
                                                      {50, "kdevtmpfs"},
                                                      {55, "oom_reaper"},
                                                      {56, "writeback"},
                                                      {60, "kcompactd0"},
                                                      {70, "kblockd"},
                                                      {96, "kworker/u16:1"}}) {
        add(pid, name, mainThread(0, 0));
    }
    add(80, "kswapd0", {0, nullptr, ThreadLoad::Reclaim, 0, 0, {0, 1, 2, 3}, ""});
    add(95, "kworker/u16:2", mainThread(0.01, 0.004));
    add(110, "irq/204-display", mainThread(0.01, 0, {0}));
    return threads;
}

// How far a seed moves the pids of the daemons, as boots do.
int32_t pidShift(uint64_t seed) {
    return seed == 0 ? 0 : static_cast<int32_t>(SeededNumbers(seed, "pids").next() % 8);
}

// A process of the boot table; its memory within 10 % of the table's, as the seed draws it.
SimProcess fromBoot(const Boot& b, uint64_t seed) {
    const int32_t shift = pidShift(seed);
    SeededNumbers numbers(seed, std::string(b.cmdline));
    const auto mem = [&](double mb) { return mb * 1024 * numbers.uniform(0.9, 1.1); };
    SimProcess p;
    p.pid = b.pid == 1 ? 1 : b.pid + shift;
    p.ppid = b.ppid <= 1 ? b.ppid : b.ppid + shift;
    p.kind = b.kind;
    p.cmdline = std::string(b.cmdline);
    p.comm = b.comm;
    p.uid = b.uid;
    p.oomScoreAdj = b.oom;
    p.startNs = static_cast<int64_t>(b.startS * kSecondNs);
    p.anonKb = mem(b.anonMb);
    p.fileKb = mem(b.fileMb);
    p.shmemKb = b.shmemMb * 1024;
    p.peakRssKb = p.rssKb();
    p.vmSizeKb = b.vmSizeMb * 1024;
    p.vmLibKb = b.vmLibMb * 1024;
    p.vmExeKb = 48;
    for (const ThreadRow& t : b.threads) {
        p.threads.push_back({p.pid + t.offset, t.name ? t.name : p.comm, t.load, t.busyInUse,
                             t.busyIdle, cpuMask(t.cpus), t.feature});
    }
    return p;
}

// The last 15 characters of an application's name, as Android names its process.
std::string appComm(const std::string& name) {
    return name.size() > 15 ? name.substr(name.size() - 15) : name;
}

AppProfile appProfile(const std::string& name, uint64_t seed) {
    SeededNumbers numbers(seed, "app " + name);
    AppProfile profile;
    profile.baseAnonKb = numbers.uniform(90, 200) * 1024;
    profile.capAnonKb = profile.baseAnonKb + numbers.uniform(250, 650) * 1024;
    profile.growthKbPerMin = numbers.uniform(3, 14) * 1024;
    profile.workingSetKb = numbers.uniform(80, 220) * 1024;
    profile.writesKbPerMin = numbers.uniform(200, 2000);
    profile.cachedLifetimeNs = static_cast<int64_t>(numbers.uniform(15, 45)) * kMinuteNs;
    return profile;
}

}  // namespace

std::vector<SimProcess> bootProcesses(uint64_t seed) {
    std::vector<SimProcess> processes = kernelThreads();
    for (const Boot& b : bootTable()) processes.push_back(fromBoot(b, seed));
    // Applications the system started and cached at boot: only low memory ends them.
    for (const auto& [pid, name] : std::vector<std::pair<int32_t, std::string>>{
                 {1460, "com.halden.store"}, {1500, "com.halden.mediaprovider"}}) {
        processes.push_back(appProcess(name, pid + pidShift(seed), seed, 25 * kSecondNs));
        processes.back().app->profile.cachedLifetimeNs = 0;
    }
    return processes;
}

std::vector<SimProcess> dormantProcesses(size_t count, int32_t firstPid) {
    static const char* const kHals[] = {"camera.provider@2.7-service",
                                        "gnss-service",
                                        "wifi@1.0-service",
                                        "vibrator-service",
                                        "light-service",
                                        "usb-service",
                                        "memtrack-service",
                                        "gatekeeper@1.0-service",
                                        "keymint-service",
                                        "drm-service.clearkey",
                                        "media.c2@1.2-service",
                                        "bluetooth@1.1-service",
                                        "boot@1.2-service",
                                        "sensors@2.1-service",
                                        "neuralnetworks-service",
                                        "input.processor-service"};
    std::vector<SimProcess> processes;
    for (size_t i = 0; i < count; ++i) {
        SimProcess p;
        p.pid = firstPid + static_cast<int32_t>(10 * i);
        p.ppid = 1;
        p.startNs = 2 * kSecondNs;
        if (i < std::size(kHals)) {
            p.kind = ProcessKind::Native;
            p.cmdline = std::string("/vendor/bin/hw/android.hardware.") + kHals[i] + '\0';
            p.comm = "android.hardwar";
            p.uid = kSystemUid;
            p.oomScoreAdj = -1000;
            p.anonKb = 1400 + 100 * static_cast<double>(i);
            p.fileKb = 3200;
            p.vmSizeKb = 40000;
            p.vmLibKb = 3000;
            p.vmExeKb = 48;
            p.peakRssKb = p.rssKb();
        } else {
            p.kind = ProcessKind::Kernel;
            p.ppid = 2;
            p.comm = "kworker/" + std::to_string(i % kCpus) + ":" + std::to_string(i / kCpus);
        }
        p.threads.push_back({p.pid, p.comm, ThreadLoad::Fixed, 0, 0, 1u, ""});
        processes.push_back(std::move(p));
    }
    return processes;
}

SimProcess appProcess(const std::string& name, int32_t pid, uint64_t seed, int64_t nowNs) {
    SimApp app{name, appProfile(name, seed), -1, nowNs};
    SeededNumbers numbers(seed, "threads " + name);
    const double mainBusy = numbers.uniform(0.25, 0.70);
    const double renderBusy = numbers.uniform(0.15, 0.40);
    SimProcess p;
    p.pid = pid;
    p.kind = ProcessKind::App;
    p.cmdline = name + '\0';
    p.comm = appComm(name);
    p.uid = kFirstAppUid + 100 + static_cast<uint32_t>(std::hash<std::string>()(name) % 800);
    p.startNs = nowNs;
    p.anonKb = app.profile.baseAnonKb;
    p.fileKb = app.profile.workingSetKb * 0.3;
    p.shmemKb = 1024;
    p.peakRssKb = p.rssKb();
    p.vmSizeKb = 5.2 * 1024 * 1024;
    p.vmLibKb = 110 * 1024;
    p.vmExeKb = 32;
    const auto thread = [&](int32_t offset, std::string threadName, double busy,
                            std::vector<int> cpus, std::string feature = "") {
        p.threads.push_back({pid + offset, std::move(threadName), ThreadLoad::App, busy, 0,
                             cpuMask(cpus), std::move(feature)});
    };
    thread(0, p.comm, mainBusy, {6, 7});
    thread(2, "HeapTaskDaemon", 0.02, {0, 1, 2, 3});
    thread(4, "Jit thread pool", 0.01, {0, 1, 2, 3});
    thread(6, "binder:" + std::to_string(pid) + "_1", 0.01, {2, 3});
    thread(8, "RenderThread", renderBusy, {5, 6}, "render");
    thread(9, "hwuiTask0", 0, {5});
    p.app = std::move(app);
    return p;
}

}  // namespace sim
