// Parsing of the pressure and zram idle files SystemMemoryStats reads, as the fscanf loops they
// stand for read them (the zram files lie under /sys/devices/virtual/block/zram0/).
//
//   /proc/pressure/memory  "some avg10=0.00 avg60=0.12 avg300=0.05 total=8324753\n"
//                          "full avg10=0.00 avg60=0.03 avg300=0.01 total=4102261\n"
//                          stall percentages over 10, 60 and 300 s, then the total stall in us
//   idlehisto              "4081 1203 977 ...": idle pages per age bucket
//   idle_cluster_sz        "812 301 77 20 ...": idle pages per cluster size
//   simulated_bd_stat      "1024 4096 52 7": four counters
#include "procfsutils/SystemMemoryFiles.h"

#include <cstdio>
#include <cstring>

namespace procfsutils::systemmemoryfiles {
namespace {

// isspace() of the C locale, which is what scanf skips.
bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

PressureAverages pressureAverages(const char* text, size_t length) {
    PressureAverages averages;
    const char* const end = text + length;
    const char* p = text;
    for (;;) {
        // "%4s" by hand: sscanf would end the word at a NUL, where a stream reads on.
        while (p < end && isSpace(*p)) ++p;
        if (p == end) break;
        char kind[5] = {};
        for (size_t n = 0; n < 4 && p < end && !isSpace(*p); ++n) kind[n] = *p++;
        // The rest of the record: a NUL stops the conversions here as it stops fscanf's.
        float avg10 = 0, avg60 = 0, avg300 = 0;
        unsigned long total = 0;
        int used = -1;
        if (sscanf(p, " avg10=%f avg60=%f avg300=%f total=%lu%n", &avg10, &avg60, &avg300, &total,
                   &used) != 4 ||
            used < 0) {
            break;
        }
        p += used;
        if (strcmp(kind, "some") == 0) {
            averages.someAvg10 = avg10;
            averages.someAvg60 = avg60;
            averages.someAvg300 = avg300;
        } else if (strcmp(kind, "full") == 0) {
            averages.fullAvg10 = avg10;
            averages.fullAvg60 = avg60;
            averages.fullAvg300 = avg300;
        }
    }
    return averages;
}

void summedValues(const char* text, uint32_t* entries, size_t count) {
    size_t filled = 0;
    unsigned value = 0;
    int used = 0;
    for (const char* p = text; sscanf(p, "%u%n", &value, &used) == 1; p += used) {
        if (filled < count) {
            entries[filled++] = value;
        } else {
            entries[count - 1] += value;
        }
    }
}

void leadingValues(const char* text, uint64_t* entries, size_t count) {
    unsigned long long value = 0;
    int used = 0;
    const char* p = text;
    for (size_t i = 0; i < count && sscanf(p, "%llu%n", &value, &used) == 1; ++i, p += used) {
        entries[i] = value;
    }
}

}  // namespace procfsutils::systemmemoryfiles
