#include "procfsutils/ProcFsParser.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "hostplatform/FsRoot.h"

namespace {

namespace fs = std::filesystem;
using namespace procfsutils;

const std::string kHostTree = VISTREL_SOURCE_DIR "/tests/data/procfs-host";
const std::string kDeviceTree = VISTREL_SOURCE_DIR "/tests/data/procfs-device";

// A scratch file-system root, removed with its contents.
class TempTree {
public:
    TempTree() {
        std::string pattern = (fs::temp_directory_path() / "procfs-XXXXXX").string();
        root = mkdtemp(pattern.data());
    }
    ~TempTree() { fs::remove_all(root); }
    void write(const std::string& relative, const std::string& text) const {
        fs::create_directories((root / relative).parent_path());
        std::ofstream(root / relative, std::ios::binary) << text;
    }
    fs::path root;
};

template <typename T>
T filled() {  // a record full of garbage, to see that a call zeroes it
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

size_t openDescriptors() {
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

// A strict reading of a well-formed status file: exact keys, numbers read by strtoll.
void referenceStatus(const std::string& file, ProcessStatusData* record) {
    memset(record, 0, sizeof *record);
    ProcessStatusData& out = *record;
    std::map<std::string, uint32_t*> kib = {
        {"VmPeak", &out.vmPeak}, {"VmSize", &out.vmSize}, {"VmLck", &out.vmLck},
        {"VmPin", &out.vmPin}, {"VmHWM", &out.vmHwm}, {"VmRSS", &out.vmRss},
        {"RssAnon", &out.rssAnon}, {"RssFile", &out.rssFile}, {"RssShmem", &out.rssShmem},
        {"VmData", &out.vmData}, {"VmStk", &out.vmStk}, {"VmExe", &out.vmExe},
        {"VmLib", &out.vmLib}, {"VmPTE", &out.vmPte}, {"VmSwap", &out.vmSwap},
        {"HugetlbPages", &out.hugetlbPages}};
    std::map<std::string, int32_t*> ints = {
        {"Tgid", &out.tgid}, {"Ngid", &out.ngid}, {"Pid", &out.pid}, {"PPid", &out.ppid},
        {"TracerPid", &out.tracerPid}, {"FDSize", &out.fdSize}, {"Threads", &out.threads}};
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        const size_t colon = line.find(':');
        const std::string key = line.substr(0, colon);
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        value.erase(value.find_last_not_of(" \t") + 1);
        if (kib.count(key)) *kib[key] = static_cast<uint32_t>(std::stoull(value));
        if (ints.count(key)) *ints[key] = static_cast<int32_t>(std::stoll(value));
        if (key == "voluntary_ctxt_switches") out.voluntaryCtxtSwitches = std::stoull(value);
        if (key == "nonvoluntary_ctxt_switches") out.nonvoluntaryCtxtSwitches = std::stoull(value);
        if (key == "State") out.state = value[0];
        if (key == "Name") strncpy(out.name, value.c_str(), sizeof out.name - 1);
    }
}

class ProcFsReader : public ::testing::Test {
protected:
    void TearDown() override { hostplatform::setFsRoot(""); }
    ProcFsParser parser;
};

TEST_F(ProcFsReader, EnumeratesNumericDirectoriesOnlyAndStaysEndedUntilReset) {
    hostplatform::setFsRoot(kDeviceTree);  // also holds self, net, 1a and a numeric file, 99
    EXPECT_TRUE(parser.openProcDir());
    const std::vector<int> expected = {2, 301, 302, 303, 612, 4321, 5000};
    EXPECT_EQ(allPids(parser), expected);
    int pid = 7;
    EXPECT_FALSE(parser.getNextPid(&pid));
    EXPECT_EQ(pid, 0);
    EXPECT_TRUE(allPids(parser).empty());
    parser.reset();
    EXPECT_EQ(allPids(parser), expected);

    ProcFsParser host;
    hostplatform::setFsRoot(kHostTree);
    host.reset();  // opens the stream when none is open
    EXPECT_EQ(allPids(host), (std::vector<int>{1, 2, 50, 4974, 9165, 10787}));
}

TEST_F(ProcFsReader, UnreadableProcGivesFalseAndPidZero) {
    TempTree empty;
    hostplatform::setFsRoot(empty.root.string());
    EXPECT_FALSE(parser.openProcDir());
    int pid = 7;
    EXPECT_FALSE(parser.getNextPid(&pid));
    EXPECT_EQ(pid, 0);
    parser.reset();
    EXPECT_FALSE(parser.getNextPid(&pid));
}

TEST_F(ProcFsReader, RealStatusFilesMatchAStrictLineByLineReading) {
    const std::vector<fs::path> files = {
        kHostTree + "/proc/1/status",     kHostTree + "/proc/2/status",
        kHostTree + "/proc/50/status",    kHostTree + "/proc/4974/status",
        kHostTree + "/proc/9165/status",  kHostTree + "/proc/10787/status",
        kDeviceTree + "/proc/2/status",   kDeviceTree + "/proc/612/status",
        kDeviceTree + "/proc/4321/status", kDeviceTree + "/proc/302/status"};
    for (const fs::path& file : files) {
        hostplatform::setFsRoot(file.parent_path().parent_path().parent_path().string());
        ProcessStatusData out = filled<ProcessStatusData>();
        ASSERT_TRUE(parser.getProcessStatusData(std::stoi(file.parent_path().filename()), &out));
        ProcessStatusData expected;
        referenceStatus(file.string(), &expected);
        EXPECT_EQ(memcmp(&out, &expected, sizeof out), 0) << file;
        EXPECT_NE(out.pid, 0) << file;
    }
}

TEST_F(ProcFsReader, DeviceVariantsOfTheStatusFile) {
    hostplatform::setFsRoot(kHostTree);
    ProcessStatusData out;
    ASSERT_TRUE(parser.getProcessStatusData(9165, &out));
    EXPECT_STREQ(out.name, "kworker/1:0-cgroup_pidlist_dest") << "cut to 31 characters";
    ASSERT_TRUE(parser.getProcessStatusData(10787, &out));
    EXPECT_STREQ(out.name, "Web Content (1)");

    hostplatform::setFsRoot(kDeviceTree);
    ASSERT_TRUE(parser.getProcessStatusData(612, &out));  // 4.4 kernel: no RssAnon/RssShmem
    EXPECT_EQ(out.vmRss, 52944u);
    EXPECT_EQ(out.rssAnon, 0u);
    EXPECT_EQ(out.vmSwap, 2380u);
    EXPECT_EQ(out.state, 'S');
    ASSERT_TRUE(parser.getProcessStatusData(2, &out));  // kernel thread
    EXPECT_EQ(out.vmSize, 0u);
    EXPECT_EQ(out.threads, 1);
    ASSERT_TRUE(parser.getProcessStatusData(4321, &out));
    EXPECT_STREQ(out.name, "VR Shell (main)");
    EXPECT_EQ(out.state, 'R');

    ASSERT_TRUE(parser.getProcessStatusData(5000, &out));  // only the first 32 KiB is read
    EXPECT_STREQ(out.name, "big_groups");
    EXPECT_EQ(out.vmSwap, 91748u);
    EXPECT_EQ(out.threads, 0);
    EXPECT_EQ(out.nonvoluntaryCtxtSwitches, 0u);

    ASSERT_TRUE(parser.getProcessStatusData(301, &out));  // cut inside "VmRSS:\t  4736"
    EXPECT_EQ(out.vmHwm, 498124u);
    EXPECT_EQ(out.vmRss, 4u) << "no unit left: 4736 bytes";
    EXPECT_EQ(out.vmData, 0u);

    ASSERT_TRUE(parser.getProcessStatusData(302, &out));  // no final newline
    EXPECT_EQ(out.nonvoluntaryCtxtSwitches, 41878u);

    ASSERT_TRUE(parser.getProcessStatusData(303, &out));  // NUL bytes in a value and a key
    EXPECT_STREQ(out.name, "VR");
    EXPECT_EQ(out.fdSize, 0);
    EXPECT_EQ(out.pid, 303);
    EXPECT_EQ(out.vmRss, 473660u);
}

TEST_F(ProcFsReader, MissingOrUnreadableStatusGivesFalseAndAZeroRecord) {
    TempTree tree;
    fs::create_directories(tree.root / "proc/77/status");  // open works, read fails (EISDIR)
    fs::create_directories(tree.root / "proc/78");
    fs::create_symlink("gone", tree.root / "proc/78/status");
    hostplatform::setFsRoot(tree.root.string());
    for (int pid : {77, 78, 79}) {
        ProcessStatusData out = filled<ProcessStatusData>();
        EXPECT_FALSE(parser.getProcessStatusData(pid, &out)) << pid;
        EXPECT_TRUE(allZero(out)) << pid;
    }
    EXPECT_EQ(allPids(parser), (std::vector<int>{77, 78}));
}

TEST_F(ProcFsReader, ProcessThatExitsAfterEnumerationGivesFalse) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        pause();
        _exit(0);
    }
    bool found = false;
    int pid;
    while (!found && parser.getNextPid(&pid)) found = pid == child;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    ASSERT_TRUE(found);
    ProcessStatusData out = filled<ProcessStatusData>();
    EXPECT_FALSE(parser.getProcessStatusData(child, &out));
    EXPECT_TRUE(allZero(out));
    EXPECT_TRUE(parser.getProcessStatusData(getpid(), &out));
    EXPECT_EQ(out.pid, getpid());
}

