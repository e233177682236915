#include <meminfo/sysmeminfo.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FixtureTree.h"

namespace {

using android::meminfo::SysMemInfo;
using testing_support::FixtureTree;

TEST(SysMemInfo, DefaultTagsFillTheMapThroughTheFileSystemRoot) {
    FixtureTree tree("memstorage/device");
    SysMemInfo info;
    ASSERT_TRUE(info.ReadMemInfo());
    EXPECT_EQ(info.mem_total_kb(), 5804656u);
    EXPECT_EQ(info.mem_available_kb(), 2103340u);
    EXPECT_EQ(info.mem_cached_kb(), 1855904u) << "\"Cached:\" is not confused with \"SwapCached:\"";
    EXPECT_EQ(info.mem_kreclaimable_kb(), 266020u);
    EXPECT_EQ(info.mem_vmalloc_used_kb(), 170860u);
}

TEST(SysMemInfo, MissingTagsReadAsZeroFromTheMapAndStayUntouchedInArrays) {
    FixtureTree tree("memstorage/legacy");
    SysMemInfo info;
    EXPECT_TRUE(info.ReadMemInfo()) << "a missing tag is not a failure";
    EXPECT_EQ(info.mem_available_kb(), 0u);

    const std::string_view tags[] = {SysMemInfo::kMemAvailable, SysMemInfo::kMemTotal, "Bogus:"};
    uint64_t out[] = {7, 7, 7};
    ASSERT_TRUE(info.ReadMemInfo(3, tags, out));
    EXPECT_EQ(out[0], 7u);
    EXPECT_EQ(out[1], 5804656u);
    EXPECT_EQ(out[2], 7u);
}

TEST(SysMemInfo, VectorFormFollowsTheDefaultTagOrder) {
    FixtureTree tree("memstorage/workstation");
    std::vector<uint64_t> values = {1, 2, 3};
    SysMemInfo info;
    ASSERT_TRUE(info.ReadMemInfo(&values));
    ASSERT_EQ(values.size(), SysMemInfo::kDefaultSysMemInfoTags.size());
    EXPECT_EQ(values.front(), 24684092u) << "MemTotal of the captured workstation";
    EXPECT_EQ(values.back(), 24297552u) << "MemAvailable comes last";
}

TEST(SysMemInfo, ExplicitPathUnreadableFileAndBadNumber) {
    FixtureTree tree("");
    SysMemInfo info;
    EXPECT_FALSE(info.ReadMemInfo()) << "no /proc/meminfo under the root";
    tree.write("/other", "MemTotal: 12 kB\n");
    EXPECT_TRUE(info.ReadMemInfo("/other"));
    EXPECT_EQ(info.mem_total_kb(), 12u);
    tree.write("/proc/meminfo", "MemFree: 5 kB\nMemTotal: lots\n");
    EXPECT_FALSE(info.ReadMemInfo());
}

TEST(SysMemInfo, OnlyTheFirst4095BytesAreRead) {
    FixtureTree tree("");
    const std::string filler(4095 - 16, 'x');
    // "MemTotal: 1 kB\n" ends exactly at byte 4095; MemFree lies beyond.
    tree.write("/proc/meminfo", filler + "\nMemTotal: 1 kB\nMemFree: 2 kB\n");
    SysMemInfo info;
    ASSERT_TRUE(info.ReadMemInfo());
    EXPECT_EQ(info.mem_total_kb(), 1u);
    EXPECT_EQ(info.mem_free_kb(), 0u);
}

}  // namespace
