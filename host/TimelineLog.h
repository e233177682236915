// While an instance exists, every line the library logs through liblog (at the given minimum
// priority or above) goes to the timeline as a "log" line at the current device time, source the
// log tag, and is counted in the run summary for the provider whose call made it.
#pragma once

#include "HostClock.h"
#include "Output.h"
#include "RunSummary.h"

namespace host {

class TimelineLog {
public:
    TimelineLog(Output& output, HostClock& clock, RunSummary& summary, int minimumPriority);
    ~TimelineLog();
    TimelineLog(const TimelineLog&) = delete;
    TimelineLog& operator=(const TimelineLog&) = delete;
};

}  // namespace host
