// The SDK's instruction sampler (module "libinstsamp.halden.so", interface version 4): a
// sampling session over the device's CPUs whose results are read as a profile buffer.
//
// The record layouts and the virtual table below are the SDK's binary interface: never reorder,
// insert or remove a field or an operation. Samplers are created and destroyed by the module's
// exported functions (declared at the end); createInstructionSamplerPtr() wraps both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platkit/Types.h"

namespace Platkit {
namespace InstructionSampler {
namespace v1 {

// What each sample records; the codes are the SDK's.
using SampleInfo = uint32_t;

// What a session samples. Destroying it releases tracePath, then bufferNames, then sampleInfos.
struct SampleConfiguration {
    Array<SampleInfo> sampleInfos;
    Array<String> bufferNames;  // named sections to produce, e.g. "features.100"
    uint32_t sampleKernel = 0;
    uint32_t perThread = 0;
    uint32_t samplingPeriodUs = 5000;
    String tracePath;
};

// One thread as the sampler reports it.
struct ThreadInfo {
    int32_t tid = 0;
    int32_t tgid = 0;
    String name;  // empty when the sampler no longer knows the thread
};

// A reading of the sampler, owned by the module and valid until its next readProfileBuffer().
// `data` points at `size` bytes in the SDK's profile format; the three cached fields repeat
// values of that format's header, or hold kNotCached when the header is to be read instead.
struct ProfileBuffer {
    static constexpr uint32_t kNotCached = 0xFFFFFFFF;

    const uint8_t* data = nullptr;
    uint64_t size = 0;
    uint64_t sequence = 0;  // readings since the session began
    uint64_t sessionId = 0;
    uint64_t droppedSamples = 0;
    uint32_t namedSectionOffset = kNotCached;
    uint32_t threadTableOffset = kNotCached;
    uint32_t flags = 0;
    uint32_t cpuCount = kNotCached;
};
static_assert(offsetof(ProfileBuffer, data) == 0 && offsetof(ProfileBuffer, size) == 8 &&
                      offsetof(ProfileBuffer, namedSectionOffset) == 40 &&
                      offsetof(ProfileBuffer, threadTableOffset) == 44 &&
                      offsetof(ProfileBuffer, cpuCount) == 52,
              "the SDK's ProfileBuffer layout");

}  // namespace v1

namespace v4 {

using v1::ProfileBuffer;
using v1::SampleConfiguration;
using v1::SampleInfo;
using v1::ThreadInfo;

class IInstructionSampler {
public:
    virtual ~IInstructionSampler() = default;  // slots 0-1

    // Starts a session; false when none could be started.
    virtual bool beginSession(const SampleConfiguration& configuration) = 0;  // slot 2
    // The current reading, or null; the previous reading becomes invalid.
    virtual ProfileBuffer* readProfileBuffer() = 0;  // slot 3
    // Names of the given threads, one element per id in order (empty name when unknown). The
    // result is the module's; release it through its own release function.
    virtual Array<ThreadInfo> getThreadInfo(const Array<int32_t>& tids) = 0;  // slot 4
    virtual bool endSession() = 0;                                            // slot 5
};

// A new sampler, or an empty handle when the module or its create function is missing or
// creation fails. The last release of the handle calls destroyInstructionSampler(4, object).
std::shared_ptr<IInstructionSampler> createInstructionSamplerPtr();

}  // namespace v4
}  // namespace InstructionSampler
}  // namespace Platkit

// Entry points the module exports with C linkage.
extern "C" {
Platkit::InstructionSampler::v4::IInstructionSampler* createInstructionSampler(int64_t version);
void destroyInstructionSampler(
        int64_t version, Platkit::InstructionSampler::v4::IInstructionSampler* sampler) noexcept;
}