TEST_F(ProcFsReader, VmStat) {
    VmStatData out = filled<VmStatData>();
    hostplatform::setFsRoot(kDeviceTree);
    ASSERT_TRUE(parser.getVmStatData(&out));
    EXPECT_EQ(out.pswpin, 1528377u * 4);
    EXPECT_EQ(out.pswpout, 2290146u * 4);
    hostplatform::setFsRoot(kHostTree);
    out = filled<VmStatData>();
    ASSERT_TRUE(parser.getVmStatData(&out));
    EXPECT_TRUE(allZero(out));
    TempTree empty;
    hostplatform::setFsRoot(empty.root.string());
    out = filled<VmStatData>();
    EXPECT_FALSE(parser.getVmStatData(&out));
    EXPECT_TRUE(allZero(out));
}

TEST_F(ProcFsReader, BlockDeviceStatOfEachKernelFormat) {
    hostplatform::setFsRoot(kHostTree);  // 17 columns
    BlockDeviceStatData out = filled<BlockDeviceStatData>();
    ASSERT_TRUE(parser.getBlockDeviceStatData("vda", &out));
    EXPECT_EQ(out.readIos, 71038);
    EXPECT_EQ(out.readBytes, 3713738LL * 512);
    EXPECT_EQ(out.writeBytes, 2516496LL * 512);
    EXPECT_EQ(out.discardBytes, 1498536LL * 512);
    EXPECT_EQ(out.discardTicks, 411);
    out = filled<BlockDeviceStatData>();
    ASSERT_TRUE(parser.getBlockDeviceStatData("zram0", &out));
    EXPECT_TRUE(allZero(out));

    hostplatform::setFsRoot(kDeviceTree);
    ASSERT_TRUE(parser.getBlockDeviceStatData("zram0", &out));  // 15 columns
    EXPECT_EQ(out.readBytes, 2619264LL * 512);
    EXPECT_EQ(out.writeIos, 572529);
    EXPECT_EQ(out.timeInQueue, 14708);
    out = filled<BlockDeviceStatData>();
    EXPECT_TRUE(parser.getBlockDeviceStatData("mmcblk0", &out)) << "11 columns: true, all zero";
    EXPECT_TRUE(allZero(out));
    out = filled<BlockDeviceStatData>();
    EXPECT_FALSE(parser.getBlockDeviceStatData("sda", &out));
    EXPECT_TRUE(allZero(out));
    EXPECT_FALSE(parser.getBlockDeviceStatData(std::string(300, 'a').c_str(), &out));
}

