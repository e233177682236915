// Host-only substitutes for the C library calls behind seams/Libc.h. Tests install a function to
// steer file-system figures, make a clock read fail or change the tick rate; reset restores libc.
// Not synchronised with the calls themselves: install before the code under test runs.
#pragma once

#include <sys/statvfs.h>
#include <time.h>
#include <functional>

namespace hostplatform {

using StatvfsFn = std::function<int(const char* path, struct ::statvfs* out)>;
using ClockGettimeFn = std::function<int(clockid_t clock, struct timespec* out)>;
using SysconfFn = std::function<long(int name)>;

void setStatvfs(StatvfsFn fn);
void setClockGettime(ClockGettimeFn fn);
void setSysconf(SysconfFn fn);
void resetLibc();

}  // namespace hostplatform
