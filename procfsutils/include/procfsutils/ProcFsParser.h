// ProcFsParser: enumerates /proc process directories and fills the fixed records of
// ProcFsRecords.h from /proc/<pid>/status, /proc/vmstat, /sys/block/<device>/stat and
// /sys/block/zram0/mm_stat.
//
// One 32 KiB read buffer is allocated by the constructor; every later call reuses it, so a scan
// over all processes allocates nothing. Each file is read with a single read() and closed at once
// (KernelFiles.h). Failures are a false result with the record zeroed; nothing is logged. One
// thread at a time.
#pragma once

#include <vector>

#include "procfsutils/KernelFiles.h"
#include "procfsutils/ProcFsRecords.h"

namespace procfsutils {

class ProcFsParser {
public:
    ProcFsParser();
    ProcFsParser(const ProcFsParser&) = delete;
    ProcFsParser& operator=(const ProcFsParser&) = delete;

    // Starts a new enumeration: rewinds the open /proc stream, or opens it.
    void reset();
    // True when the /proc stream is (now) open.
    bool openProcDir();
    // Next process id in directory order, of the entries that are directories; false (and
    // *pid = 0) at the end, and on every call after that until reset().
    bool getNextPid(int* pid);

    bool getProcessStatusData(int pid, ProcessStatusData* out);
    bool getVmStatData(VmStatData* out);
    // `device` is a block device name such as "zram0". True even when the line did not have
    // the expected column count (the record is then all zero).
    bool getBlockDeviceStatData(const char* device, BlockDeviceStatData* out);
    bool getZramStatData(ZramStatData* out);

private:
    UniqueDirectory procDir;  // opened by the first enumeration call
    std::vector<char> buffer;
};

}  // namespace procfsutils
