// The simulated headset's trigger service and memtrack figures, behind the binder trigger
// interface and get_memory_footprint.
//
// installTriggerService() registers a RecordingTriggerService as
// "vendor.norvik.tarnet.ITrigger/default" and a deterministic memtrack source; the headset calls
// it on construction and removeTriggerService() on destruction. Simulated memtrack PSS of a
// process: (pid mod 16) * 512 KiB, and -1 (the memtrack HAL's error) when pid mod 16 is 0.
#pragma once

#include <deque>
#include <functional>
#include <vector>

#include <vendor/norvik/tarnet/ITrigger.h>

#include "ThreadSafety.h"

namespace sim {

using TriggerContext = vendor::norvik::tarnet::TriggerContext;
using TriggerReportListener = std::function<void(const TriggerContext&)>;

// Keeps the latest kKeptReports reports it receives, in arrival order (a bound, so that a host
// running for simulated weeks does not grow), and hands each to the process-wide listener (see
// setTriggerReportListener). Thread-safe.
class RecordingTriggerService : public vendor::norvik::tarnet::ITrigger {
public:
    android::binder::Status trigger(const TriggerContext& context) override EXCLUDES(mutex_);
    std::vector<TriggerContext> reports() const EXCLUDES(mutex_);

    static constexpr size_t kKeptReports = 256;

private:
    mutable threadsafety::Mutex mutex_;
    std::deque<TriggerContext> reports_ GUARDED_BY(mutex_);
};

inline constexpr const char kTriggerServiceInstance[] = "vendor.norvik.tarnet.ITrigger/default";

void installTriggerService();
void removeTriggerService();

// Receives every report of the installed service, on the reporting thread (the reference host
// prints them). May be set before or after installation; an empty function removes it.
void setTriggerReportListener(TriggerReportListener listener);

// Reports the currently installed service recorded; empty when none is installed.
std::vector<TriggerContext> recordedTriggerReports();

// The simulated memtrack PSS of a process, KiB.
int32_t simulatedMemtrackKb(pid_t pid);

}  // namespace sim
