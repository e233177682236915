#include "DataPartition.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <string>

#include "hostplatform/FsRoot.h"
#include "hostplatform/Libc.h"

namespace sim {
namespace {

constexpr uint64_t kBlockSize = 4096;

}  // namespace

DataPartition::DataPartition(const DataFigures& figures)
    : blocks_(static_cast<uint64_t>(figures.totalBytes) / kBlockSize),
      availableBlocks_(std::min<uint64_t>(figures.availableBytes / kBlockSize, blocks_)) {
    hostplatform::setStatvfs([this](const char* path, struct statvfs* out) {
        // "/data" as the library resolves it under the file-system root at the time of the call.
        if (hostplatform::fsRoot() + "/data" != path) return ::statvfs(path, out);
        return answer(out);
    });
}

DataPartition::~DataPartition() {
    hostplatform::setStatvfs(nullptr);
}

void DataPartition::setFilled(int64_t bytes) {
    threadsafety::MutexLock lock(mutex_);
    filledBlocks_ = static_cast<uint64_t>(std::max<int64_t>(bytes, 0)) / kBlockSize;
}

int DataPartition::answer(struct ::statvfs* out) {
    threadsafety::MutexLock lock(mutex_);
    const uint64_t available = availableBlocks_ - std::min(filledBlocks_, availableBlocks_);
    *out = {};
    out->f_bsize = kBlockSize;
    out->f_frsize = kBlockSize;
    out->f_blocks = blocks_;
    out->f_bfree = std::min(blocks_, available + blocks_ / 50);
    out->f_bavail = available;
    out->f_namemax = 255;
    return 0;
}

}  // namespace sim
