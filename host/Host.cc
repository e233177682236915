#include "Host.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "ProviderCall.h"
#include "TextValues.h"

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kNever = std::numeric_limits<int64_t>::min();

std::vector<std::string> namesOf(const std::vector<HostedProvider>& providers) {
    std::vector<std::string> names;
    for (const auto& hosted : providers) {
        names.push_back(hosted.provider ? hosted.provider->name() : "");
    }
    return names;
}

}  // namespace

// One call into a provider: holds the provider's lock for its span and counts it as a
// ProviderCall (the lock is taken first, so waiting for it is not the provider's time).
class SCOPED_CAPABILITY Host::LockedCall {
public:
    LockedCall(threadsafety::Mutex& mutex, RunSummary& summary, size_t provider,
               ProviderCall::Cost cost = ProviderCall::Cost::Steady) ACQUIRE(mutex)
        : mutex_(mutex) {
        mutex_.lock();
        call_.emplace(summary, provider, cost);
    }
    ~LockedCall() RELEASE() {
        call_.reset();
        mutex_.unlock();
    }
    LockedCall(const LockedCall&) = delete;
    LockedCall& operator=(const LockedCall&) = delete;

private:
    threadsafety::Mutex& mutex_;
    std::optional<ProviderCall> call_;
};

Host::Host(HostClock& clock, Output& output, sim::Headset& headset,
           std::vector<HostedProvider> providers, int64_t snapshotEveryNs)
    : clock_(clock),
      output_(output),
      headset_(headset),
      providers_(std::move(providers)),
      nextSampleNs_(providers_.size()),
      snapshotEveryNs_(snapshotEveryNs),
      longestPeriodNs_(snapshotEveryNs),
      summary_(namesOf(providers_)),
      snapshotAtNs_(providers_.size(), kNever),
      samplesSinceRecord_(providers_.size(), 0),
      acquired_(providers_.size(), false),
      sampled_(providers_.size(), false),
      recorded_(providers_.size(), false) {
    output_.setProviderNames(namesOf(providers_));
    for (size_t i = 0; i < providers_.size(); ++i)
        locks_.push_back(std::make_unique<ProviderLock>());
}

void Host::exportRecords(RenderedRecord rendered) {
    exportRecords_ = true;
    rendered_ = std::move(rendered);
}

metrics::Families Host::exportedRecord(size_t index) const {
    const ProviderLock& lock = *locks_[index];
    const threadsafety::MutexLock serialised(lock.mutex);
    return lock.exported;
}

void Host::acquireAll() {
    for (size_t i = 0; i < providers_.size(); ++i) {
        Vistrel::Provider& p = *providers_[i].provider;
        const LockedCall call(locks_[i]->mutex, summary_, i, ProviderCall::Cost::OneOff);
        // The host's calling order: name, sampling period, then acquire.
        const std::string name = p.name();
        const auto period = p.sampleRate();
        Vistrel::NotificationRouter router = [this, i](const std::string& pushed,
                                                       const std::string& detail, bool force) {
            enqueuePush(i, pushed, detail, force);
        };
        const bool ok = p.acquireResources(router, clock_);
        acquired_[i] = ok;
        json fields = {{"ok", ok}, {"periodMs", nullptr}};
        if (period) {
            fields["periodMs"] = period->count();
            nextSampleNs_[i] = clock_.deviceNs() + period->count() * kNsPerMs;
            longestPeriodNs_ = std::max(longestPeriodNs_, period->count() * kNsPerMs);
        }
        output_.write(name, "acquire", fields, name);
    }
}

void Host::releaseAll() {
    for (size_t i = 0; i < providers_.size(); ++i) {
        const std::string name = providers_[i].provider->name();
        bool ok;
        {
            const LockedCall call(locks_[i]->mutex, summary_, i, ProviderCall::Cost::OneOff);
            ok = providers_[i].provider->releaseResources();
        }
        output_.write(name, "release", json{{"ok", ok}}, name);
    }
    drainPushes();  // listeners may push while they stop
    // Destroys every provider through its virtual destructor.
    for (size_t i = 0; i < providers_.size(); ++i) {
        const LockedCall call(locks_[i]->mutex, summary_, i, ProviderCall::Cost::OneOff);
        providers_[i].provider.reset();
    }
    providers_.clear();
}

void Host::route(const std::string& source, const std::string& event, const std::string& name,
                 const std::string& detail) {
    output_.write(source, event, json{{"name", name}, {"detail", detail}}, source);
    for (size_t i = 0; i < providers_.size(); ++i) {
        const LockedCall call(locks_[i]->mutex, summary_, i);
        providers_[i].provider->notify(name, detail, clock_);
    }
}

