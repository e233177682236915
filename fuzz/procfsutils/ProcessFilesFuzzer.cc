// ProcessMemoryStats' per-process parsers over arbitrary /proc/<pid>/cmdline, oom_score_adj and
// stat texts (in that order in the input, see FuzzInput.h). Each must agree with the stdio
// reading it stands for, run over the same bytes as a stream.
#include <cstdlib>
#include <cstring>

#include "FuzzInput.h"
#include "procfsutils/ProcessFiles.h"

namespace {

using namespace procfsutils::processfiles;

// fread of at most kLineBytes bytes, then strtok(line, " ").
std::optional<std::string> referenceName(FILE* stream) {
    char line[kLineBytes + 1] = {};
    if (fread(line, 1, kLineBytes, stream) < 1) return std::nullopt;
    char* save = nullptr;
    const char* first = strtok_r(line, " ", &save);
    return first ? std::optional<std::string>(first) : std::nullopt;
}

std::optional<int> referenceOom(FILE* stream) {
    int value = 0;
    return fscanf(stream, "%d", &value) == 1 ? std::optional<int>(value) : std::nullopt;
}

// fscanf "%d %255s", fread of at most kLineBytes bytes, fields counted from 3 by strtok.
std::optional<StatTimes> referenceTimes(FILE* stream) {
    char rest[kLineBytes + 1] = {};
    int pid = 0;
    char command[kLineBytes];
    size_t count = 0;
    if (fscanf(stream, "%d %255s", &pid, command) >= 0) count = fread(rest, 1, kLineBytes, stream);
    if (count < 1) return std::nullopt;
    StatTimes times;
    char* save = nullptr;
    int field = 3;
    for (char* token = strtok_r(rest, " ", &save); token != nullptr;
         token = strtok_r(nullptr, " ", &save), ++field) {
        if (field == 14) times.utime = strtoul(token, nullptr, 10);
        if (field == 15) times.stime = strtoul(token, nullptr, 10);
        if (field == 22) {
            times.starttime = strtoull(token, nullptr, 10);
            break;
        }
    }
    return times;
}

bool same(const std::optional<StatTimes>& a, const std::optional<StatTimes>& b) {
    if (!a || !b) return !a && !b;
    return a->utime == b->utime && a->stime == b->stime && a->starttime == b->starttime;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzinput::Parts parts(data, size);
    std::string cmdline = parts.get(0, kLineBytes);
    std::string oom = parts.get(1, kOomScoreAdjBytes);
    std::string stat = parts.get(2, kStatBytes);

    const auto name = programName(cmdline.c_str(), cmdline.size());
    const auto expectedName = referenceName(fuzzinput::streamOver(cmdline).get());
    if (name.has_value() != expectedName.has_value()) abort();
    if (name && *name != *expectedName) abort();
    if (oomScoreAdj(oom.c_str()) != referenceOom(fuzzinput::streamOver(oom).get())) abort();
    if (!same(statTimes(stat.c_str(), stat.size()),
              referenceTimes(fuzzinput::streamOver(stat).get())))
        abort();
    return 0;
}
