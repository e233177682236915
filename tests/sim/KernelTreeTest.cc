// The simulated headset's kernel files read by the library's own readers and providers: every
// file parses, the records describe the same headset as the focus script and the instruction
// sampler, and the tree goes with the headset. Runs the SDK modules in process (LD_LIBRARY_PATH
// set by CTest).
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "CpuStats.h"
#include "FakeClock.h"
#include "Headset.h"
#include "ProcessMemoryStats.h"
#include "StorageStats.h"
#include "SwapWriteStats.h"
#include "SystemMemoryStats.h"
#include "ZramStats.h"
#include "hostplatform/FsRoot.h"
#include "procfsutils/ProcFsParser.h"

namespace {

constexpr int64_t kSecondNs = INT64_C(1000000000);
constexpr int64_t kMinuteNs = 60 * kSecondNs;

// A headset with its own kernel files, whose device time the test moves.
struct SimulatedHeadset {
    explicit SimulatedHeadset(sim::HeadsetConfig config = {})
        : headset(withTree(std::move(config)), [this] { return nowNs; }) {}
    static sim::HeadsetConfig withTree(sim::HeadsetConfig config) {
        config.kernelFiles = sim::HeadsetConfig::KernelFiles::Simulated;
        return config;
    }
    void at(int64_t ns) {
        nowNs = ns;
        clock.elapsed = clock.now = ns;
        headset.settle();
    }
    // The process memory records now, by name.
    std::map<std::string, Vistrel::ProcessMemorySnapshot> processes() {
        Vistrel::ProcessMemoryStats stats;
        stats.sample(clock);
        return stats.snapshots;
    }
    int64_t nowNs = 0;
    testing_support::FakeClock clock;
    sim::Headset headset;
};

std::string fileText(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(KernelTree, FilesParseWithTheLibraryReadersAndGoWithTheHeadset) {
    std::string root;
    {
        SimulatedHeadset h;
        h.at(50 * kMinuteNs);  // the game has been cached and compacted
        root = hostplatform::fsRoot();
        procfsutils::ProcFsParser parser;
        int pid = 0, processes = 0;
        while (parser.getNextPid(&pid)) {
            procfsutils::ProcessStatusData status{};
            ASSERT_TRUE(parser.getProcessStatusData(pid, &status)) << pid;
            EXPECT_EQ(status.pid, pid);
            EXPECT_EQ(fileText(root + "/proc/" + std::to_string(pid) + "/task/" +
                               std::to_string(pid) + "/comm"),
                      std::string(status.name) + "\n");
            ++processes;
        }
        EXPECT_GT(processes, 50);
        procfsutils::BlockDeviceStatData dataIo{};
        ASSERT_TRUE(parser.getBlockDeviceStatData("sda", &dataIo));
        EXPECT_GT(dataIo.writeBytes, 0);

        Vistrel::SystemMemoryStats memory;
        memory.sample(h.clock);
        EXPECT_GT(memory.memAvailableKb, 0u);
        EXPECT_GT(memory.memUsedKb, memory.memAvailableKb);
        EXPECT_GE(memory.psiSomeAvg300, 0.0f) << "a pressure file";
        Vistrel::ZramStats zram;
        ASSERT_TRUE(zram.snapshot(h.clock, false));
        EXPECT_GT(zram.origDataSize, zram.comprDataSize);
        EXPECT_GT(zram.comprDataSize, 0);
        Vistrel::SwapWriteStats swap;
        ASSERT_TRUE(swap.snapshot(h.clock, false));
        EXPECT_EQ(swap.swapWriteBytes, 0) << "zram0 holds every swapped page so far";
        Vistrel::StorageStats storage;
        ASSERT_TRUE(storage.snapshot(h.clock, false));
        EXPECT_LT(storage.availableBytes, sim::DataFigures{}.availableBytes) << "/data fills";
    }
    EXPECT_EQ(hostplatform::fsRoot(), "");
    EXPECT_FALSE(std::filesystem::exists(root)) << root;
}

// Processes' figures are written once in every 15 minutes, the process memory collector's period.
TEST(KernelTree, FocusScriptApplicationsComeAndGoInTheProcessMemoryRecords) {
    sim::HeadsetConfig config;
    config.focus = sim::sdk::FocusScript(
            {{20 * kMinuteNs, {"com.example.game"}}, {100 * kMinuteNs, {"com.example.shell"}}});
    SimulatedHeadset h(config);
    h.at(kMinuteNs);
    EXPECT_EQ(h.processes().at("com.example.game").oomScoreAdj, 0);
    h.at(31 * kMinuteNs);
    const auto cached = h.processes().at("com.example.game");
    EXPECT_EQ(cached.oomScoreAdj, 700) << "the previous application";
    EXPECT_GT(cached.vmSwapKb, 0u) << "compacted into swap";
    h.at(70 * kMinuteNs);
    EXPECT_EQ(h.processes().count("com.example.game"), 0u) << "killed after its time cached";
    EXPECT_EQ(h.processes().count("com.example.shell"), 1u);
}

TEST(KernelTree, CpuRecordsNameThreadsOfTheTreesProcesses) {
    SimulatedHeadset h;
    Vistrel::CpuStats cpu;
    ASSERT_TRUE(cpu.acquireResources([](const std::string&, const std::string&, bool) {}, h.clock));
    for (int64_t s = 240; s <= 300; s += 10) {
        h.at(s * kSecondNs);
        cpu.sample(h.clock);
    }
    ASSERT_TRUE(cpu.snapshot(h.clock, false));
    std::set<std::string> comms;
    for (const auto& task :
         std::filesystem::recursive_directory_iterator(hostplatform::fsRoot() + "/proc")) {
        if (task.path().filename() == "comm") {
            const std::string text = fileText(task.path());
            comms.insert(text.substr(0, text.size() - 1));
        }
    }
    ASSERT_TRUE(cpu.processStats && !cpu.processStats->empty());
    for (const auto& [name, stats] : *cpu.processStats) EXPECT_EQ(comms.count(name), 1u) << name;
    EXPECT_EQ(cpu.processStats->count("compositor"), 1u);
    cpu.releaseResources();
}

}  // namespace
