// Writes the seeds of ProfileBufferFuzzer into the directory given as the only argument, laid
// out by the profile-buffer writer: well-formed readings with cached and header fields, a decoy
// section, repeated thread ids, more CPUs than the records hold, a CPU count that grows between
// the readings, a truncated pair. Each seed
// stays within the kilobyte the target reads.
//   build/fuzz/fuzz/MakeProfileBufferSeeds fuzz/corpus/ProfileBufferFuzzer
#include <cstdio>
#include <string>

#include "ProfileBufferInput.h"
#include "ProfileBufferWriter.h"

namespace {

using sim::sdk::NamedSection;
using sim::sdk::ProfileDescription;

ProfileDescription headset(uint64_t at, uint8_t cpus, bool cached) {
    ProfileDescription d;
    d.cpuCount = cpus;
    d.timestampUs = at * 1000000;
    d.cacheHeader = cached;
    for (int32_t tid : {1201, 3101, 911, 1201}) {
        d.threads.push_back({tid, std::vector<uint64_t>(cpus, at * static_cast<uint64_t>(tid % 7))});
    }
    d.sections = {NamedSection{"features.100", {{"render", {9, 9}}}},
                  NamedSection{"features", {{"render", {at, 2 * at}}, {"audio", {1, 0}}}},
                  NamedSection{"feature-ids", {{"100", {at, at}}}}};
    return d;
}

bool write(const std::string& dir, const std::string& name, const profilefuzz::Input& in) {
    const auto bytes = profilefuzz::encode(in);
    if (bytes.size() > 1024) {
        fprintf(stderr, "seed %s is %zu bytes, more than the target reads\n", name.c_str(),
                bytes.size());
        return false;
    }
    FILE* out = fopen((dir + "/" + name).c_str(), "wb");
    if (out == nullptr) return false;
    fwrite(bytes.data(), 1, bytes.size(), out);
    return fclose(out) == 0;
}

// `cpus` and `secondCpus`: numCpus_ for the first and the second reading.
profilefuzz::Input pair(const ProfileDescription& a, const ProfileDescription& b, uint8_t cpus,
                        uint8_t secondCpus) {
    const auto first = sim::sdk::writeProfileBuffer(a);
    const auto second = sim::sdk::writeProfileBuffer(b);
    return {first.cachedSectionOffset,
            first.cachedThreadTableOffset,
            first.cachedCpuCount,
            cpus,
            secondCpus,
            first.bytes,
            second.bytes};
}

profilefuzz::Input pair(const ProfileDescription& a, const ProfileDescription& b, uint8_t cpus) {
    return pair(a, b, cpus, cpus);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s <seed directory>\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    bool ok = true;
    ok &= write(dir, "cached-2cpu", pair(headset(250, 2, true), headset(260, 2, true), 2));
    auto eightCpus = pair(headset(250, 8, false), ProfileDescription{}, 8);
    ok &= write(dir, "header-8cpu", eightCpus);
    ok &= write(dir, "more-cpus-than-records",
                pair(headset(250, 2, true), headset(260, 2, true), 5));
    // Uncached, so each reading is read with its own header's count.
    ok &= write(dir, "cpus-grow-between-readings",
                pair(headset(250, 2, false), headset(260, 4, false), 2, 4));
    auto truncated = pair(headset(250, 4, false), headset(260, 4, false), 4);
    truncated.second.resize(truncated.second.size() / 2);
    ok &= write(dir, "truncated-second", truncated);
    ProfileDescription empty;
    ok &= write(dir, "empty-reading", pair(empty, empty, 0));
    return ok ? 0 : 1;
}
