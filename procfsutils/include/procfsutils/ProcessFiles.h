// Parsing of the per-process files ProcessMemoryStats reads, over bytes already read. Pure
// functions: no file access, no state, so tests and fuzz targets feed them strings. Each reads its
// text as the stdio call it stands for reads a stream (noted per function), NUL bytes included;
// `text` must be followed by a NUL at text[length].
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace procfsutils::processfiles {

// Bytes taken in from each file (read buffers hold one more, for the NUL): all of cmdline that
// is looked at; of stat, the pid, the command (at most 255 bytes count) and the kLineBytes
// after it, in a line of a few hundred bytes; oom_score_adj is at most six.
inline constexpr size_t kLineBytes = 256;
inline constexpr size_t kStatBytes = 1023;
inline constexpr size_t kOomScoreAdjBytes = 31;

// /proc/<pid>/cmdline: the arguments, each followed by a NUL, e.g.
//   "/system/bin/surfaceflinger\0--flag\0"
// argv[0] as strtok(text, " ") finds it: the first blank-separated token before the first NUL.
// Empty when there is none (no bytes, only blanks). Kernel threads and zombies have no bytes;
// programs that rewrite their arguments may separate them with blanks.
std::optional<std::string_view> programName(const char* text, size_t length);

// /proc/<pid>/oom_score_adj: one decimal integer in -1000..1000, e.g. "-800\n".
// The value as fscanf(stream, "%d") reads it; empty when that converts nothing.
std::optional<int> oomScoreAdj(const char* text);

// Clock-tick figures of /proc/<pid>/stat.
struct StatTimes {
    unsigned long utime = 0;           // field 14
    unsigned long stime = 0;           // field 15
    unsigned long long starttime = 0;  // field 22, after boot
};

// /proc/<pid>/stat: one line of blank-separated fields, times in clock ticks, e.g.
//   "1234 (surfaceflinger) S 1 1234 0 0 -1 4210944 9000 0 12 0 310 95 0 0 ... 412 ..."
// Read as fscanf(stream, "%d %255s") and then up to kLineBytes further bytes: the remainder is
// split on blanks (strtok), its first token numbered 3 (the state). The command is one
// blank-delimited word, so a blank inside it shifts the later fields by one, uncompensated.
// Missing fields read as 0. Empty when nothing follows the command.
std::optional<StatTimes> statTimes(const char* text, size_t length);

}  // namespace procfsutils::processfiles