TEST_F(ProcFsReader, StatFilesThatFillTheBufferAreRejected) {
    TempTree tree;
    const std::string line = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n";
    tree.write("sys/block/full/stat", line + std::string(32768 - line.size(), ' '));
    tree.write("sys/block/fits/stat", line + std::string(32767 - line.size(), ' '));
    tree.write("sys/block/zram0/mm_stat", "1 2 3 4 5 6 7 8 9 10" + std::string(32768, ' '));
    hostplatform::setFsRoot(tree.root.string());
    BlockDeviceStatData out;
    EXPECT_FALSE(parser.getBlockDeviceStatData("full", &out));
    EXPECT_TRUE(parser.getBlockDeviceStatData("fits", &out));
    EXPECT_EQ(out.discardTicks, 15);
    ZramStatData zram = filled<ZramStatData>();
    EXPECT_FALSE(parser.getZramStatData(&zram));
    EXPECT_TRUE(allZero(zram));
}

TEST_F(ProcFsReader, ZramMmStat) {
    hostplatform::setFsRoot(kDeviceTree);  // 10 columns
    ZramStatData out;
    ASSERT_TRUE(parser.getZramStatData(&out));
    EXPECT_EQ(out.origDataSize, 1172525056);
    EXPECT_EQ(out.memUsedMax, 401354752);
    EXPECT_EQ(out.column10, 640);
    hostplatform::setFsRoot(kHostTree);  // 9 columns
    out = filled<ZramStatData>();
    EXPECT_TRUE(parser.getZramStatData(&out));
    EXPECT_TRUE(allZero(out));
    TempTree empty;
    hostplatform::setFsRoot(empty.root.string());
    EXPECT_FALSE(parser.getZramStatData(&out));
}

TEST(ProcFsReaderDescriptors, NothingStaysOpenAfterReadsFailuresAndDestruction) {
    const size_t before = openDescriptors();
    {
        TempTree tree;
        fs::create_directories(tree.root / "proc/77/status");
        tree.write("proc/vmstat", "pswpin 1\n");
        for (const std::string& root : {kDeviceTree, kHostTree, tree.root.string()}) {
            hostplatform::setFsRoot(root);
            ProcFsParser parser;
            int pid;
            ProcessStatusData status;
            while (parser.getNextPid(&pid)) parser.getProcessStatusData(pid, &status);
            parser.getProcessStatusData(123456, &status);
            VmStatData vm;
            parser.getVmStatData(&vm);
            BlockDeviceStatData block;
            parser.getBlockDeviceStatData("zram0", &block);
            parser.getBlockDeviceStatData("missing", &block);
            ZramStatData zram;
            parser.getZramStatData(&zram);
            EXPECT_EQ(openDescriptors(), before + 1) << "only the /proc stream";
        }
        hostplatform::setFsRoot("");
    }
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
