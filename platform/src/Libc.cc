#include "seams/Libc.h"

#include "hostplatform/Libc.h"

namespace {

hostplatform::StatvfsFn g_statvfs;
hostplatform::ClockGettimeFn g_clockGettime;
hostplatform::SysconfFn g_sysconf;

}  // namespace

namespace seam {

int statvfs(const char* path, struct ::statvfs* out) {
    return g_statvfs ? g_statvfs(path, out) : ::statvfs(path, out);
}

int clock_gettime(clockid_t clock, struct timespec* out) {
    return g_clockGettime ? g_clockGettime(clock, out) : ::clock_gettime(clock, out);
}

long sysconf(int name) {
    return g_sysconf ? g_sysconf(name) : ::sysconf(name);
}

}  // namespace seam

namespace hostplatform {

void setStatvfs(StatvfsFn fn) {
    g_statvfs = std::move(fn);
}
void setClockGettime(ClockGettimeFn fn) {
    g_clockGettime = std::move(fn);
}
void setSysconf(SysconfFn fn) {
    g_sysconf = std::move(fn);
}

void resetLibc() {
    g_statvfs = nullptr;
    g_clockGettime = nullptr;
    g_sysconf = nullptr;
}

}  // namespace hostplatform
