#include "TriggerService.h"

#include "HostSideWork.h"
#include "hostplatform/MemoryFootprint.h"
#include "hostplatform/ServiceRegistry.h"

namespace sim {
namespace {

using vendor::norvik::tarnet::ITrigger;

threadsafety::Mutex g_listenerMutex;
TriggerReportListener g_listener GUARDED_BY(g_listenerMutex);

}  // namespace

android::binder::Status RecordingTriggerService::trigger(const TriggerContext& context) {
    const HostSideWork hal;
    {
        threadsafety::MutexLock lock(mutex_);
        reports_.push_back(context);
        if (reports_.size() > kKeptReports) reports_.pop_front();
    }
    TriggerReportListener listener;
    {
        threadsafety::MutexLock lock(g_listenerMutex);
        listener = g_listener;
    }
    if (listener) listener(context);
    return android::binder::Status::ok();
}

std::vector<TriggerContext> RecordingTriggerService::reports() const {
    threadsafety::MutexLock lock(mutex_);
    return std::vector<TriggerContext>(reports_.begin(), reports_.end());
}

int32_t simulatedMemtrackKb(pid_t pid) {
    const int32_t slot = static_cast<int32_t>(pid % 16);
    return slot == 0 ? -1 : slot * 512;
}

void installTriggerService() {
    hostplatform::addService<ITrigger>(kTriggerServiceInstance,
                                       android::sp<ITrigger>(new RecordingTriggerService));
    hostplatform::setMemoryFootprintSource([](pid_t pid, memory_footprint_data* data, uint32_t what) {
        if (what & MEMORY_FOOTPRINT_MEMTRACK) data->memtrack_pss_kb = simulatedMemtrackKb(pid);
        return 0;
    });
}

void removeTriggerService() {
    hostplatform::resetMemoryFootprintSource();
    hostplatform::removeService<ITrigger>(kTriggerServiceInstance);
}

void setTriggerReportListener(TriggerReportListener listener) {
    threadsafety::MutexLock lock(g_listenerMutex);
    g_listener = std::move(listener);
}

std::vector<TriggerContext> recordedTriggerReports() {
    const android::sp<ITrigger> service =
            hostplatform::findService<ITrigger>(kTriggerServiceInstance);
    if (service == nullptr) return {};
    return static_cast<RecordingTriggerService*>(service.get())->reports();
}

}  // namespace sim
