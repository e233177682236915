// Parsing of the per-process files ProcessMemoryStats reads, as the stdio calls they stand for
// read them.
//
//   /proc/<pid>/cmdline        "/system/bin/surfaceflinger\0--flag\0": the arguments, each NUL-ended
//   /proc/<pid>/oom_score_adj  "-800\n": one decimal integer in -1000..1000
//   /proc/<pid>/stat           "1234 (surfaceflinger) S 1 1234 0 0 -1 4210944 9000 0 12 0 310 95 ..."
//                              blank-separated fields; utime (14), stime (15) and starttime (22)
//                              in clock ticks
#include "procfsutils/ProcessFiles.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace procfsutils::processfiles {
namespace {

// isspace() of the C locale, which is what scanf skips.
bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

const char* skipSpaces(const char* p, const char* end) {
    while (p < end && isSpace(*p)) ++p;
    return p;
}

// Where fscanf(stream, "%d %255s") leaves the stream: past the pid, the blanks and up to 255
// bytes of the command word. With no digits, the scan fails after the blanks and an optional
// sign, and the stream stays there.
const char* skipPidAndCommand(const char* p, const char* end) {
    p = skipSpaces(p, end);
    if (p < end && (*p == '+' || *p == '-')) ++p;
    const char* digits = p;
    while (p < end && isDigit(*p)) ++p;
    if (p == digits) return p;
    p = skipSpaces(p, end);
    for (int taken = 0; p < end && taken < 255 && !isSpace(*p); ++taken) ++p;
    return p;
}

}  // namespace

std::optional<std::string_view> programName(const char* text, size_t length) {
    const auto* nul = static_cast<const char*>(memchr(text, '\0', length));
    const char* end = nul != nullptr ? nul : text + length;
    const char* start = text;
    while (start < end && *start == ' ') ++start;
    const char* stop = start;
    while (stop < end && *stop != ' ') ++stop;
    if (start == stop) return std::nullopt;
    return std::string_view(start, static_cast<size_t>(stop - start));
}

std::optional<int> oomScoreAdj(const char* text) {
    int value = 0;
    if (sscanf(text, "%d", &value) != 1) return std::nullopt;
    return value;
}

std::optional<StatTimes> statTimes(const char* text, size_t length) {
    const char* end = text + length;
    const char* restStart = skipPidAndCommand(text, end);
    const size_t restLength = std::min(static_cast<size_t>(end - restStart), kLineBytes);
    if (restLength < 1) return std::nullopt;
    char rest[kLineBytes + 1] = {};  // the spare zero byte terminates a full remainder
    memcpy(rest, restStart, restLength);

    StatTimes times;
    char* save = nullptr;
    int field = 3;
    for (char* token = strtok_r(rest, " ", &save); token != nullptr;
         token = strtok_r(nullptr, " ", &save), ++field) {
        if (field == 14) {
            times.utime = strtoul(token, nullptr, 10);
        } else if (field == 15) {
            times.stime = strtoul(token, nullptr, 10);
        } else if (field == 22) {
            times.starttime = strtoull(token, nullptr, 10);
            break;
        }
    }
    return times;
}

}  // namespace procfsutils::processfiles
