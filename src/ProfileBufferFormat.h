// Reading the instruction sampler's profile buffer (library-internal). The bytes come from an SDK
// module, so every read is bounds-checked against the raw buffer; on a well-formed buffer the
// checks change nothing. Pure and allocation-free: callers get positions and callbacks.
//
// The ProfileBuffer object (SDK record): data, size, and three cached header values, each
// 0xFFFFFFFF when the header is to be read instead:
//   +40 u32 first named section   +44 u32 thread table base   +52 u32 CPU count
// The raw buffer, little-endian, a 64-byte header first:
//   +4 u8 CPU count N   +16 u32 first named section   +20 u32 thread table base
//   +48 u64 time stamp of the reading, microseconds   +56 u32 thread records
//   +60 u8 named sections
// Thread table (at its base): 16 x N bytes this reader skips, then packed records of
//   i32 thread id, N x u64 samples per CPU (cumulative, unaligned), stride 4 + 8 x N
// Named sections (from the first one on): a 16-byte head, the name NUL-padded in bytes 0..14 and
// the entry count E in byte 15, then E entries of
//   32-byte NUL-terminated name, N x u64 samples per CPU (cumulative)
// and the next section 16 + E x (32 + 8 x N) bytes after the head. Example with N = 2:
//   head "features\0\0\0\0\0\0\0" 0x01 | "render\0..." (32 bytes) | 1200 | 345
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "platkit/instsamp/IInstructionSampler.h"

