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
// formatted on the stack and resolved through the file-system root seam, so no call allocates.
#include "procfsutils/ProcFsParser.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "procfsutils/ProcFsParserInternal.h"
#include "seams/FsRoot.h"

namespace procfsutils {

namespace {

constexpr int kBufferSize = 32768;
constexpr char kProcDir[] = "/proc";
constexpr char kZramMmStatPath[] = "/sys/block/zram0/mm_stat";

DIR* openProc() {
    seam::PathBuffer resolved;
    return opendir(seam::path(kProcDir, resolved));
}

}  // namespace

ProcFsParser::ProcFsParser() : buffer(kBufferSize, 0) {}

ProcFsParser::~ProcFsParser() {
    if (procDir != nullptr) {
        closedir(procDir);
        procDir = nullptr;
    }
}

void ProcFsParser::reset() {
    if (procDir == nullptr) procDir = openProc();
    if (procDir != nullptr) rewinddir(procDir);
}

bool ProcFsParser::openProcDir() {
    if (procDir == nullptr) procDir = openProc();
    return procDir != nullptr;
}

bool ProcFsParser::getNextPid(int* pid) {
    *pid = 0;
    if (!openProcDir()) return false;
    // At the end of the directory readdir keeps answering null: the enumeration stays over
    // until reset() rewinds the stream.
    while (const dirent* entry = readdir(procDir)) {
        if (!internal::isNumber(entry->d_name)) continue;
        char path[256];
        const int length = snprintf(path, sizeof path, "%s/%s", kProcDir, entry->d_name);
        if (length < 0 || length >= static_cast<int>(sizeof path)) continue;
        seam::PathBuffer resolved;
        struct stat st;
        if (stat(seam::path(path, resolved), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
        *pid = atoi(entry->d_name);
        return true;
    }
    return false;
}

bool ProcFsParser::getProcessStatusData(int pid, ProcessStatusData* out) {
    memset(out, 0, sizeof *out);
    char path[256];
    snprintf(path, sizeof path, "%s/%d/status", kProcDir, pid);
    seam::PathBuffer resolved;
    const int count = internal::readFile(seam::path(path, resolved), buffer.data(), kBufferSize);
    if (count < 0) return false;
    internal::parseProcessStatusData(buffer.data(), count, out);
    return true;
}

bool ProcFsParser::getVmStatData(VmStatData* out) {
    memset(out, 0, sizeof *out);
    char path[256];
    snprintf(path, sizeof path, "%s/vmstat", kProcDir);
    seam::PathBuffer resolved;
    const int count = internal::readFile(seam::path(path, resolved), buffer.data(), kBufferSize);
    if (count < 0) return false;
    // Only what the one read returned is parsed; the swap counters lie early in the file.
    internal::parseVmStatData(buffer.data(), count, out);
    return true;
}

bool ProcFsParser::getBlockDeviceStatData(const char* device, BlockDeviceStatData* out) {
    memset(out, 0, sizeof *out);
    if (device == nullptr) return false;
    char path[256];
    const int length = snprintf(path, sizeof path, "/sys/block/%s/stat", device);
    if (length < 0 || length >= static_cast<int>(sizeof path)) return false;
    seam::PathBuffer resolved;
    const int count = internal::readFile(seam::path(path, resolved), buffer.data(), kBufferSize);
    if (count < 0 || count >= kBufferSize) return false;  // no room left for the terminator
    buffer[count] = '\0';
    internal::parseBlockDeviceStatData(buffer.data(), out);
    return true;
}

bool ProcFsParser::getZramStatData(ZramStatData* out) {
    memset(out, 0, sizeof *out);
    seam::PathBuffer resolved;
    const int count =
            internal::readFile(seam::path(kZramMmStatPath, resolved), buffer.data(), kBufferSize);
    if (count < 0 || count >= kBufferSize) return false;
    buffer[count] = '\0';
    internal::parseZramStatData(buffer.data(), out);
    return true;
}

}  // namespace procfsutils
