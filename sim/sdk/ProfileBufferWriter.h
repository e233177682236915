// Lays out instruction-sampler profile buffers in the SDK's format from a plain description:
// the simulated sampler serves them, and tests, fuzz seeds and benchmarks build their inputs
// with it. Support code, not part of the library.
//
// Layout written (little-endian; N = cpuCount):
//   header, 64 bytes: "PKPB" magic, +4 N, +5 format version 1, +16 first named section,
//     +20 thread table base (64), +48 time stamp (microseconds), +56 thread records,
//     +60 named sections
//   thread table at 64: 16 x N bytes of per-CPU descriptors (CPU index, then zeros), then one
//     record per thread: i32 tid, N x u64 cumulative samples per CPU, packed (stride 4 + 8N)
//   named sections after the thread table: 16-byte head (name NUL-padded in 0..14, entry count
//     in 15), then per entry a 32-byte NUL-padded name and N x u64 cumulative samples
// Names longer than their field are cut (15 and 31 characters); a section keeps at most 255
// entries; counts missing from a description are 0 and extra ones are dropped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SdkControl.h"

namespace sim::sdk {

struct ThreadCounts {
    int32_t tid;
    std::vector<uint64_t> counts;  // per CPU, cumulative
};

struct SectionEntry {
    std::string name;
    std::vector<uint64_t> counts;  // per CPU, cumulative
};

struct NamedSection {
    std::string name;
    std::vector<SectionEntry> entries;
};

struct ProfileDescription {
    uint8_t cpuCount = 0;
    uint64_t timestampUs = 0;
    std::vector<ThreadCounts> threads;
    std::vector<NamedSection> sections;
    // Whether the ProfileBuffer's cached fields repeat the header (else they read 0xFFFFFFFF).
    bool cacheHeader = true;
};

// The buffer's bytes and the ProfileBuffer's cached fields.
Reading writeProfileBuffer(const ProfileDescription& description);

// Where the writer puts things, for tests that corrupt a buffer on purpose.
inline constexpr uint32_t kProfileHeaderBytes = 64;
inline uint32_t threadRecordOffset(uint8_t cpuCount, size_t index) {
    return kProfileHeaderBytes + 16u * cpuCount +
           static_cast<uint32_t>(index) * (4u + 8u * cpuCount);
}

}  // namespace sim::sdk
