// The host SysMemInfo's /proc/meminfo parser over arbitrary bytes, through all three overloads.
#include <meminfo/sysmeminfo.h>

#include <cstdlib>

#include "FuzzFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using android::meminfo::SysMemInfo;
    static const memfuzz::Root root;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    root.put("/proc/meminfo", &text);
    // Without a colon no tag can match: every read succeeds and stores nothing.
    const bool noTag = text.find(':') == std::string_view::npos;

    SysMemInfo info;
    const bool read = info.ReadMemInfo();
    if (noTag && (!read || info.mem_total_kb() != 0 || info.mem_available_kb() != 0)) abort();

    const std::string_view tags[] = {SysMemInfo::kMemAvailable, SysMemInfo::kMemTotal, "Zram:"};
    uint64_t out[] = {7, 7, 7};
    info.ReadMemInfo(3, tags, out);
    if (noTag && (out[0] != 7 || out[1] != 7 || out[2] != 7)) abort();

    std::vector<uint64_t> all;
    if (info.ReadMemInfo(&all) != read) abort();  // the same tags give the same answer
    if (all.size() != SysMemInfo::kDefaultSysMemInfoTags.size()) abort();
    return 0;
}
