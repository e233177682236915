// Counts heap allocations around the reader's calls. This executable replaces the global
// operator new/delete, and in builds without a sanitizer (which owns malloc) also interposes
// malloc itself, so allocations made by C library calls count too.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "Sanitizers.h"
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

// The other forms (array, nothrow) forward to these in libstdc++.
void* operator new(size_t size) {
    ++g_allocations;
    if (void* p = malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    free(p);
}
void operator delete(void* p, size_t) noexcept {
    free(p);
}

#if VISTREL_SANITIZED_HEAP
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

TEST(ProcFsAllocations, NoneAfterConstruction) {
    ASSERT_GT(allocationsDuring([] { ProcFsParser parser; }), 0)
            << "the counter must see the buffer";

    ProcFsParser parser;  // scans this machine's /proc, the other files from the device tree
    int pid = 0;
    // Opening the /proc stream is the one allocation after construction (opendir's malloc).
    const long openAllocations = allocationsDuring([&] { parser.getNextPid(&pid); });
    if (VISTREL_COUNTS_MALLOC) {
        EXPECT_GT(openAllocations, 0) << "the counter must see malloc";
    }
    ProcessStatusData status;
    VmStatData vm;
    BlockDeviceStatData block;
    ZramStatData zram;
    int processes = 0;
    bool ok = true;
    const std::string machine, deviceTree = VISTREL_SOURCE_DIR "/tests/data/procfs-device";
    EXPECT_EQ(allocationsDuring([&] {
                  for (int round = 0; round < 3; ++round) {
                      hostplatform::setFsRoot(machine);
                      parser.reset();
                      while (parser.getNextPid(&pid))
                          processes += parser.getProcessStatusData(pid, &status);
                      ok &= !parser.getProcessStatusData(-1, &status);
                      hostplatform::setFsRoot(deviceTree);
                      ok &= parser.getProcessStatusData(4321, &status);
                      ok &= parser.getVmStatData(&vm);
                      ok &= parser.getBlockDeviceStatData("zram0", &block);
                      ok &= !parser.getBlockDeviceStatData("missing", &block);
                      ok &= parser.getZramStatData(&zram);
                  }
              }),
              0);
    hostplatform::setFsRoot("");
    EXPECT_TRUE(ok);
    EXPECT_GT(processes, 3);
}

}  // namespace