void Host::sampleOne(size_t index, int64_t atNs) {
    HostedProvider& hosted = providers_[index];
    const std::string name = hosted.provider->name();
    std::optional<Vistrel::Notification> notification;
    {
        const LockedCall call(locks_[index]->mutex, summary_, index);
        notification = hosted.provider->sample(clock_);
    }
    summary_.countSample(index);
    sampled_[index] = true;
    ++samplesSinceRecord_[index];
    if (hosted.reading) {
        std::optional<json> read;
        {
            const threadsafety::MutexLock serialised(locks_[index]->mutex);  // a read of its fields
            read = hosted.reading();
        }
        if (read) output_.write(name, "sample", *read, name);
    }
    if (notification) {
        summary_.countNotification(index, notification->name);
        route(name, "notification", notification->name, notification->detail);
        if (hosted.follow) {
            std::optional<json> fetched;
            {
                const LockedCall call(locks_[index]->mutex, summary_, index);
                fetched = hosted.follow(*notification);
            }
            if (fetched) output_.write(name, "fetch", *fetched, name);
        }
        if (hosted.snapshotAfter && hosted.snapshotAfter(*notification)) snapshotOne(index, false);
    }
    std::optional<std::chrono::milliseconds> period;
    {
        const LockedCall call(locks_[index]->mutex, summary_, index);
        period = hosted.provider->sampleRate();  // may change after every sample
    }
    if (period && period->count() > 0) {
        nextSampleNs_[index] = atNs + period->count() * kNsPerMs;
    } else {
        nextSampleNs_[index].reset();
    }
}

void Host::snapshotOne(size_t index, bool force) {
    HostedProvider& hosted = providers_[index];
    ProviderLock& lock = *locks_[index];
    bool refreshed;
    json record;
    {
        const threadsafety::MutexLock serialised(lock.mutex);
        {
            const ProviderCall call(summary_, index);
            refreshed = hosted.provider->snapshot(clock_, force);
        }
        summary_.countSnapshot(index, refreshed);
        if (refreshed) record = readRecord(index, lock);
    }
    snapshotAtNs_[index] = stepNs_;
    if (!refreshed) return;
    samplesSinceRecord_[index] = 0;
    recorded_[index] = true;
    const std::string name = hosted.provider->name();
    output_.write(name, "record", record, name);
}

json Host::readRecord(size_t index, ProviderLock& lock) {
    const HostedProvider& hosted = providers_[index];
    if (exportRecords_ && hosted.metrics) {
        if (auto families = hosted.metrics()) {
            lock.exported = std::move(*families);
            if (rendered_) rendered_(index, clock_.deviceNs(), lock.exported);
        }
    }
    return hosted.record ? hosted.record() : json::object();
}

void Host::snapshotPeriodic() {
    for (size_t i = 0; i < providers_.size(); ++i) {
        const HostedProvider& hosted = providers_[i];
        if (hosted.snapshotAfter || snapshotThisStep(i)) continue;
        if (hosted.readsInSample && !sampled_[i]) continue;  // nothing to publish yet
        snapshotOne(i, false);
    }
}

void Host::snapshotAtEnd() {
    for (size_t i = 0; i < providers_.size(); ++i) {
        const HostedProvider& hosted = providers_[i];
        if (snapshotThisStep(i)) continue;
        if (hosted.snapshotAfter) {
            // Its record covers the intervals between the readings since its last record.
            if (samplesSinceRecord_[i] >= 2) snapshotOne(i, false);
            continue;
        }
        // One without a record yet takes a reading first, unless a reading out of its period
        // would end its batch of states early.
        snapshotOne(i, !recorded_[i] && hosted.firstRecord.afterNs == 0);
    }
}

std::string Host::whyNoRecord(size_t index, int64_t startNs, int64_t runNs) const {
    if (!acquired_[index]) return "its acquire failed";
    const HostedProvider::FirstRecord& first = providers_[index].firstRecord;
    if (runNs < first.afterNs) {
        const int64_t atNs = startNs > std::numeric_limits<int64_t>::max() - first.afterNs
                                     ? std::numeric_limits<int64_t>::max()
                                     : startNs + first.afterNs;
        return first.waitsFor + " at " + formatDeviceTime(atNs) + " of device time";
    }
    const int64_t failed = summary_.rows()[index].snapshotsFailed;
    if (failed == 0) return "it was not snapshotted";
    return "none of its " + std::to_string(failed) + " snapshots refreshed it";
}

void Host::enqueuePush(size_t provider, const std::string& name, const std::string& detail,
                       bool force) {
    {
        threadsafety::MutexLock lock(pushMutex_);
        pushes_.push_back({provider, name, detail, force});
    }
    pushArrived_.notifyOne();
}

void Host::drainPushes() {
    for (;;) {
        Push push;
        {
            threadsafety::MutexLock lock(pushMutex_);
            if (pushes_.empty()) return;
            push = std::move(pushes_.front());
            pushes_.pop_front();
        }
        summary_.countPush(push.provider);
        route(providers_[push.provider].provider->name(), push.force ? "push (force)" : "push",
              push.name, push.detail);
        if (push.force) snapshotOne(push.provider, true);
    }
}

