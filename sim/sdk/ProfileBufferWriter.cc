#include "ProfileBufferWriter.h"

#include <algorithm>
#include <cstring>

namespace sim::sdk {
namespace {

class Bytes {
public:
    void u8(uint8_t value) { bytes_.push_back(value); }
    void u32(uint32_t value) { raw(&value, sizeof(value)); }
    void i32(int32_t value) { raw(&value, sizeof(value)); }
    void u64(uint64_t value) { raw(&value, sizeof(value)); }
    // `text` cut to `width` - 1 characters, NUL-padded to `width` bytes.
    void name(const std::string& text, size_t width) {
        const size_t used = std::min(text.size(), width - 1);
        raw(text.data(), used);
        bytes_.insert(bytes_.end(), width - used, 0);
    }
    void counts(const std::vector<uint64_t>& values, uint8_t cpus) {
        for (uint8_t i = 0; i < cpus; ++i) u64(i < values.size() ? values[i] : 0);
    }
    size_t size() const { return bytes_.size(); }
    std::vector<uint8_t> take() { return std::move(bytes_); }

private:
    void raw(const void* data, size_t length) {
        const auto* p = static_cast<const uint8_t*>(data);
        bytes_.insert(bytes_.end(), p, p + length);
    }
    std::vector<uint8_t> bytes_;
};

}  // namespace

Reading writeProfileBuffer(const ProfileDescription& d) {
    const uint8_t cpus = d.cpuCount;
    Bytes buffer;
    buffer.name("PKPB", 5);  // the magic; the header's fields are filled in at the end
    for (uint32_t i = 5; i < kProfileHeaderBytes; ++i) buffer.u8(0);

    const uint32_t tableBase = kProfileHeaderBytes;
    for (uint8_t cpu = 0; cpu < cpus; ++cpu) {
        buffer.u32(cpu);
        for (int i = 0; i < 12; ++i) buffer.u8(0);
    }
    for (const auto& thread : d.threads) {
        buffer.i32(thread.tid);
        buffer.counts(thread.counts, cpus);
    }
    const auto firstSection = static_cast<uint32_t>(buffer.size());
    const size_t sections = std::min<size_t>(d.sections.size(), 255);
    for (size_t s = 0; s < sections; ++s) {
        const NamedSection& section = d.sections[s];
        const size_t entries = std::min<size_t>(section.entries.size(), 255);
        buffer.name(section.name, 15);
        buffer.u8(static_cast<uint8_t>(entries));
        for (size_t e = 0; e < entries; ++e) {
            buffer.name(section.entries[e].name, 32);
            buffer.counts(section.entries[e].counts, cpus);
        }
    }

    std::vector<uint8_t> bytes = buffer.take();
    bytes[4] = cpus;
    bytes[5] = 1;  // format version
    memcpy(&bytes[16], &firstSection, 4);
    memcpy(&bytes[20], &tableBase, 4);
    memcpy(&bytes[48], &d.timestampUs, 8);
    const auto records = static_cast<uint32_t>(d.threads.size());
    memcpy(&bytes[56], &records, 4);
    bytes[60] = static_cast<uint8_t>(sections);

    Reading reading;
    reading.bytes = std::move(bytes);
    if (d.cacheHeader) {
        reading.cachedSectionOffset = firstSection;
        reading.cachedThreadTableOffset = tableBase;
        reading.cachedCpuCount = cpus;
    }
    return reading;
}

}  // namespace sim::sdk
