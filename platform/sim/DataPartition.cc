#include "DataPartition.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "hostplatform/Libc.h"
#include "seams/FsRoot.h"

namespace sim {

std::optional<int64_t> parseByteCount(const std::string& text) {
    if (text.empty() || !isdigit(static_cast<unsigned char>(text[0]))) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const unsigned long long count = strtoull(text.c_str(), &end, 10);
    if (errno != 0) return std::nullopt;
    const std::string suffix = end;
    int shift = 0;
    if (suffix == "K") shift = 10;
    else if (suffix == "M") shift = 20;
    else if (suffix == "G") shift = 30;
    else if (suffix == "T") shift = 40;
    else if (!suffix.empty()) return std::nullopt;
    if (count > (static_cast<unsigned long long>(INT64_MAX) >> shift)) return std::nullopt;
    return static_cast<int64_t>(count << shift);
}

DataPartition::DataPartition(const DataFigures& figures) {
    constexpr uint64_t kBlockSize = 4096;
    const uint64_t blocks = static_cast<uint64_t>(figures.totalBytes) / kBlockSize;
    const uint64_t available = std::min<uint64_t>(figures.availableBytes / kBlockSize, blocks);
    const uint64_t free = std::min(blocks, available + blocks / 50);
    hostplatform::setStatvfs([=](const char* path, struct statvfs* out) {
        seam::PathBuffer data;
        if (strcmp(path, seam::path("/data", data)) != 0) return ::statvfs(path, out);
        *out = {};
        out->f_bsize = kBlockSize;
        out->f_frsize = kBlockSize;
        out->f_blocks = blocks;
        out->f_bfree = free;
        out->f_bavail = available;
        out->f_namemax = 255;
        return 0;
    });
}

DataPartition::~DataPartition() { hostplatform::setStatvfs(nullptr); }

}  // namespace sim
