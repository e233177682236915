#include <meminfo/sysmeminfo.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FixtureTree.h"

namespace {

using android::meminfo::SysMemInfo;
using testing_support::FixtureTree;

TEST(SysMemInfo, ReadsTheTagsPresent) {
    FixtureTree tree("memstorage/device");
    SysMemInfo info;
    ASSERT_TRUE(info.ReadMemInfo());
    EXPECT_EQ(info.mem_total_kb(), 5804656u);
    EXPECT_EQ(info.mem_available_kb(), 2103340u);
    EXPECT_EQ(info.mem_cached_kb(), 1855904u) << "\"Cached:\" is not confused with \"SwapCached:\"";

    FixtureTree legacy("memstorage/legacy");
    SysMemInfo old;
    EXPECT_TRUE(old.ReadMemInfo()) << "a missing tag is not a failure";
    EXPECT_EQ(old.mem_available_kb(), 0u);
    const std::string_view tags[] = {SysMemInfo::kMemAvailable, SysMemInfo::kMemTotal};
    uint64_t out[] = {7, 7};
    ASSERT_TRUE(old.ReadMemInfo(2, tags, out));
    EXPECT_EQ(std::vector<uint64_t>(out, out + 2), (std::vector<uint64_t>{7, 5804656}))
            << "the missing one untouched";
}

TEST(SysMemInfo, FailsOnAMissingFileOrABadNumberAndReadsOnly4095Bytes) {
    FixtureTree tree("");
    SysMemInfo info;
    EXPECT_FALSE(info.ReadMemInfo()) << "no /proc/meminfo under the root";
    tree.write("/proc/meminfo", "MemFree: 5 kB\nMemTotal: lots\n");
    EXPECT_FALSE(info.ReadMemInfo());

    tree.write("/proc/meminfo", "MemFree: 5 kB\n");
    ASSERT_TRUE(info.ReadMemInfo());
    // "MemTotal: 1 kB\n" ends exactly at byte 4095; MemFree lies beyond.
    tree.write("/other", std::string(4095 - 16, 'x') + "\nMemTotal: 1 kB\nMemFree: 2 kB\n");
    ASSERT_TRUE(info.ReadMemInfo("/other"));
    EXPECT_EQ(info.mem_total_kb(), 1u);
    EXPECT_EQ(info.mem_free_kb(), 5u) << "from the earlier read: beyond byte 4095 nothing is read";
}

}  // namespace