void Host::schedule(ScheduledCall call) {
    const auto later = std::upper_bound(
            hooks_.begin(), hooks_.end(), call.atNs,
            [](int64_t at, const ScheduledCall& scheduled) { return at < scheduled.atNs; });
    hooks_.insert(later, std::move(call));
}

bool Host::callHookAt(int64_t atNs, const std::string& provider, const std::string& hook) {
    for (size_t i = 0; i < providers_.size(); ++i) {
        if (providers_[i].provider->name() != provider || providers_[i].hooks.count(hook) == 0) {
            continue;
        }
        schedule(ScheduledCall{atNs, i, hook, providers_[i].hooks[hook]});
        return true;
    }
    return false;
}

void Host::callAt(int64_t atNs, std::function<void()> call) {
    schedule(ScheduledCall{atNs, ProviderCall::npos, "", std::move(call)});
}

void Host::callHooksDueAt(int64_t ns) {
    while (!hooks_.empty() && hooks_.front().atNs == ns) {
        const ScheduledCall due = hooks_.front();
        hooks_.erase(hooks_.begin());
        if (due.provider == ProviderCall::npos) {
            due.call();
            continue;
        }
        const std::string name = providers_[due.provider].provider->name();
        output_.write(name, "hook", json{{"name", due.hook}}, name);
        const LockedCall call(locks_[due.provider]->mutex, summary_, due.provider);
        due.call();
    }
}

bool Host::waitUntil(int64_t ns) {
    if (clock_.mode() == HostClock::Mode::Simulated) {
        clock_.advanceTo(ns);
        return true;
    }
    const auto remaining = std::chrono::nanoseconds(std::max<int64_t>(0, ns - clock_.deviceNs()));
    const auto deadline = std::chrono::steady_clock::now() + remaining;
    threadsafety::MutexLock lock(pushMutex_);
    bool timedOut = false;
    while (!pushOrStopPending() && !timedOut) {
        timedOut = !pushArrived_.waitUntil(pushMutex_, deadline);
    }
    return !pushOrStopPending() && clock_.deviceNs() >= ns;
}

bool Host::pushOrStopPending() const {
    return !pushes_.empty() || stopStatus_ != 0;
}

void Host::requestStop(int exitStatus) {
    {
        threadsafety::MutexLock lock(pushMutex_);
        if (stopStatus_ == 0) stopStatus_ = exitStatus;
    }
    pushArrived_.notifyAll();
}

int Host::stopStatus() {
    threadsafety::MutexLock lock(pushMutex_);
    return stopStatus_;
}

int Host::run(int64_t durationNs) {
    const int64_t startNs = clock_.deviceNs();
    stepNs_ = startNs;
    acquireAll();
    headset_.settle();  // first reports owed to listeners registered just now
    const int64_t endNs = clock_.deviceNs() + durationNs;
    int64_t nextSnapshotNs = clock_.deviceNs() + snapshotEveryNs_;
    std::vector<sim::HostEvent> nextEvents = headset_.nextEventsAfter(clock_.deviceNs());

    for (;;) {
        if (clock_.mode() == HostClock::Mode::Simulated) headset_.settle();
        drainPushes();
        if (stopStatus() != 0) break;
        int64_t next = std::min(endNs, nextSnapshotNs);
        if (!nextEvents.empty()) next = std::min(next, nextEvents.front().atNs);
        if (!hooks_.empty()) next = std::min(next, hooks_.front().atNs);
        if (const auto change = headset_.nextSdkChangeAfter(clock_.deviceNs())) {
            next = std::min(next, *change);
        }
        for (const auto& due : nextSampleNs_) {
            if (due) next = std::min(next, *due);
        }
        if (!waitUntil(next)) continue;  // a push arrived first, or woke early: re-plan
        stepNs_ = next;
        headset_.settle();  // simulated threads push what they saw up to now before anything is due

        // Everything due at `next`, in a fixed order: host events, hooks, samples, snapshots.
        if (!nextEvents.empty() && nextEvents.front().atNs == next) {
            for (const auto& event : nextEvents)
                route("host", "host-event", event.name, event.detail);
            nextEvents = headset_.nextEventsAfter(next);
        }
        callHooksDueAt(next);
        for (size_t i = 0; i < providers_.size(); ++i) {
            if (nextSampleNs_[i] == next) sampleOne(i, next);
        }
        if (nextSnapshotNs == next) {
            // Forced pushes made up to now refresh their records before the host asks for any.
            headset_.settle();
            drainPushes();
            snapshotPeriodic();
            nextSnapshotNs += snapshotEveryNs_;
        }
        if (next >= endNs) break;
    }
    headset_.settle();
    drainPushes();
    snapshotAtEnd();
    for (size_t i = 0; i < providers_.size(); ++i) {
        if (!recorded_[i])
            summary_.setNoRecord(i, whyNoRecord(i, startNs, clock_.deviceNs() - startNs));
    }
    releaseAll();
    output_.endTimeline();
    summary_.print(output_, clock_.deviceNs() - startNs, longestPeriodNs_);
    return stopStatus();
}

}  // namespace host
