// Reader of process directories and statistics files.
//
//   /proc                      one directory per process, named by its id, among other entries
//                              ("self", "net", "sys", ...)
//   /proc/<pid>/status         "Name:\tsurfaceflinger\nState:\tS (sleeping)\n...VmRSS:\t  123456 kB\n"
//   /proc/vmstat               "nr_free_pages 12345\n...pswpin 1234\npswpout 5678\n" (4 KiB pages)
//   /sys/block/<dev>/stat      "   67032    24404  3011930 ..." 11/15/17 columns, 512-byte sectors
//   /sys/block/zram0/mm_stat   "  4096  74  12288  0  12288  0  0  0  0 [0]" bytes, then pages
//
// Each file is read with one read() into the parser's 32 KiB buffer and closed at once; paths are
// formatted on the stack and resolved by KernelFiles.h, so no call allocates.
#include "procfsutils/ProcFsParser.h"

#include <cstdio>
#include <cstring>

#include "procfsutils/ProcFsParserInternal.h"

namespace procfsutils {

namespace {

constexpr int kBufferSize = 32768;
constexpr char kProcDir[] = "/proc";
constexpr char kZramMmStatPath[] = "/sys/block/zram0/mm_stat";

// Reads a device path into `buffer` with one read; the byte count, or -1. (Free functions of this
// file rather than members, so that they are inlined even where members can be interposed.)
ssize_t readInto(std::vector<char>& buffer, const char* devicePath) {
    return readFile(devicePath, buffer.data(), kBufferSize).count;
}

// readInto() with a NUL after the bytes read; false when the read failed or filled the whole
// buffer (no room left for the NUL).
bool readTextInto(std::vector<char>& buffer, const char* devicePath) {
    const ssize_t count = readInto(buffer, devicePath);
    if (count < 0 || count >= kBufferSize) return false;
    buffer[count] = '\0';
    return true;
}

}  // namespace

ProcFsParser::ProcFsParser() : buffer(kBufferSize, 0) {}

void ProcFsParser::reset() {
    if (openProcDir()) rewinddir(procDir.get());
}

bool ProcFsParser::openProcDir() {
    if (procDir == nullptr) procDir = openDirectory(kProcDir);
    return procDir != nullptr;
}

bool ProcFsParser::getNextPid(int* pid) {
    *pid = 0;
    if (!openProcDir()) return false;
    ProcessEntry entry;
    if (!nextProcessEntry(procDir.get(), ProcEntries::PidDirectories, &entry)) return false;
    *pid = entry.pid;
    return true;
}

bool ProcFsParser::getProcessStatusData(int pid, ProcessStatusData* out) {
    memset(out, 0, sizeof *out);
    char path[256];
    snprintf(path, sizeof path, "%s/%d/status", kProcDir, pid);
    const ssize_t count = readInto(buffer, path);
    if (count < 0) return false;
    internal::parseProcessStatusData(buffer.data(), static_cast<int>(count), out);
    return true;
}

bool ProcFsParser::getVmStatData(VmStatData* out) {
    memset(out, 0, sizeof *out);
    char path[256];
    snprintf(path, sizeof path, "%s/vmstat", kProcDir);
    const ssize_t count = readInto(buffer, path);
    if (count < 0) return false;
    // Only what the one read returned is parsed; the swap counters lie early in the file.
    internal::parseVmStatData(buffer.data(), static_cast<int>(count), out);
    return true;
}

bool ProcFsParser::getBlockDeviceStatData(const char* device, BlockDeviceStatData* out) {
    memset(out, 0, sizeof *out);
    if (device == nullptr) return false;
    char path[256];
    const int length = snprintf(path, sizeof path, "/sys/block/%s/stat", device);
    if (length < 0 || length >= static_cast<int>(sizeof path)) return false;
    if (!readTextInto(buffer, path)) return false;
    internal::parseBlockDeviceStatData(buffer.data(), out);
    return true;
}

bool ProcFsParser::getZramStatData(ZramStatData* out) {
    memset(out, 0, sizeof *out);
    if (!readTextInto(buffer, kZramMmStatPath)) return false;
    internal::parseZramStatData(buffer.data(), out);
    return true;
}

}  // namespace procfsutils
