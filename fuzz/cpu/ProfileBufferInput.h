// The input of the profile-buffer fuzz target, shared with the program that writes its seeds:
//   bytes 0..11   the ProfileBuffer's cached fields: first named section, thread table base,
//                 CPU count (u32 each, little-endian; 0xFFFFFFFF = read the header)
//   bytes 12, 13  the CPU count CpuStats took at acquire time (numCpus_) for the first and the
//                 second reading (they differ when the sampler reported another count on a
//                 later acquire)
//   bytes 14..15  how many of the remaining bytes form the first reading (u16, little-endian,
//                 capped at what remains); the rest is the second reading
// Both readings use the same cached fields.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace profilefuzz {

inline constexpr size_t kPrefixBytes = 16;

struct Input {
    uint32_t cachedSectionOffset;
    uint32_t cachedThreadTableOffset;
    uint32_t cachedCpuCount;
    uint8_t numCpus;
    uint8_t numCpusSecond;
    std::vector<uint8_t> first;
    std::vector<uint8_t> second;
};

inline std::vector<uint8_t> encode(const Input& in) {
    std::vector<uint8_t> out(kPrefixBytes);
    memcpy(&out[0], &in.cachedSectionOffset, 4);
    memcpy(&out[4], &in.cachedThreadTableOffset, 4);
    memcpy(&out[8], &in.cachedCpuCount, 4);
    out[12] = in.numCpus;
    out[13] = in.numCpusSecond;
    const auto split = static_cast<uint16_t>(in.first.size());
    memcpy(&out[14], &split, 2);
    out.insert(out.end(), in.first.begin(), in.first.end());
    out.insert(out.end(), in.second.begin(), in.second.end());
    return out;
}

// False when the input is too short to hold the prefix.
inline bool decode(const uint8_t* data, size_t size, Input* in) {
    if (size < kPrefixBytes) return false;
    memcpy(&in->cachedSectionOffset, data, 4);
    memcpy(&in->cachedThreadTableOffset, data + 4, 4);
    memcpy(&in->cachedCpuCount, data + 8, 4);
    in->numCpus = data[12];
    in->numCpusSecond = data[13];
    uint16_t split;
    memcpy(&split, data + 14, 2);
    const size_t rest = size - kPrefixBytes;
    const size_t firstBytes = split < rest ? split : rest;
    in->first.assign(data + kPrefixBytes, data + kPrefixBytes + firstBytes);
    in->second.assign(data + kPrefixBytes + firstBytes, data + size);
    return true;
}

}  // namespace profilefuzz
