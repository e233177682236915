#include "Host.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr int64_t kNsPerMs = 1000000;

}  // namespace

Host::Host(HostClock& clock, Output& output, sim::Headset& headset,
           std::vector<HostedProvider> providers, int64_t snapshotEveryNs)
    : clock_(clock),
      output_(output),
      headset_(headset),
      providers_(std::move(providers)),
      nextSampleNs_(providers_.size()),
      snapshotEveryNs_(snapshotEveryNs) {}

void Host::acquireAll() {
    for (size_t i = 0; i < providers_.size(); ++i) {
        Vistrel::Provider& p = *providers_[i].provider;
        // The host's calling order: name, sampling period, then acquire.
        const std::string name = p.name();
        const auto period = p.sampleRate();
        Vistrel::NotificationRouter router = [this, i](const std::string& pushed,
                                                       const std::string& detail, bool force) {
            enqueuePush(i, pushed, detail, force);
        };
        const bool ok = p.acquireResources(router, clock_);
        json fields = {{"ok", ok}, {"periodMs", nullptr}};
        if (period) {
            fields["periodMs"] = period->count();
            nextSampleNs_[i] = clock_.deviceNs() + period->count() * kNsPerMs;
        }
        output_.write(clock_.deviceNs(), name, "acquire", fields);
    }
}

void Host::releaseAll() {
    for (auto& hosted : providers_) {
        const bool ok = hosted.provider->releaseResources();
        output_.write(clock_.deviceNs(), hosted.provider->name(), "release", json{{"ok", ok}});
    }
    drainPushes();       // listeners may push while they stop
    providers_.clear();  // destroys every provider through its virtual destructor
}

void Host::route(const std::string& source, const std::string& event, const std::string& name,
                 const std::string& detail) {
    output_.write(clock_.deviceNs(), source, event, json{{"name", name}, {"detail", detail}});
    for (auto& hosted : providers_) hosted.provider->notify(name, detail, clock_);
}

void Host::sampleOne(size_t index, int64_t atNs) {
    HostedProvider& hosted = providers_[index];
    const auto notification = hosted.provider->sample(clock_);
    if (notification) {
        route(hosted.provider->name(), "notification", notification->name, notification->detail);
        if (hosted.follow) {
            if (auto fetched = hosted.follow(*notification)) {
                output_.write(clock_.deviceNs(), hosted.provider->name(), "fetch", *fetched);
            }
        }
        if (hosted.snapshotAfter && hosted.snapshotAfter(*notification)) snapshotOne(index, false);
    }
    const auto period = hosted.provider->sampleRate();  // may change after every sample
    if (period && period->count() > 0) {
        nextSampleNs_[index] = atNs + period->count() * kNsPerMs;
    } else {
        nextSampleNs_[index].reset();
    }
}

void Host::snapshotOne(size_t index, bool force) {
    HostedProvider& hosted = providers_[index];
    if (!hosted.provider->snapshot(clock_, force)) return;
    output_.write(clock_.deviceNs(), hosted.provider->name(), "record",
                  hosted.record ? hosted.record() : json::object());
}

void Host::snapshotAll() {
    for (size_t i = 0; i < providers_.size(); ++i) snapshotOne(i, false);
}

void Host::enqueuePush(size_t provider, const std::string& name, const std::string& detail,
                       bool force) {
    {
        std::lock_guard<std::mutex> lock(pushMutex_);
        pushes_.push_back({provider, name, detail, force});
    }
    pushArrived_.notify_one();
}

void Host::drainPushes() {
    for (;;) {
        Push push;
        {
            std::lock_guard<std::mutex> lock(pushMutex_);
            if (pushes_.empty()) return;
            push = std::move(pushes_.front());
            pushes_.pop_front();
        }
        route(providers_[push.provider].provider->name(), push.force ? "push (force)" : "push",
              push.name, push.detail);
        if (push.force) snapshotOne(push.provider, true);
    }
}

bool Host::callHookAt(int64_t atNs, const std::string& provider, const std::string& hook) {
    for (size_t i = 0; i < providers_.size(); ++i) {
        if (providers_[i].provider->name() != provider || providers_[i].hooks.count(hook) == 0) {
            continue;
        }
        const auto later = std::upper_bound(
                hooks_.begin(), hooks_.end(), atNs,
                [](int64_t at, const ScheduledHook& scheduled) { return at < scheduled.atNs; });
        hooks_.insert(later, ScheduledHook{atNs, i, hook});
        return true;
    }
    return false;
}

void Host::callHooksDueAt(int64_t ns) {
    while (!hooks_.empty() && hooks_.front().atNs == ns) {
        const ScheduledHook due = hooks_.front();
        hooks_.erase(hooks_.begin());
        HostedProvider& hosted = providers_[due.provider];
        output_.write(clock_.deviceNs(), hosted.provider->name(), "hook", json{{"name", due.hook}});
        hosted.hooks[due.hook]();
    }
}

bool Host::waitUntil(int64_t ns) {
    if (clock_.mode() == HostClock::Mode::Simulated) {
        clock_.advanceTo(ns);
        return true;
    }
    const auto remaining = std::chrono::nanoseconds(std::max<int64_t>(0, ns - clock_.deviceNs()));
    std::unique_lock<std::mutex> lock(pushMutex_);
    const bool pushed = pushArrived_.wait_for(lock, remaining, [this] { return !pushes_.empty(); });
    return !pushed && clock_.deviceNs() >= ns;
}

int Host::run(int64_t durationNs) {
    acquireAll();
    headset_.settle();  // first reports owed to listeners registered just now
    const int64_t endNs = clock_.deviceNs() + durationNs;
    int64_t nextSnapshotNs = clock_.deviceNs() + snapshotEveryNs_;
    std::vector<sim::HostEvent> nextEvents = headset_.nextEventsAfter(clock_.deviceNs());

    for (;;) {
        if (clock_.mode() == HostClock::Mode::Simulated) headset_.settle();
        drainPushes();
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
            snapshotAll();
            nextSnapshotNs += snapshotEveryNs_;
        }
        if (next >= endNs) break;
    }
    headset_.settle();
    drainPushes();
    releaseAll();
    return 0;
}

}  // namespace host
