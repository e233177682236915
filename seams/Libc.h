// Seam for the C library results that no file can steer: file-system figures, clock reads and
// the clock tick rate. On the device these are the libc calls themselves; on the host they go
// through the platform layer, where tests may substitute them (hostplatform/Libc.h).
#pragma once

#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

namespace seam {

#ifdef __ANDROID__
inline int statvfs(const char* path, struct ::statvfs* out) {
    return ::statvfs(path, out);
}
inline int clock_gettime(clockid_t clock, struct timespec* out) {
    return ::clock_gettime(clock, out);
}
inline long sysconf(int name) {
    return ::sysconf(name);
}
#else
int statvfs(const char* path, struct ::statvfs* out);
int clock_gettime(clockid_t clock, struct timespec* out);
long sysconf(int name);
#endif

}  // namespace seam
