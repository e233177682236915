// The host's own figures per provider, from the run summary (host/RunSummary.h), as counter
// families labelled `provider`: samples, snapshots ok and failed, pushes, notifications by name,
// log lines by priority and the provider's own CPU seconds. export/README.md lists them.
#pragma once

#include <vector>

#include "Host.h"
#include "MetricFamilies.h"
#include "RunSummary.h"

namespace metrics {

Families runMetrics(const std::vector<host::RunSummary::Counts>& rows);

// What the host exports now: every provider's families as of its last rendered record
// (Host::exportedRecord), then runMetrics of the summary so far. Any thread, while `host` exists.
Families hostMetrics(host::Host& host);

}  // namespace metrics
