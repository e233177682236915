// The simulated headset's "/data" file system: while a DataPartition lives, statvfs() of the
// library's "/data" (as resolved through the file-system root) answers these figures; every
// other path still reaches libc.
#pragma once

#include <sys/statvfs.h>

#include <cstdint>
#include <optional>
#include <string>

#include "ThreadSafety.h"

namespace sim {

struct DataFigures {
    int64_t totalBytes = INT64_C(128) << 30;     // a 128 GiB headset
    int64_t availableBytes = INT64_C(71) << 30;  // to unprivileged writers
};

class DataPartition {
public:
    // Blocks of 4096 bytes; free = available plus up to 2 % of the size held back for root.
    explicit DataPartition(const DataFigures& figures);
    ~DataPartition();
    DataPartition(const DataPartition&) = delete;
    DataPartition& operator=(const DataPartition&) = delete;

    // Bytes written since boot that stay on /data: the space available shrinks by as much (to
    // none at the least). 0 until the headset's storage says otherwise.
    void setFilled(int64_t bytes) EXCLUDES(mutex_);

private:
    // statvfs() of "/data".
    int answer(struct ::statvfs* out) EXCLUDES(mutex_);

    const uint64_t blocks_;
    const uint64_t availableBlocks_;
    threadsafety::Mutex mutex_;
    uint64_t filledBlocks_ GUARDED_BY(mutex_) = 0;
};

}  // namespace sim
