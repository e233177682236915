// Counts heap allocations around the reader's calls. This executable replaces the global
// operator new/delete, and in builds without a sanitizer (which owns malloc) also interposes
// malloc itself, so allocations made by C library calls count too.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "hostplatform/FsRoot.h"
#include "procfsutils/ProcFsParser.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

// The replacements pair operator new with malloc and operator delete with free, which GCC's
// inlining analysis cannot see through.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(size_t size) {
    ++g_allocations;
    if (void* p = malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    ++g_allocations;
    return malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VISTREL_COUNTS_MALLOC 0
#else
#define VISTREL_COUNTS_MALLOC 1
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t size) {
    ++g_allocations;
    return __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    ++g_allocations;
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t size) {
    ++g_allocations;
    return __libc_realloc(p, size);
}
}
#endif

namespace {

using namespace procfsutils;

template <typename Call>
long allocationsDuring(Call&& call) {
    const long before = g_allocations.load();
    call();
    return g_allocations.load() - before;
}

class ProcFsAllocations : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        hostplatform::setFsRoot(std::string(VISTREL_SOURCE_DIR "/tests/data/") + GetParam());
    }
    void TearDown() override { hostplatform::setFsRoot(""); }
};

TEST_P(ProcFsAllocations, NoneAfterConstruction) {
    ASSERT_GT(allocationsDuring([] { ProcFsParser parser; }), 0) << "the counter must see the buffer";

    ProcFsParser parser;
    int firstPid = 0;
    // Opening the /proc stream is the one allocation after construction (opendir's malloc).
    const long openAllocations = allocationsDuring([&] { parser.getNextPid(&firstPid); });
    EXPECT_NE(firstPid, 0);
    if (VISTREL_COUNTS_MALLOC) {
        EXPECT_GT(openAllocations, 0) << "the counter must see malloc";
    }
    ProcessStatusData status;
    VmStatData vm;
    BlockDeviceStatData block;
    ZramStatData zram;
    bool ok = true;
    EXPECT_EQ(allocationsDuring([&] {
                  for (int round = 0; round < 3; ++round) {
                      parser.reset();
                      int pid;
                      while (parser.getNextPid(&pid)) ok &= parser.getProcessStatusData(pid, &status);
                      ok &= !parser.getProcessStatusData(999999, &status);
                      ok &= parser.getVmStatData(&vm);
                      ok &= parser.getBlockDeviceStatData("zram0", &block);
                      ok &= !parser.getBlockDeviceStatData("missing", &block);
                      ok &= parser.getZramStatData(&zram);
                  }
              }),
              0);
    EXPECT_TRUE(ok);
}

INSTANTIATE_TEST_SUITE_P(FixtureTrees, ProcFsAllocations,
                         ::testing::Values("procfs-host", "procfs-device"));

TEST(ProcFsAllocationsLive, NoneScanningThisMachine) {
    ProcFsParser parser;
    int pid;
    ASSERT_TRUE(parser.getNextPid(&pid));
    ProcessStatusData status;
    VmStatData vm;
    int processes = 0;
    EXPECT_EQ(allocationsDuring([&] {
                  while (parser.getNextPid(&pid)) processes += parser.getProcessStatusData(pid, &status);
                  parser.getVmStatData(&vm);
              }),
              0);
    EXPECT_GT(processes, 0);
}

}  // namespace
