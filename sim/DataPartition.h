// The simulated headset's "/data" file system: while a DataPartition lives, statvfs() of the
// library's "/data" (as resolved through the file-system root) answers these figures; every
// other path still reaches libc.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

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
};

}  // namespace sim
