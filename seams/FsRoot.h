// File-system root seam: every absolute path the library opens goes through seam::path().
//
// On the device it is the path itself. On the host the path is prefixed with an optional root
// directory (environment variable VISTREL_FS_ROOT, or hostplatform::setFsRoot()), so tests and
// the reference host can point the library at fixture trees or a tree captured from a headset.
// Resolution never allocates: the result lives in a caller-owned PathBuffer.
#pragma once

#include <climits>

namespace seam {

struct PathBuffer {
    char text[PATH_MAX];
};

#ifdef __ANDROID__
inline const char* path(const char* absolutePath, PathBuffer&) {
    return absolutePath;
}
#else
// Returns absolutePath itself when no root is set, else root + absolutePath written into buf.
// A result that would not fit in buf yields "" (which no open call accepts) rather than a
// truncated path that might name another file.
const char* path(const char* absolutePath, PathBuffer& buf);
#endif

}  // namespace seam
