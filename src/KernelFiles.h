// Opening and reading the small kernel files the memory collectors read whole
// (library-internal): owning holders for stdio and directory streams, and a reader that takes a
// file in with a single read(2) into a caller-owned buffer. Every path is a device path, resolved
// under the file-system root here.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <memory>

#include "seams/FsRoot.h"

namespace Vistrel {

struct StreamCloser {
    void operator()(FILE* stream) const { fclose(stream); }
};
// A stdio stream that is closed (and so flushed) when its holder goes out of scope.
using UniqueStream = std::unique_ptr<FILE, StreamCloser>;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using UniqueDirectory = std::unique_ptr<DIR, DirectoryCloser>;

// fopen() of a device path; null with errno set when it cannot be opened.
inline UniqueStream openStream(const char* devicePath, const char* mode) {
    seam::PathBuffer resolved;
    return UniqueStream(fopen(seam::path(devicePath, resolved), mode));
}

// opendir() of a device path; null with errno set when it cannot be opened.
inline UniqueDirectory openDirectory(const char* devicePath) {
    seam::PathBuffer resolved;
    return UniqueDirectory(opendir(seam::path(devicePath, resolved)));
}

// Opens a device path, reads at most N - 1 bytes with one read(2), closes the file and writes a
// NUL after the bytes read, so parsers may treat `buffer` as a C string that can also hold NULs.
// Returns the byte count; 0 when the read itself fails (taken as an empty file); -1 when the file
// cannot be opened, with errno telling why. One read takes in a whole /proc or /sys file whose
// text fits the buffer: the kernel hands a seq_file or sysfs attribute over in one piece.
template <size_t N>
ssize_t readOnce(const char* devicePath, char (&buffer)[N]) {
    static_assert(N > 1, "room for at least one byte and the NUL");
    seam::PathBuffer resolved;
    const int fd = open(seam::path(devicePath, resolved), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    ssize_t count = read(fd, buffer, N - 1);
    close(fd);
    if (count < 0) count = 0;
    buffer[count] = '\0';
    return count;
}

}  // namespace Vistrel
