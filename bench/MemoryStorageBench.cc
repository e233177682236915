// The memory and storage collectors, each paired with the floor of reading the same files (open
// + one read + close of each file the operation reads; statvfs for "/data"):
//   SystemMemoryStats::sample   /proc/meminfo and /proc/pressure/memory
//   ZramStats::snapshot         /sys/block/zram0/mm_stat
//   SwapWriteStats::snapshot    /proc/vmstat and /sys/block/zram0/stat
//   StorageStats::snapshot      statvfs("/data")
// The library reads the workstation's own /proc and /sys through a file-system root made of
// symbolic links (proc -> /proc, sys -> /sys) and a real "data" directory, and the floor opens
// the very same resolved paths. A pair whose files are missing here is skipped.
//
// The pairs marked "part:" take an operation apart, each piece against the floor of its own
// files, to show what a gap consists of: the /proc/meminfo read through SysMemInfo (the host
// stand-in of libmeminfo), the pressure read with its parse, the ProcFsParser that ZramStats and
// SwapWriteStats construct every snapshot (its 32 KiB zeroed buffer, measured with the floor
// read after it, which it leaves with a colder cache) and the sscanf parse of mm_stat.
#include <fcntl.h>
#include <meminfo/sysmeminfo.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "StorageStats.h"
#include "SwapWriteStats.h"
#include "SystemMemoryStats.h"
#include "ZramStats.h"
#include "hostplatform/FsRoot.h"
#include "procfsutils/KernelFiles.h"
#include "procfsutils/ProcFsParser.h"
#include "procfsutils/ProcFsParserInternal.h"
#include "procfsutils/SystemMemoryFiles.h"

namespace {

using benchsupport::Side;

class BenchClock : public Vistrel::IClockReader {
public:
    int64_t elapsedNs() override { return 0; }
    int64_t readTimestamp() override { return 0; }
    int64_t nowNs() override { return 0; }
};

// The root every benchmark reads under; removed when the program ends.
struct BenchRoot {
    BenchRoot() {
        char pattern[] = "/tmp/vistrel-bench-XXXXXX";
        dir = mkdtemp(pattern);
        std::filesystem::create_directory_symlink("/proc", dir / "proc");
        std::filesystem::create_directory_symlink("/sys", dir / "sys");
        std::filesystem::create_directory(dir / "data");
        hostplatform::setFsRoot(dir.string());
    }
    ~BenchRoot() {
        hostplatform::setFsRoot("");
        std::filesystem::remove_all(dir);
    }
    std::string at(const char* devicePath) const { return dir.string() + devicePath; }
    std::filesystem::path dir;
};

// open + one read of up to the library's largest buffer + close; false when the file is missing.
bool readOnce(const std::string& path) {
    static char buffer[32768];
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    benchmark::DoNotOptimize(read(fd, buffer, sizeof(buffer)));
    close(fd);
    return true;
}

// The floor of reading `devicePaths`; -1 when one of them is missing.
Side floorOf(const BenchRoot& root, std::vector<const char*> devicePaths) {
    std::vector<std::string> paths;
    for (const char* p : devicePaths) paths.push_back(root.at(p));
    bool present = true;
    for (const auto& p : paths) present = present && readOnce(p);
    if (!present) return [](int) { return -1.0; };
    return benchsupport::onThisThread([paths] {
        for (const auto& p : paths) readOnce(p);
    });
}

// A provider call, or -1 when its first call fails (its files are missing here).
template <typename Provider, typename Call>
Side providerCall(Call call) {
    auto provider = std::make_shared<Provider>();
    auto clock = std::make_shared<BenchClock>();
    if (!call(*provider, *clock)) return [](int) { return -1.0; };
    return benchsupport::onThisThread([=] { benchmark::DoNotOptimize(call(*provider, *clock)); });
}

}  // namespace

int main(int argc, char** argv) {
    const BenchRoot root;
    const auto snapshot = [](auto& provider, auto& clock) {
        return provider.snapshot(clock, false);
    };
    const auto sample = [](auto& provider, auto& clock) {
        return provider.sample(clock).has_value();
    };
    const std::string data = root.at("/data");
    std::ifstream mmStatFile("/sys/block/zram0/mm_stat");
    const std::string mmStat((std::istreambuf_iterator<char>(mmStatFile)),
                             std::istreambuf_iterator<char>());
    const std::vector<benchsupport::Pair> pairs = {
            {"SystemMemoryStats::sample vs floor", providerCall<Vistrel::SystemMemoryStats>(sample),
             floorOf(root, {"/proc/meminfo", "/proc/pressure/memory"}), 100, "<= 1.3"},
            {"ZramStats::snapshot vs floor", providerCall<Vistrel::ZramStats>(snapshot),
             floorOf(root, {"/sys/block/zram0/mm_stat"}), 100, "<= 1.3"},
            {"SwapWriteStats::snapshot vs floor", providerCall<Vistrel::SwapWriteStats>(snapshot),
             floorOf(root, {"/proc/vmstat", "/sys/block/zram0/stat"}), 100, "<= 1.3"},
            {"StorageStats::snapshot vs floor", providerCall<Vistrel::StorageStats>(snapshot),
             benchsupport::onThisThread([data] {
                 struct statvfs fs;
                 benchmark::DoNotOptimize(statvfs(data.c_str(), &fs));
             }),
             100, "<= 1.3"},
            {"part: SysMemInfo::ReadMemInfo vs meminfo floor", benchsupport::onThisThread([] {
                 android::meminfo::SysMemInfo info;
                 benchmark::DoNotOptimize(info.ReadMemInfo());
             }),
             floorOf(root, {"/proc/meminfo"}), 100, "-"},
            {"part: pressure read + parse vs pressure floor", benchsupport::onThisThread([] {
                 namespace files = procfsutils::systemmemoryfiles;
                 char text[files::kFileBytes + 1];
                 const procfsutils::FileRead read =
                         procfsutils::readText("/proc/pressure/memory", text);
                 benchmark::DoNotOptimize(files::pressureAverages(text, read.bytes()));
             }),
             floorOf(root, {"/proc/pressure/memory"}), 100, "-"},
            {"part: ProcFsParser construction + floor vs floor", benchsupport::onThisThread([&root] {
                 procfsutils::ProcFsParser parser;
                 benchmark::DoNotOptimize(&parser);
                 readOnce(root.at("/sys/block/zram0/mm_stat"));
             }),
             floorOf(root, {"/sys/block/zram0/mm_stat"}), 100, "-"},
            {"part: mm_stat sscanf parse vs mm_stat floor", benchsupport::onThisThread([mmStat] {
                 procfsutils::ZramStatData data;
                 benchmark::DoNotOptimize(
                         procfsutils::internal::parseZramStatData(mmStat.c_str(), &data));
             }),
             floorOf(root, {"/sys/block/zram0/mm_stat"}), 100, "-"},
    };
    return benchsupport::runPairs(argc, argv, pairs, 10, 0.5);
}
