// libinstsamp.halden.so, simulated: the instruction sampler, interface version 4.
//
// A session is begun with a configuration (recorded for tests) and ended; while it runs,
// readProfileBuffer serves a reading in the SDK's profile format, kept in the sampler until its
// next read, and getThreadInfo names its threads. What the readings hold follows the control
// library's sampler mode (SamplerSources.h has the details):
//   simulated  headset-like threads and features driven by the simulated headset's device time
//              and interactive state
//   live       every thread of the machine (/proc/<pid>/task) and its /proc/stat; an
//              approximation: each thread's utime + stime ticks gained since the previous
//              reading are credited to the CPU it last ran on
//   scripted   exactly the readings a test supplied, then null
//
// Variants (compile definitions), each built into its own module directory for tests:
//   VISTREL_SDK_NO_CREATE            the create function is not exported
//   VISTREL_SDK_NO_DESTROY           the destroy function is not exported
//   VISTREL_SDK_CREATE_RETURNS_NULL  the create function returns null
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "ModuleMemory.h"
#include "SamplerSources.h"
#include "SdkControl.h"
#include "ThreadSafety.h"
#include "platkit/instsamp/IInstructionSampler.h"

#define MODULE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using Platkit::Array;
using Platkit::String;
using Platkit::InstructionSampler::v4::IInstructionSampler;
using Platkit::InstructionSampler::v4::ProfileBuffer;
using Platkit::InstructionSampler::v4::SampleConfiguration;
using Platkit::InstructionSampler::v4::ThreadInfo;

constexpr int64_t kVersion = 4;

sim::sdk::SessionConfiguration describe(const SampleConfiguration& c) {
    sim::sdk::SessionConfiguration seen{};
    for (const auto info : c.sampleInfos) seen.sampleInfos.push_back(info);
    for (const auto& name : c.bufferNames) seen.bufferNames.emplace_back(name.c_str());
    seen.sampleKernel = c.sampleKernel;
    seen.perThread = c.perThread;
    seen.samplingPeriodUs = c.samplingPeriodUs;
    seen.tracePathLength = c.tracePath.length;
    return seen;
}

class SimInstructionSampler final : public IInstructionSampler {
public:
    bool beginSession(const SampleConfiguration& configuration) override EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        if (active_ || sim::sdk::hooks().refuseSession) return false;
        sim::sdk::recordSessionBegun(describe(configuration));
        active_ = true;
        simulated_ = std::make_unique<sim::sdk::SimulatedHeadset>(configuration.samplingPeriodUs,
                                                                  sim::sdk::deviceNs());
        live_ = std::make_unique<sim::sdk::LiveProcess>();
        return true;
    }

    ProfileBuffer* readProfileBuffer() override EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        sim::sdk::recordProfileBufferRead();
        if (!active_) return nullptr;
        std::optional<sim::sdk::Reading> reading = nextReading();
        if (!reading) return nullptr;
        bytes_ = std::move(reading->bytes);
        buffer_ = ProfileBuffer{};
        buffer_.data = bytes_.data();
        buffer_.size = bytes_.size();
        buffer_.sequence = ++reads_;
        buffer_.namedSectionOffset = reading->cachedSectionOffset;
        buffer_.threadTableOffset = reading->cachedThreadTableOffset;
        buffer_.cpuCount = reading->cachedCpuCount;
        return &buffer_;
    }

    Array<ThreadInfo> getThreadInfo(const Array<int32_t>& tids) override EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        auto infos = sim::sdk::moduleArray<ThreadInfo>(tids.size());
        for (uint64_t i = 0; i < tids.size(); ++i) {
            infos[i].tid = tids[i];
            infos[i].tgid = getpid();
            const std::string name = threadName(tids[i]);
            if (!name.empty()) infos[i].name = sim::sdk::moduleText(name);
        }
        return infos;
    }

    bool endSession() override EXCLUDES(mutex_) {
        threadsafety::MutexLock lock(mutex_);
        if (!active_) return false;
        active_ = false;
        sim::sdk::recordSessionEnded();
        return true;
    }

private:
    std::optional<sim::sdk::Reading> nextReading() REQUIRES(mutex_) {
        switch (sim::sdk::samplerMode()) {
            case sim::sdk::SamplerMode::Scripted:
                return sim::sdk::takeScriptedReading();
            case sim::sdk::SamplerMode::Simulated:
                return simulated_->next();
            case sim::sdk::SamplerMode::Live:
                return live_->next();
        }
        return std::nullopt;
    }

    std::string threadName(int32_t tid) REQUIRES(mutex_) {
        switch (sim::sdk::samplerMode()) {
            case sim::sdk::SamplerMode::Scripted:
                return sim::sdk::scriptedThreadName(tid);
            case sim::sdk::SamplerMode::Simulated:
                return simulated_ ? simulated_->threadName(tid) : std::string();
            case sim::sdk::SamplerMode::Live:
                return live_ ? live_->threadName(tid) : std::string();
        }
        return std::string();
    }

    threadsafety::Mutex mutex_;
    bool active_ GUARDED_BY(mutex_) = false;
    uint64_t reads_ GUARDED_BY(mutex_) = 0;
    std::unique_ptr<sim::sdk::SimulatedHeadset> simulated_ GUARDED_BY(mutex_);
    std::unique_ptr<sim::sdk::LiveProcess> live_ GUARDED_BY(mutex_);
    std::vector<uint8_t> bytes_ GUARDED_BY(mutex_);
    ProfileBuffer buffer_ GUARDED_BY(mutex_);
};

}  // namespace

#ifndef VISTREL_SDK_NO_CREATE
MODULE_EXPORT IInstructionSampler* createInstructionSampler(int64_t version) {
    sim::sdk::recordCreate(version);
#ifdef VISTREL_SDK_CREATE_RETURNS_NULL
    return nullptr;
#else
    if (version != kVersion || sim::sdk::hooks().createReturnsNull) return nullptr;
    return new SimInstructionSampler;
#endif
}
#endif

#ifndef VISTREL_SDK_NO_DESTROY
MODULE_EXPORT void destroyInstructionSampler(int64_t version,
                                             IInstructionSampler* sampler) noexcept {
    sim::sdk::recordDestroy("destroyInstructionSampler", version, sampler);
    // Returning an object under another version than it was made with is a caller's bug.
    if (version != kVersion) abort();
    delete static_cast<SimInstructionSampler*>(sampler);
}
#endif
