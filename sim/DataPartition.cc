#include "DataPartition.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <string>

#include "hostplatform/FsRoot.h"
#include "hostplatform/Libc.h"

namespace sim {

DataPartition::DataPartition(const DataFigures& figures) {
    constexpr uint64_t kBlockSize = 4096;
    const uint64_t blocks = static_cast<uint64_t>(figures.totalBytes) / kBlockSize;
    const uint64_t available = std::min<uint64_t>(figures.availableBytes / kBlockSize, blocks);
    const uint64_t free = std::min(blocks, available + blocks / 50);
    hostplatform::setStatvfs([=](const char* path, struct statvfs* out) {
        // "/data" as the library resolves it under the file-system root at the time of the call.
        if (hostplatform::fsRoot() + "/data" != path) return ::statvfs(path, out);
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

DataPartition::~DataPartition() {
    hostplatform::setStatvfs(nullptr);
}

}  // namespace sim
