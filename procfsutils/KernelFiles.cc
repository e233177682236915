// Device paths opened, read, stat'ed and listed under the file-system root.
//
//   device path            with root "/tmp/headset"              on the device
//   /proc/612/status   ->  /tmp/headset/proc/612/status          /proc/612/status
//   /proc                  one directory per process, named by its id (decimal), among other
//                          entries: "1", "612", "self" (a symlink), "net", "1a", "vmstat" (a file)
//
// Files are taken in whole with one read(2) of at most the caller's buffer (a few bytes for
// oom_score_adj, 32 KiB for a status file); what the bytes mean is the parsers' business.
#include "procfsutils/KernelFiles.h"

#include <fcntl.h>

#include "procfsutils/ProcFsParserInternal.h"

namespace procfsutils {

namespace {

// stat() of "/proc/<name>" reports a directory.
bool isProcDirectory(const char* name) {
    char path[256];
    const int length = snprintf(path, sizeof path, "/proc/%s", name);
    if (length < 0 || length >= static_cast<int>(sizeof path)) return false;
    struct stat st;
    return statPath(path, &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

FileRead readFile(const char* devicePath, char* buffer, size_t size) {
    const UniqueFd fd(open(ResolvedPath(devicePath).get(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return {false, -1};
    const ssize_t count = read(fd.get(), buffer, size);
    return {true, count < 0 ? -1 : count};
}

UniqueStream openStream(const char* devicePath, const char* mode) {
    return UniqueStream(fopen(ResolvedPath(devicePath).get(), mode));
}

UniqueDirectory openDirectory(const char* devicePath) {
    return UniqueDirectory(opendir(ResolvedPath(devicePath).get()));
}

int statPath(const char* devicePath, struct stat* out) {
    return stat(ResolvedPath(devicePath).get(), out);
}

bool nextProcessEntry(DIR* proc, ProcEntries which, ProcessEntry* out) {
    // At the end of the directory readdir keeps answering null: the listing stays over until the
    // stream is rewound.
    while (const dirent* entry = readdir(proc)) {
        int pid;
        if (!internal::parsePid(entry->d_name, &pid)) continue;
        if (which == ProcEntries::PidDirectories && !isProcDirectory(entry->d_name)) continue;
        *out = {entry->d_name, pid};
        return true;
    }
    return false;
}

}  // namespace procfsutils
