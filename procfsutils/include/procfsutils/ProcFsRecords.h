// Fixed records filled from kernel statistics files. All plain data; callers zero them first.
#pragma once

#include <cstdint>

namespace procfsutils {

// /proc/<pid>/status. Memory figures in KiB (4294967295 when the kernel's figure does not fit
// in 32 bits); int32 fields hold -1 when the figure exceeds 2147483647.
struct ProcessStatusData {
    char name[32];  // command name, NUL-terminated, at most 31 characters
    int32_t tgid;
    int32_t ngid;
    int32_t pid;
    int32_t ppid;
    int32_t tracerPid;
    int32_t fdSize;
    uint32_t vmPeak;
    uint32_t vmSize;
    uint32_t vmLck;
    uint32_t vmPin;
    uint32_t vmHwm;
    uint32_t vmRss;
    uint32_t rssAnon;
    uint32_t rssFile;
    uint32_t rssShmem;
    uint32_t vmData;
    uint32_t vmStk;
    uint32_t vmExe;
    uint32_t vmLib;
    uint32_t vmPte;
    uint32_t vmSwap;
    uint32_t hugetlbPages;
    int32_t threads;
    uint64_t voluntaryCtxtSwitches;
    uint64_t nonvoluntaryCtxtSwitches;
    char state;  // one-letter process state ('R', 'S', 'D', ...)
};

// /proc/vmstat, in KiB (kernel page counts times 4).
struct VmStatData {
    uint64_t pswpin;
    uint64_t pswpout;
};

// /sys/block/<device>/stat, in the kernel's column order; sector counts converted to bytes.
struct BlockDeviceStatData {
    int64_t readIos;
    int64_t readMerges;
    int64_t readBytes;
    int64_t readTicks;  // ms
    int64_t writeIos;
    int64_t writeMerges;
    int64_t writeBytes;
    int64_t writeTicks;  // ms
    int64_t inFlight;
    int64_t ioTicks;      // ms
    int64_t timeInQueue;  // weighted ms
    int64_t discardIos;
    int64_t discardMerges;
    int64_t discardBytes;
    int64_t discardTicks;  // ms
};

// /sys/block/zram0/mm_stat, in the file's column order, as read.
struct ZramStatData {
    int64_t origDataSize;    // bytes of uncompressed data stored
    int64_t comprDataSize;   // bytes of compressed data
    int64_t memUsedTotal;    // bytes used, allocator overhead included
    int64_t memLimit;        // bytes, 0 when unlimited
    int64_t memUsedMax;      // peak bytes used
    int64_t samePages;       // pages stored as a repeated pattern
    int64_t pagesCompacted;  // pages freed by compaction
    int64_t hugePages;       // incompressible pages stored whole
    int64_t hugePagesSince;  // incompressible pages since the device was set up
    int64_t column10;        // tenth column of the device kernel's mm_stat, carried through
};

}  // namespace procfsutils
