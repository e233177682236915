// Host stand-in for the platform memory-footprint library (libmemoryfootprint): per-process
// memory figures that /proc/<pid>/status does not carry.
//
// get_memory_footprint(pid, data, what) fills the figures selected by the bit mask `what`
// (MEMORY_FOOTPRINT_*) into *data and leaves the others untouched; it returns 0, or a negative
// errno when the process cannot be measured (the selected figures are then unspecified).
// All figures are KiB, signed 32-bit; the memtrack figure may be negative when the memtrack HAL
// reports an error for the process.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    MEMORY_FOOTPRINT_PSS = 1,       // proportional set size from smaps
    MEMORY_FOOTPRINT_SWAP_PSS = 2,  // proportional share of swapped-out memory
    MEMORY_FOOTPRINT_MEMTRACK = 4,  // graphics/GL memory accounted by the memtrack HAL
};

struct memory_footprint_data {
    int32_t pss_kb;
    int32_t swap_pss_kb;
    int32_t memtrack_pss_kb;  // MEMORY_FOOTPRINT_MEMTRACK: memtrack PSS, KiB
};

int get_memory_footprint(pid_t pid, struct memory_footprint_data* data, uint32_t what);

#ifdef __cplusplus
}
#endif
