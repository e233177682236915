// CpuStats' parsing of profile buffers from arbitrary bytes and cached fields (the input layout
// is in ProfileBufferInput.h): two readings, each with its own acquire-time CPU count, go
// through processNamedFeatures, processFeatureIds and processCpuSample in the last minute of a
// heartbeat period, then a snapshot reduces them.
// Each reading lies in a heap block of exactly its size, so AddressSanitizer reports any read
// past its end. The sampler is an in-process stand-in that names some threads.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "CpuStats.h"
#include "LogCapture.h"
#include "ProfileBufferInput.h"

namespace {

constexpr size_t kMaxInputBytes = 1024;

class NamingSampler : public Vistrel::IInstructionSampler {
public:
    bool beginSession(const Vistrel::SampleConfiguration&) override { return true; }
    Vistrel::ProfileBuffer* readProfileBuffer() override { return nullptr; }
    Platkit::Array<Vistrel::ThreadInfo> getThreadInfo(const Platkit::Array<int32_t>& tids) override {
        std::vector<Vistrel::ThreadInfo> infos(tids.size());
        for (uint64_t i = 0; i < tids.size(); ++i) {
            infos[i].tid = tids[i];
            // Every third thread has no name; the others share four names.
            if (tids[i] % 3 != 0) infos[i].name = Platkit::String(tids[i] % 4 == 0 ? "a" : "b");
        }
        return Platkit::Array<Vistrel::ThreadInfo>(std::move(infos));
    }
    bool endSession() override { return true; }
};

struct ZeroClock : Vistrel::IClockReader {
    int64_t elapsedNs() override { return 0; }
    int64_t readTimestamp() override { return 0; }
    int64_t nowNs() override { return 0; }
};

void parse(Vistrel::CpuStats& cpu, const std::vector<uint8_t>& raw, const profilefuzz::Input& in) {
    std::unique_ptr<uint8_t[]> exact(raw.empty() ? nullptr : new uint8_t[raw.size()]);
    if (!raw.empty()) memcpy(exact.get(), raw.data(), raw.size());
    Vistrel::ProfileBuffer buffer;
    buffer.data = exact.get();
    buffer.size = raw.size();
    buffer.namedSectionOffset = in.cachedSectionOffset;
    buffer.threadTableOffset = in.cachedThreadTableOffset;
    buffer.cpuCount = in.cachedCpuCount;
    cpu.processNamedFeatures(&buffer);
    cpu.processFeatureIds(&buffer);
    cpu.processCpuSample(&buffer);
    // Every stored reading holds exactly numCpus_ counts.
    for (const auto& reading : {Vistrel::currentProcessSnapshot_.get()}) {
        if (reading == nullptr) continue;
        for (const auto& [tid, counts] : *reading) {
            if (counts.size() != static_cast<size_t>(Vistrel::numCpus_)) abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Vistrel::CpuStats* const cpu = [] {
        Vistrel::instructionSampler_ = std::make_shared<NamingSampler>();
        return new Vistrel::CpuStats;
    }();
    // A kilobyte holds every structure of the format several times over; longer inputs only
    // add records that exercise the same code, at the cost of executions.
    profilefuzz::Input in;
    if (!profilefuzz::decode(data, std::min<size_t>(size, kMaxInputBytes), &in)) return 0;
    Vistrel::inLastMinute_ = true;
    Vistrel::numCpus_ = in.numCpus;
    parse(*cpu, in.first, in);
    Vistrel::numCpus_ = in.numCpusSecond;
    parse(*cpu, in.second, in);
    ZeroClock clock;
    if (!cpu->snapshot(clock, false)) abort();  // the sampler is there, so it always succeeds
    if (cpu->processStats) {
        for (const auto& [name, stats] : *cpu->processStats) {
            if (!(stats.total >= 1.0) || stats.perCpuMeanRate.size() != in.numCpusSecond) abort();
        }
    }
    logcapture::clear();
    return 0;
}