namespace Vistrel::profilebuffer {

using Platkit::InstructionSampler::v4::ProfileBuffer;

inline constexpr uint64_t kHeaderBytes = 64;
inline constexpr uint32_t kNotCached = ProfileBuffer::kNotCached;
// Bytes of counts a thread table or a section may make its reader copy, per byte of buffer.
inline constexpr uint64_t kCopyBudgetPerByte = 16;

// What the reader uses of a ProfileBuffer.
struct View {
    const uint8_t* data;
    uint64_t size;
    uint32_t cachedSectionOffset;
    uint32_t cachedThreadTableOffset;
    uint32_t cachedCpuCount;
};

inline View viewOf(const ProfileBuffer& buffer) {
    return {buffer.data, buffer.data == nullptr ? 0 : buffer.size, buffer.namedSectionOffset,
            buffer.threadTableOffset, buffer.cpuCount};
}

// True when `length` bytes at `offset` lie inside the buffer.
inline bool fits(const View& v, uint64_t offset, uint64_t length) {
    return length <= v.size && offset <= v.size - length;
}

// Unaligned little-endian loads; the caller has checked fits().
inline uint32_t u32At(const uint8_t* p) {
    uint32_t value;
    memcpy(&value, p, sizeof(value));
    return value;
}
inline uint64_t u64At(const uint8_t* p) {
    uint64_t value;
    memcpy(&value, p, sizeof(value));
    return value;
}
inline int32_t i32At(const uint8_t* p) {
    int32_t value;
    memcpy(&value, p, sizeof(value));
    return value;
}

// Bytes of `cpus` per-CPU counts; a negative count never fits any buffer.
inline uint64_t countBytes(int32_t cpus) {
    return cpus < 0 ? UINT64_MAX / 2 : uint64_t{8} * static_cast<uint32_t>(cpus);
}

// The CPU count: cached, or the header byte. Empty when the buffer has no such byte.
inline std::optional<uint32_t> cpuCount(const View& v) {
    if (v.cachedCpuCount != kNotCached) return v.cachedCpuCount;
    if (!fits(v, 4, 1)) return std::nullopt;  // hardening: no header to read it from
    return v.data[4];
}

// Seconds; needs the header.
inline double timestampSeconds(const View& v) {
    return static_cast<double>(u64At(v.data + 48)) / 1e6;
}

// Hardening: records or entries overlap when the buffer lists fewer CPUs than the caller copies
// per record; a read stops once it has copied 16 times the buffer's size, so such a buffer
// cannot make a reading huge. A well-formed buffer never copies more than its own size.
class CopyBudget {
public:
    explicit CopyBudget(const View& v)
        : left(v.size > UINT64_MAX / kCopyBudgetPerByte ? UINT64_MAX : kCopyBudgetPerByte * v.size) {
    }
    // False once `bytes` more would pass the budget. `bytes` fit in the buffer, so no overflow.
    bool take(uint64_t bytes) {
        if (bytes > left) return false;
        left -= bytes;
        return true;
    }

private:
    uint64_t left;
};

struct ThreadTable {
    uint64_t firstRecord;
    uint64_t stride;
    uint32_t records;
};

// The thread table, or empty when its base is 0 or its first record position does not fit.
inline std::optional<ThreadTable> threadTable(const View& v) {
    if (v.size < kHeaderBytes) return std::nullopt;  // hardening: every header read needs 64 bytes
    const uint64_t base = v.cachedThreadTableOffset != kNotCached ? v.cachedThreadTableOffset
                                                                  : u32At(v.data + 20);
    const uint64_t cpus = *cpuCount(v);
    if (base == 0) return std::nullopt;
    const uint64_t first = base + 16 * cpus;
    if (first + 4 > v.size) return std::nullopt;
    return ThreadTable{first, 4 + 8 * cpus, u32At(v.data + 56)};
}

// Calls onRecord(tid, counts) for each record, in order, until one would pass the end of the
// buffer; `counts` points at the record's unaligned per-CPU counts, of which the caller reads
// `copiedCpus`.
template <typename OnRecord>
void forEachThreadRecord(const View& v, const ThreadTable& table, int32_t copiedCpus,
                         OnRecord&& onRecord) {
    // Hardening: a record is also abandoned when the counts the caller copies would pass the end.
    const uint64_t needed = std::max(table.stride, 4 + countBytes(copiedCpus));
    CopyBudget budget(v);
    uint64_t at = table.firstRecord;
    for (uint32_t i = 0; i < table.records && fits(v, at, needed); ++i, at += table.stride) {
        if (!budget.take(countBytes(copiedCpus))) return;
        onRecord(i32At(v.data + at), v.data + at + 4);
    }
}

struct SectionTable {
    uint64_t first;
    uint8_t sections;
    uint64_t cpus;
};

// Where the named sections start and how many there are; empty when the buffer is shorter than
// its header, the first offset is 0 or its head does not fit, or no section is listed.
inline std::optional<SectionTable> sectionTable(const View& v) {
    // The size check comes first so that the header reads below stay inside the buffer.
    if (v.size < kHeaderBytes) return std::nullopt;
    const uint64_t first =
            v.cachedSectionOffset != kNotCached ? v.cachedSectionOffset : u32At(v.data + 16);
    if (first == 0 || first + 16 > v.size) return std::nullopt;
    const uint8_t sections = v.data[60];
    if (sections == 0) return std::nullopt;
    return SectionTable{first, sections, *cpuCount(v)};
}

struct Section {
    uint64_t head;
    uint8_t entries;
    uint64_t cpus;
};

// The first section called exactly `name` (at most 15 characters), searching at most as many
// sections as the table lists.
inline std::optional<Section> findSection(const View& v, const SectionTable& table,
                                          const char* name) {
    uint64_t head = table.first;
    for (uint8_t i = 0; i < table.sections; ++i) {
        if (!fits(v, head, 16)) return std::nullopt;  // hardening: a later head past the end
        const auto* text = reinterpret_cast<const char*>(v.data + head);
        const uint8_t entries = v.data[head + 15];
        if (strncmp(text, name, 15) == 0) return Section{head, entries, table.cpus};
        head += 16 + entries * (32 + 8 * table.cpus);
    }
    return std::nullopt;
}

// Calls onEntry(name, counts) for each entry of `section`, in order, until one would pass the
// end of the buffer; the caller reads `copiedCpus` counts.
template <typename OnEntry>
void forEachEntry(const View& v, const Section& section, int32_t copiedCpus, OnEntry&& onEntry) {
    const uint64_t stride = 32 + 8 * section.cpus;
    // Hardening: also abandoned when the counts the caller copies would pass the end.
    const uint64_t needed = std::max(stride, 32 + countBytes(copiedCpus));
    CopyBudget budget(v);
    uint64_t at = section.head + 16;
    for (uint8_t i = 0; i < section.entries && fits(v, at, needed); ++i, at += stride) {
        if (!budget.take(countBytes(copiedCpus))) return;
        const auto* name = reinterpret_cast<const char*>(v.data + at);
        // Hardening: a name with no NUL before the end of the buffer stops the read.
        const void* nul = memchr(name, '\0', v.size - at);
        if (nul == nullptr) return;
        onEntry(std::string_view(name, static_cast<const char*>(nul) - name), v.data + at + 32);
    }
}

}  // namespace Vistrel::profilebuffer
