// SystemMemoryStats' parsers over arbitrary /proc/pressure/memory, idle_cluster_sz,
// simulated_bd_stat and idlehisto texts (in that order in the input, see FuzzInput.h). Each
// must agree with the fscanf loop it stands for, run over the same bytes as a stream.
#include <cstdlib>
#include <cstring>

#include "FuzzInput.h"
#include "procfsutils/SystemMemoryFiles.h"

namespace {

using namespace procfsutils::systemmemoryfiles;

PressureAverages referencePressure(FILE* stream) {
    PressureAverages out;
    char kind[5];
    float avg10 = 0, avg60 = 0, avg300 = 0;
    unsigned long total = 0;
    while (fscanf(stream, "%4s avg10=%f avg60=%f avg300=%f total=%lu", kind, &avg10, &avg60,
                  &avg300, &total) == 5) {
        if (strcmp(kind, "some") == 0)
            out = {avg10, avg60, avg300, out.fullAvg10, out.fullAvg60, out.fullAvg300};
        if (strcmp(kind, "full") == 0)
            out = {out.someAvg10, out.someAvg60, out.someAvg300, avg10, avg60, avg300};
    }
    return out;
}

void referenceSummed(FILE* stream, uint32_t* entries, size_t count) {
    size_t filled = 0;
    unsigned value = 0;
    while (fscanf(stream, "%u", &value) == 1) {
        if (filled < count) {
            entries[filled++] = value;
        } else {
            entries[count - 1] += value;
        }
    }
}

void referenceLeading(FILE* stream, uint64_t* entries, size_t count) {
    unsigned long long value = 0;
    for (size_t i = 0; i < count && fscanf(stream, "%llu", &value) == 1; ++i) entries[i] = value;
}

template <typename T, size_t N, typename Parse, typename Reference>
void checkValues(std::string text, Parse parse, Reference reference) {
    T ours[N], theirs[N];
    memset(ours, 0xff, sizeof(ours));
    memset(theirs, 0xff, sizeof(theirs));
    parse(text.c_str(), ours, N);
    reference(fuzzinput::streamOver(text).get(), theirs, N);
    if (memcmp(ours, theirs, sizeof(ours)) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzinput::Parts parts(data, size);
    std::string pressure = parts.get(0, kFileBytes);
    const PressureAverages ours = pressureAverages(pressure.c_str(), pressure.size());
    const PressureAverages theirs = referencePressure(fuzzinput::streamOver(pressure).get());
    if (memcmp(&ours, &theirs, sizeof(ours)) != 0) abort();  // bitwise, so NaNs compare too

    checkValues<uint32_t, 8>(parts.get(1, kFileBytes), summedValues, referenceSummed);
    checkValues<uint64_t, 4>(parts.get(2, kFileBytes), leadingValues, referenceLeading);
    checkValues<uint32_t, 16>(parts.get(3, kFileBytes), summedValues, referenceSummed);
    return 0;
}
