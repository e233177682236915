// Host-only control of get_memory_footprint (<memoryfootprint/memory_footprint.h>).
// Without a source installed the call fails with -ENOSYS and leaves the data untouched.
// Thread-safe.
#pragma once

#include <functional>

#include "memoryfootprint/memory_footprint.h"

namespace hostplatform {

using MemoryFootprintFn = std::function<int(pid_t pid, memory_footprint_data* data, uint32_t what)>;

void setMemoryFootprintSource(MemoryFootprintFn fn);
void resetMemoryFootprintSource();

}  // namespace hostplatform
