// While an instance exists, every line the library logs through liblog (at the given minimum
// priority or above) goes to the timeline as a "log" line, source the
// log tag, and is counted in the run summary for the provider whose call made it.
#pragma once

#include "Output.h"
#include "RunSummary.h"

namespace host {

// The tags of the lines the library and the simulated headset log.
const std::vector<std::string>& logTags();

class TimelineLog {
public:
    TimelineLog(Output& output, RunSummary& summary, int minimumPriority);
    ~TimelineLog();
    TimelineLog(const TimelineLog&) = delete;
    TimelineLog& operator=(const TimelineLog&) = delete;
};

}  // namespace host
