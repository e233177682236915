#include "procfsutils/ProcFsParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <tuple>
#include <vector>

#include "FixtureTree.h"
#include "hostplatform/FsRoot.h"

namespace {

namespace fs = std::filesystem;
using namespace procfsutils;
using testing_support::FixtureTree;

const std::string kHostTree = VISTREL_SOURCE_DIR "/tests/data/procfs-host";
const std::string kDeviceTree = VISTREL_SOURCE_DIR "/tests/data/procfs-device";

template <typename T>
T garbage() {  // to see that a call zeroes the record
    T record;
    memset(&record, 0x5a, sizeof record);
    return record;
}

template <typename T>
bool allZero(const T& record) {  // padding included: the reader zeroes the whole record
    const char zeros[sizeof(T)] = {};
    return memcmp(&record, zeros, sizeof record) == 0;
}

std::vector<int> allPids(ProcFsParser& parser) {
    std::vector<int> pids;
    int pid;
    while (parser.getNextPid(&pid)) pids.push_back(pid);
    std::sort(pids.begin(), pids.end());
    return pids;
}

// A strict reading of a well-formed status file: exact keys, every number as the kernel wrote it.
void referenceStatus(const std::string& file, ProcessStatusData* out) {
    memset(out, 0, sizeof *out);
    // The keys of the 32-bit fields and those fields, in the same order.
    const char* const keys[] = {
            "Tgid",  "Ngid",  "Pid",   "PPid",  "TracerPid", "FDSize",       "VmPeak",   "VmSize",
            "VmLck", "VmPin", "VmHWM", "VmRSS", "RssAnon",   "RssFile",      "RssShmem", "VmData",
            "VmStk", "VmExe", "VmLib", "VmPTE", "VmSwap",    "HugetlbPages", "Threads"};
    void* const fields[] = {&out->tgid,      &out->ngid,         &out->pid,      &out->ppid,
                            &out->tracerPid, &out->fdSize,       &out->vmPeak,   &out->vmSize,
                            &out->vmLck,     &out->vmPin,        &out->vmHwm,    &out->vmRss,
                            &out->rssAnon,   &out->rssFile,      &out->rssShmem, &out->vmData,
                            &out->vmStk,     &out->vmExe,        &out->vmLib,    &out->vmPte,
                            &out->vmSwap,    &out->hugetlbPages, &out->threads};
    static_assert(std::size(keys) == std::size(fields));
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        const std::string key = line.substr(0, line.find(':'));
        std::string value = line.substr(key.size() + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        value.erase(value.find_last_not_of(" \t") + 1);
        for (size_t i = 0; i < std::size(keys); ++i) {
            if (key == keys[i]) *static_cast<uint32_t*>(fields[i]) = std::stoul(value);
        }
        if (key == "voluntary_ctxt_switches") out->voluntaryCtxtSwitches = std::stoull(value);
        if (key == "nonvoluntary_ctxt_switches") out->nonvoluntaryCtxtSwitches = std::stoull(value);
        if (key == "State") out->state = value[0];
        if (key == "Name") strncpy(out->name, value.c_str(), sizeof out->name - 1);
    }
}

long openDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

// Each case ends with no descriptor left open once its parsers are gone (the fixture's own
// included): every file read is closed at once, every /proc stream with its parser.
class ProcFsReader : public ::testing::Test {
protected:
    void TearDown() override {
        hostplatform::setFsRoot("");
        ownParser.reset();
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
    }
    const long descriptorsBefore = openDescriptors();
    std::optional<ProcFsParser> ownParser{std::in_place};
    ProcFsParser& parser = *ownParser;
};

TEST_F(ProcFsReader, EnumeratesNumericDirectories) {
    hostplatform::setFsRoot(kDeviceTree);  // also holds self, net, 1a and 99 (a file)
    EXPECT_TRUE(parser.openProcDir());
    const std::vector<int> expected = {2, 301, 302, 303, 612, 4321, 5000};
    EXPECT_EQ(allPids(parser), expected);
    int pid = 7;
    EXPECT_FALSE(parser.getNextPid(&pid));
    EXPECT_EQ(pid, 0);
    parser.reset();
    EXPECT_EQ(allPids(parser), expected);

    ProcFsParser host;
    hostplatform::setFsRoot(kHostTree);
    host.reset();  // opens the stream when none is open
    EXPECT_EQ(allPids(host), (std::vector<int>{1, 2, 50, 4974, 9165, 10787}));

    FixtureTree empty("");  // no proc directory at all
    ProcFsParser none;
    EXPECT_FALSE(none.openProcDir());
    pid = 7;
    EXPECT_FALSE(none.getNextPid(&pid));
    EXPECT_EQ(pid, 0);
}

TEST_F(ProcFsReader, RealStatusFilesMatchAStrictLineByLineReading) {
    for (const std::string& file :
         {kHostTree + "/proc/1/status", kHostTree + "/proc/2/status", kHostTree + "/proc/50/status",
          kHostTree + "/proc/4974/status", kHostTree + "/proc/9165/status",
          kHostTree + "/proc/10787/status", kDeviceTree + "/proc/2/status",
          kDeviceTree + "/proc/612/status", kDeviceTree + "/proc/4321/status",
          kDeviceTree + "/proc/302/status"}) {
        const fs::path pidDir = fs::path(file).parent_path();
        hostplatform::setFsRoot(pidDir.parent_path().parent_path().string());
        ProcessStatusData out = garbage<ProcessStatusData>(), expected;
        ASSERT_TRUE(parser.getProcessStatusData(std::stoi(pidDir.filename()), &out));
        referenceStatus(file, &expected);
        EXPECT_EQ(memcmp(&out, &expected, sizeof out), 0) << file;
        EXPECT_NE(out.pid, 0) << file;
    }
}

// Files the strict reading cannot take: too long, cut short, with NUL bytes.
TEST_F(ProcFsReader, StatusVariants) {
    hostplatform::setFsRoot(kDeviceTree);
    ProcessStatusData out;
    ASSERT_TRUE(parser.getProcessStatusData(5000, &out));  // only the first 32 KiB is read
    EXPECT_EQ(out.vmSwap, 91748u);
    EXPECT_EQ(out.threads, 0);
    ASSERT_TRUE(parser.getProcessStatusData(301, &out));  // cut inside "VmRSS:\t  4736"
    EXPECT_EQ(out.vmHwm, 498124u);
    EXPECT_EQ(out.vmRss, 4u) << "no unit left: 4736 bytes";
    ASSERT_TRUE(parser.getProcessStatusData(303, &out));  // NUL bytes in a value and a key
    EXPECT_STREQ(out.name, "VR");
    EXPECT_EQ(out.fdSize, 0);
    EXPECT_EQ(out.vmRss, 473660u);
}

// A record reader fails on either failure; a text reader tells a failed open from a failed read
// and reads both as an empty text.
TEST_F(ProcFsReader, UnreadableFilesGiveAZeroRecordOrAnEmptyText) {
    FixtureTree tree("");
    fs::create_directories(tree.at("/proc/77/status"));  // opens, but read fails (EISDIR)
    fs::create_directories(tree.at("/proc/78"));
    fs::create_symlink("gone", tree.at("/proc/78/status"));
    for (int pid : {77, 78, 79}) {
        ProcessStatusData out = garbage<ProcessStatusData>();
        EXPECT_FALSE(parser.getProcessStatusData(pid, &out)) << pid;
        EXPECT_TRUE(allZero(out)) << pid;
        char text[] = "old";
        const FileRead read = readText(("/proc/" + std::to_string(pid) + "/status").c_str(), text);
        EXPECT_EQ(std::make_tuple(read.opened, read.count, std::string(text)),
                  std::make_tuple(pid == 77, ssize_t{-1}, std::string()))
                << pid;
    }
}

TEST_F(ProcFsReader, FixedRecordFiles) {
    hostplatform::setFsRoot(kDeviceTree);
    VmStatData vm = garbage<VmStatData>();
    ASSERT_TRUE(parser.getVmStatData(&vm));
    EXPECT_EQ(vm.pswpin, 1528377u * 4);
    EXPECT_EQ(vm.pswpout, 2290146u * 4);
    BlockDeviceStatData block = garbage<BlockDeviceStatData>();
    ASSERT_TRUE(parser.getBlockDeviceStatData("zram0", &block));  // 15 columns
    EXPECT_EQ(block.readBytes, 2619264LL * 512);
    EXPECT_EQ(block.timeInQueue, 14708);
    EXPECT_TRUE(parser.getBlockDeviceStatData("mmcblk0", &block)) << "11 columns: true, zero";
    EXPECT_TRUE(allZero(block));
    ZramStatData zram = garbage<ZramStatData>();
    ASSERT_TRUE(parser.getZramStatData(&zram));  // 10 columns
    EXPECT_EQ(zram.origDataSize, 1172525056);
    EXPECT_EQ(zram.column10, 640);

    hostplatform::setFsRoot(kHostTree);
    ASSERT_TRUE(parser.getBlockDeviceStatData("vda", &block));  // 17 columns
    EXPECT_EQ(block.readIos, 71038);
    EXPECT_EQ(block.discardBytes, 1498536LL * 512);
    EXPECT_EQ(block.discardTicks, 411);
    zram = garbage<ZramStatData>();
    EXPECT_TRUE(parser.getZramStatData(&zram)) << "9 columns: true, zero";
    EXPECT_TRUE(allZero(zram));

    block = garbage<BlockDeviceStatData>();
    EXPECT_FALSE(parser.getBlockDeviceStatData("sda", &block));
    EXPECT_TRUE(allZero(block));
    EXPECT_FALSE(parser.getBlockDeviceStatData(std::string(300, 'a').c_str(), &block));
    FixtureTree tree("");
    const std::string line = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
    tree.write("/sys/block/full/stat", line + std::string(32768 - line.size(), ' '));
    tree.write("/sys/block/fits/stat", line + std::string(32767 - line.size(), ' '));
    EXPECT_FALSE(parser.getBlockDeviceStatData("full", &block)) << "no room for the terminator";
    EXPECT_TRUE(parser.getBlockDeviceStatData("fits", &block));
    vm = garbage<VmStatData>();
    EXPECT_FALSE(parser.getVmStatData(&vm));
    EXPECT_TRUE(allZero(vm));
    EXPECT_FALSE(parser.getZramStatData(&zram));
}

}  // namespace
