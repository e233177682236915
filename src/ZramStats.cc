#include "ZramStats.h"

#include "ProviderSupport.h"
#include "procfsutils/ProcFsParser.h"

namespace Vistrel {

ZramStats::ZramStats() = default;
ZramStats::~ZramStats() = default;

const char* ZramStats::name() const {
    return "ZramStats";
}

SamplePeriod ZramStats::sampleRate() const {
    return std::chrono::milliseconds(900000);
}

std::optional<Notification> ZramStats::sample(IClockReader&) {
    return Notification{"ZramHeartbeat", "15 minutes"};
}

bool ZramStats::snapshot(IClockReader&, bool) {
    procfsutils::ProcFsParser parser;
    procfsutils::ZramStatData data{};
    if (!parser.getZramStatData(&data)) {
        logError("ZramStats: failed to get zramStats");
        return false;
    }
    origDataSize = data.origDataSize;
    comprDataSize = data.comprDataSize;
    memUsedTotal = data.memUsedTotal;
    memLimit = data.memLimit;
    memUsedMax = data.memUsedMax;
    samePages = data.samePages;
    pagesCompacted = data.pagesCompacted;
    hugePages = data.hugePages;
    hugePagesSince = data.hugePagesSince;
    column10 = data.column10;
    return true;
}

}  // namespace Vistrel
