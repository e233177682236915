// Host stand-in for libmeminfo's android::meminfo::SysMemInfo: system-wide memory figures in KiB
// parsed from /proc/meminfo.
//
// The public surface is libmeminfo's: the tag constants (keys include the trailing colon), the
// default tag list, the three ReadMemInfo overloads and the non-const accessors that read the
// internal map with insertion (a tag the file did not have reads as 0). Like the newer
// libmeminfo, "MemAvailable:" is one of the default tags and has its accessor, so one read
// yields both the total and the available figure. The library reads "MemAvailable:" through the
// map (mem_available_kb(), looked up with insertion) as libmeminfo does from Android 14, so the
// device build needs that libmeminfo; older ones have neither the tag nor the accessor.
//
// Every path is resolved through the file-system root (seams/FsRoot.h), so a fixture tree or a
// captured headset tree stands in for the workstation's /proc. Parsing follows the platform
// library: at most 4095 bytes are read, a line matches a tag by a prefix compare at its start,
// blanks are skipped and the number is read with strtoull; tags missing from the file are left
// untouched. ReadMemInfo is false only when the file cannot be opened or read, or a matched
// number does not parse. The "Zram:" tag and the vmalloc/ion readers are not provided.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <string_view>
#include <vector>

namespace android {
namespace meminfo {

class SysMemInfo final {
public:
    static constexpr const char kMemTotal[] = "MemTotal:";
    static constexpr const char kMemFree[] = "MemFree:";
    static constexpr const char kMemBuffers[] = "Buffers:";
    static constexpr const char kMemCached[] = "Cached:";
    static constexpr const char kMemShmem[] = "Shmem:";
    static constexpr const char kMemSlab[] = "Slab:";
    static constexpr const char kMemSReclaim[] = "SReclaimable:";
    static constexpr const char kMemSUnreclaim[] = "SUnreclaim:";
    static constexpr const char kMemSwapTotal[] = "SwapTotal:";
    static constexpr const char kMemSwapFree[] = "SwapFree:";
    static constexpr const char kMemMapped[] = "Mapped:";
    static constexpr const char kMemVmallocUsed[] = "VmallocUsed:";
    static constexpr const char kMemPageTables[] = "PageTables:";
    static constexpr const char kMemKernelStack[] = "KernelStack:";
    static constexpr const char kMemKReclaimable[] = "KReclaimable:";
    static constexpr const char kMemAvailable[] = "MemAvailable:";

    // The tags ReadMemInfo() looks for, in this order (defined below the class: g++ rejects an
    // in-class constexpr initializer_list).
    static const std::initializer_list<std::string_view> kDefaultSysMemInfoTags;

    SysMemInfo() = default;

    // Fills the internal map with the default tags found in the file.
    bool ReadMemInfo(const char* path = "/proc/meminfo");
    // out[i] receives the value of tags[i]; entries for tags the file lacks are left untouched.
    bool ReadMemInfo(size_t ntags, const std::string_view* tags, uint64_t* out,
                     const char* path = "/proc/meminfo");
    // Clears and resizes `out` to the default tag count and fills it in the default order.
    bool ReadMemInfo(std::vector<uint64_t>* out, const char* path = "/proc/meminfo");

    uint64_t mem_total_kb() { return mem_[kMemTotal]; }
    uint64_t mem_free_kb() { return mem_[kMemFree]; }
    uint64_t mem_buffers_kb() { return mem_[kMemBuffers]; }
    uint64_t mem_cached_kb() { return mem_[kMemCached]; }
    uint64_t mem_shmem_kb() { return mem_[kMemShmem]; }
    uint64_t mem_slab_kb() { return mem_[kMemSlab]; }
    uint64_t mem_slab_reclaimable_kb() { return mem_[kMemSReclaim]; }
    uint64_t mem_slab_unreclaimable_kb() { return mem_[kMemSUnreclaim]; }
    uint64_t mem_swap_kb() { return mem_[kMemSwapTotal]; }
    uint64_t mem_swap_free_kb() { return mem_[kMemSwapFree]; }
    uint64_t mem_mapped_kb() { return mem_[kMemMapped]; }
    uint64_t mem_vmalloc_used_kb() { return mem_[kMemVmallocUsed]; }
    uint64_t mem_page_tables_kb() { return mem_[kMemPageTables]; }
    uint64_t mem_kernel_stack_kb() { return mem_[kMemKernelStack]; }
    uint64_t mem_kreclaimable_kb() { return mem_[kMemKReclaimable]; }
    uint64_t mem_available_kb() { return mem_[kMemAvailable]; }

private:
    std::map<std::string_view, uint64_t> mem_;
};

inline const std::initializer_list<std::string_view> SysMemInfo::kDefaultSysMemInfoTags = {
        kMemTotal,      kMemFree,        kMemBuffers,      kMemCached,
        kMemShmem,      kMemSlab,        kMemSReclaim,     kMemSUnreclaim,
        kMemSwapTotal,  kMemSwapFree,    kMemMapped,       kMemVmallocUsed,
        kMemPageTables, kMemKernelStack, kMemKReclaimable, kMemAvailable,
};

}  // namespace meminfo
}  // namespace android
