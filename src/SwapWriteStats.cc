#include "SwapWriteStats.h"

#include "ProviderSupport.h"
#include "procfsutils/ProcFsParser.h"

namespace Vistrel {

SwapWriteStats::SwapWriteStats() = default;
SwapWriteStats::~SwapWriteStats() = default;

const char* SwapWriteStats::name() const {
    return "SwapWriteStats";
}

SamplePeriod SwapWriteStats::sampleRate() const {
    return std::chrono::milliseconds(3600000);
}

std::optional<Notification> SwapWriteStats::sample(IClockReader&) {
    return Notification{"SwapHeartbeat", "1 Hour"};
}

bool SwapWriteStats::snapshot(IClockReader& clock, bool) {
    procfsutils::ProcFsParser parser;
    procfsutils::VmStatData vmStat{};
    procfsutils::BlockDeviceStatData zram{};
    if (!parser.getVmStatData(&vmStat)) {
        logError("SwapWriteStats: failed to get vmstats");
        return false;
    }
    if (!parser.getBlockDeviceStatData("zram0", &zram)) {
        logError("SwapWriteStats: failed to get block device stats");
        return false;
    }
    // pswpout is in KiB; everything zram0 wrote stayed in memory. Computed in wrapping 64-bit
    // arithmetic, then clamped: zram0 may account for more than pswpout.
    const auto swappedOutBytes = static_cast<uint64_t>(vmStat.pswpout) << 10;
    const auto toStorage =
            static_cast<int64_t>(swappedOutBytes - static_cast<uint64_t>(zram.writeBytes));
    swapWriteBytes = toStorage < 0 ? 0 : toStorage;
    timestamp = clock.readTimestamp();
    return true;
}

}  // namespace Vistrel
