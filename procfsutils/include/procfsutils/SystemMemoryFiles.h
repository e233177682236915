// Parsing of the pressure and zram idle files SystemMemoryStats reads, over bytes already read.
// Pure functions: no file access, no state, so tests and fuzz targets feed them strings. Each reads
// its text as the fscanf loop it stands for reads a stream, NUL bytes included; `text` must end in
// a NUL (for pressureAverages, one at text[length]).
#pragma once

#include <cstddef>
#include <cstdint>

namespace procfsutils::systemmemoryfiles {

// Bytes taken in from each file (read buffers hold one more, for the NUL): a sysfs attribute is
// at most a 4 KiB page, the pressure file two short lines.
inline constexpr size_t kFileBytes = 4096;

// Pressure-stall averages in percent; -1.0 for a line that was not read.
struct PressureAverages {
    float someAvg10 = -1.0f, someAvg60 = -1.0f, someAvg300 = -1.0f;
    float fullAvg10 = -1.0f, fullAvg60 = -1.0f, fullAvg300 = -1.0f;
};

// /proc/pressure/memory, stall percentages over 10, 60 and 300 s and the total stall in us:
//   some avg10=0.00 avg60=0.12 avg300=0.05 total=8324753
//   full avg10=0.00 avg60=0.03 avg300=0.01 total=4102261
// Records are read with fscanf "%4s avg10=%f avg60=%f avg300=%f total=%lu" while all five
// convert; a record whose word is exactly "some" or "full" sets those three averages (the last
// such record wins), any other word is passed over. The first record that does not convert
// ends the reading.
PressureAverages pressureAverages(const char* text, size_t length);

// Reads "%u" values, as a fscanf loop does, into entries[0..count); once all are filled, every
// further value is added into the last entry (unsigned, wrapping). Stops at the first text that
// is not a number.
//   idlehisto:        4081 1203 977 ...   idle pages per age bucket
//   idle_cluster_sz:  812 301 77 20 ...   idle pages per cluster size
void summedValues(const char* text, uint32_t* entries, size_t count);

// Reads up to `count` "%llu" values into entries[0..count), stopping at the first text that is
// not a number; later entries are left as they are.
//   simulated_bd_stat: 1024 4096 52 7    four counters
void leadingValues(const char* text, uint64_t* entries, size_t count);

}  // namespace procfsutils::systemmemoryfiles
