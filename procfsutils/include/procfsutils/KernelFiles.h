// Opening, reading and listing device paths (/proc, /sys, /data): the one place where the library
// resolves a device path under the file-system root (seams/FsRoot.h), the owning holders for
// descriptors, stdio and directory streams, and the listing of /proc's process directories.
//
// Every function takes a device path such as "/proc/meminfo" and resolves it once, into a buffer
// on its own stack, so none allocates (opendir and fopen allocate their streams themselves).
// Failures leave errno as the failing call set it; nothing is logged here.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <memory>

#include "seams/FsRoot.h"
#include "seams/Libc.h"

namespace procfsutils {

// A device path resolved under the file-system root, into a buffer on the caller's stack. Every
// function here takes its path from one: the one place the library resolves paths.
class ResolvedPath {
public:
    explicit ResolvedPath(const char* devicePath) : resolved(seam::path(devicePath, buffer)) {}
    ResolvedPath(const ResolvedPath&) = delete;
    ResolvedPath& operator=(const ResolvedPath&) = delete;
    const char* get() const { return resolved; }

private:
    seam::PathBuffer buffer;
    const char* resolved;  // devicePath itself, or the text in `buffer`
};

struct StreamCloser {
    void operator()(FILE* stream) const { fclose(stream); }
};
// A stdio stream that is closed (and so flushed) when its holder goes out of scope.
using UniqueStream = std::unique_ptr<FILE, StreamCloser>;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
// A directory stream that is closed when its holder goes out of scope.
using UniqueDirectory = std::unique_ptr<DIR, DirectoryCloser>;

// A file descriptor that is closed when its holder goes out of scope; -1 holds none.
class UniqueFd {
public:
    explicit UniqueFd(int fd) : fd(fd) {}
    ~UniqueFd() {
        if (fd >= 0) close(fd);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    int get() const { return fd; }

private:
    int fd;
};

// What one read of a file gave.
struct FileRead {
    bool opened;    // false: the file could not be opened, so nothing was read
    ssize_t count;  // bytes read; -1 when the file could not be opened or the read failed
    bool ok() const { return count >= 0; }
    // The bytes read; 0 after a failure, as if the file were empty.
    size_t bytes() const { return ok() ? static_cast<size_t>(count) : 0; }
};

// Opens a device path read-only, reads at most `size` bytes into `buffer` with one read(2) and
// closes the file before returning. One read takes in a whole /proc or /sys file whose text fits:
// the kernel hands a seq_file or sysfs attribute over in one piece. Nothing is retried (EINTR
// included) and nothing is written after the bytes read.
FileRead readFile(const char* devicePath, char* buffer, size_t size);

// readFile() of at most N - 1 bytes, then a NUL after the bytes read (at buffer[0] when the open
// or the read failed), so parsers may take `buffer` as a C string that can also hold NULs.
template <size_t N>
FileRead readText(const char* devicePath, char (&buffer)[N]) {
    static_assert(N > 1, "room for at least one byte and the NUL");
    const FileRead read = readFile(devicePath, buffer, N - 1);
    buffer[read.bytes()] = '\0';
    return read;
}

// fopen() of a device path; null when it cannot be opened.
UniqueStream openStream(const char* devicePath, const char* mode);
// opendir() of a device path; null when it cannot be opened.
UniqueDirectory openDirectory(const char* devicePath);
// stat() of a device path: 0, or -1.
int statPath(const char* devicePath, struct stat* out);
// statvfs() of a device path, through the libc seam (seams/Libc.h): 0, or -1. Always inlined
// (the compiler would keep it apart for its 4 KiB path buffer), as the query is hardly more than
// the system call: an out-of-line call shows in its cost.
[[gnu::always_inline]] inline int statFileSystem(const char* devicePath, struct statvfs* out) {
    return seam::statvfs(ResolvedPath(devicePath).get(), out);
}

// Which entries of /proc a listing takes.
enum class ProcEntries {
    NamedByPid,      // every entry whose name is a process id, whatever its type
    PidDirectories,  // of those, only the ones stat() reports as directories
};

// An entry of /proc named by a process id. `name` lies in the directory stream's own entry: it is
// valid until the stream is read again or closed.
struct ProcessEntry {
    const char* name;
    int pid;
};

// Reads the /proc directory stream `proc` on to its next entry named by a process id (decimal
// digits only, within int range; internal::parsePid) that `which` takes, in directory order.
// False at the end of the stream, and on every later call until the stream is rewound.
bool nextProcessEntry(DIR* proc, ProcEntries which, ProcessEntry* out);

}  // namespace procfsutils
