// /proc/meminfo, one figure per line, in KiB:
//   MemTotal:        3809036 kB
//   MemFree:          282012 kB
//   MemAvailable:    1540068 kB
#include <meminfo/sysmeminfo.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "seams/FsRoot.h"

namespace android {
namespace meminfo {
namespace {

// Reads at most 4095 bytes of `path` (resolved through the file-system root) and calls
// store(index, value) for every line that starts with tags[index]. False when the file cannot
// be read or a matched number does not parse.
template <typename Store>
bool parseMemInfo(const char* path, size_t ntags, const std::string_view* tags, Store store) {
    seam::PathBuffer resolved;
    const int fd = open(seam::path(path, resolved), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char text[4096];
    const ssize_t length = read(fd, text, sizeof(text) - 1);
    close(fd);
    if (length < 0) return false;
    text[length] = '\0';

    size_t found = 0;
    for (char* p = text; *p != '\0' && found < ntags;) {
        for (size_t i = 0; i < ntags; ++i) {
            if (!tags[i].empty() && *p != tags[i][0]) continue;  // cheap reject first
            if (strncmp(p, tags[i].data(), tags[i].size()) != 0) continue;
            p += tags[i].size();
            while (*p == ' ') ++p;
            char* end = nullptr;
            const uint64_t value = strtoull(p, &end, 10);
            if (end == p) return false;
            store(i, value);
            p = end;
            ++found;
            break;
        }
        while (*p != '\0' && *p != '\n') ++p;
        if (*p == '\n') ++p;
    }
    return true;
}

}  // namespace

bool SysMemInfo::ReadMemInfo(const char* path) {
    const std::string_view* tags = kDefaultSysMemInfoTags.begin();
    return parseMemInfo(path, kDefaultSysMemInfoTags.size(), tags,
                        [&](size_t i, uint64_t value) { mem_[tags[i]] = value; });
}

bool SysMemInfo::ReadMemInfo(size_t ntags, const std::string_view* tags, uint64_t* out,
                             const char* path) {
    return parseMemInfo(path, ntags, tags, [&](size_t i, uint64_t value) { out[i] = value; });
}

bool SysMemInfo::ReadMemInfo(std::vector<uint64_t>* out, const char* path) {
    out->clear();
    out->resize(kDefaultSysMemInfoTags.size());
    return ReadMemInfo(kDefaultSysMemInfoTags.size(), kDefaultSysMemInfoTags.begin(), out->data(),
                       path);
}

}  // namespace meminfo
}  // namespace android
