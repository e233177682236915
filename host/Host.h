// The reference host: drives providers as the device's host service does.
//
// It acquires every provider with its own router and the host clock, samples each one on its
// sampleRate() (read again after every sample), routes every notification (a sample's result,
// a push, or a simulated host event such as "ScreenOn") to every provider's notify(),
// snapshots the providers each `snapshotEveryNs` and prints the records, snapshots every
// provider once more when the run ends, and finally releases and destroys them. Pushes may
// arrive on any thread: they are queued and handled on the driving thread; a forced push makes
// the host snapshot the pushing provider at once and print its record.
//
// The host never asks for a record the provider cannot give: the periodic and the final
// snapshots leave out a provider already snapshotted at that instant (after a forced push, after
// its own notification, or periodically when the run ends then). A provider the host snapshots
// after its own notification (HostedProvider::snapshotAfter: its record covers the readings of
// the period that notification ends) is left out of the periodic snapshots, and of the final one
// unless it has been sampled twice since its last record; one whose snapshot publishes what its
// samples read (HostedProvider::readsInSample) is left out of the periodic snapshots until its
// first sample. Snapshots are unforced, but for those that answer a forced push and the final
// snapshot of a provider that has given no record yet (so that its record holds a reading),
// unless its records wait for a batch of its own samples (HostedProvider::firstRecord). A provider
// that gives no record in the whole run gets the reason in its summary row (RunSummary::Counts::
// noRecord). The simulated headset's threads (the HALs'
// callback thread, the SDK modules' threads) are let catch up whenever device time reaches the next
// instant and before pushes are handled, so a push shows at the device time it was made and
// simulated runs are deterministic.
//
// Every call into a provider is a ProviderCall: the run summary counts the provider's samples,
// notifications, pushes, snapshots and CPU time, and prints its table when the run ends. Every
// call into a provider, and every read of its record, holds that provider's lock, so that other
// threads (metric scrapes) can read what the host kept of its last record without racing it.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Headset.h"
#include "HostClock.h"
#include "MetricFamilies.h"
#include "Output.h"
#include "Providers.h"
#include "RunSummary.h"
#include "ThreadSafety.h"

namespace host {

class Host {
public:
    Host(HostClock& clock, Output& output, sim::Headset& headset,
         std::vector<HostedProvider> providers, int64_t snapshotEveryNs);

    // Calls the named hook of the named provider (HostedProvider::hooks) at device time
    // `atNs` during run(). False when no hosted provider has that hook.
    bool callHookAt(int64_t atNs, const std::string& provider, const std::string& hook);
    // Calls `call` on the driving thread at device time `atNs` during run(), before the
    // providers' work due then (for example a check of the process's state in a soak test).
    void callAt(int64_t atNs, std::function<void()> call);

    // Runs until `durationNs` of device time has passed or a stop is requested, then takes the
    // final snapshots, releases the providers and prints the run summary; returns 0, or the
    // status of the first stop requested.
    int run(int64_t durationNs);
    // The longest sampling period among the providers, or the snapshot period when longer: a
    // run shorter than this is too short to extrapolate a cost per hour. Complete once run()
    // has acquired the providers.
    int64_t longestPeriodNs() const { return longestPeriodNs_; }

    // Ends run() at its next step, as if the duration were over, and makes it return
    // `exitStatus` unless an earlier request set another; from any thread (not from a signal
    // handler).
    void requestStop(int exitStatus) EXCLUDES(pushMutex_);

    // Counted as the run goes; complete once run() has returned.
    RunSummary& summary() { return summary_; }

    // Called on the driving thread with each record the host renders as metric families.
    using RenderedRecord =
            std::function<void(size_t provider, int64_t deviceNs, const metrics::Families&)>;
    // Turns on metric export (before run()): after each successful snapshot of a provider with
    // HostedProvider::metrics, the host renders its record, keeps the families (exportedRecord)
    // and passes them to `rendered` (may be empty).
    void exportRecords(RenderedRecord rendered);
    // Provider `index`'s families as of its last rendered snapshot (none before one), copied
    // under that provider's lock; from any thread while the host exists. Indexes follow the
    // providers given to the constructor.
    metrics::Families exportedRecord(size_t index) const;
    size_t providerCount() const { return locks_.size(); }

private:
    struct Push {
        size_t provider;
        std::string name;
        std::string detail;
        bool force;
    };

    // Held around every call into one provider and every read of its record.
    struct ProviderLock {
        mutable threadsafety::Mutex mutex;
        metrics::Families exported GUARDED_BY(mutex);
    };
    class LockedCall;

    struct ScheduledCall {
        int64_t atNs;
        size_t provider;  // ProviderCall::npos: a call of the host's own
        std::string hook;
        std::function<void()> call;
    };

    void acquireAll();
    void releaseAll();
    void sampleOne(size_t index, int64_t atNs);
    // The periodic snapshots, and the final ones when the run ends.
    void snapshotPeriodic();
    void snapshotAtEnd();
    void snapshotOne(size_t index, bool force);
    // Why the run, `runNs` of device time from `startNs`, gave no record of the provider.
    std::string whyNoRecord(size_t index, int64_t startNs, int64_t runNs) const;
    bool snapshotThisStep(size_t index) const { return snapshotAtNs_[index] == stepNs_; }
    // The record the host prints after a successful snapshot; with export on, also renders and
    // keeps the provider's families and passes them on (exportRecords). Holding its lock.
    nlohmann::ordered_json readRecord(size_t index, ProviderLock& lock) REQUIRES(lock.mutex);
    void route(const std::string& source, const std::string& event, const std::string& name,
               const std::string& detail);
    void enqueuePush(size_t provider, const std::string& name, const std::string& detail,
                     bool force) EXCLUDES(pushMutex_);
    void drainPushes() EXCLUDES(pushMutex_);
    int stopStatus() EXCLUDES(pushMutex_);
    void schedule(ScheduledCall call);
    void callHooksDueAt(int64_t ns);
    // Moves device time to `ns`; in real mode returns early (false) when a push arrives.
    bool waitUntil(int64_t ns) EXCLUDES(pushMutex_);
    bool pushOrStopPending() const REQUIRES(pushMutex_);

    HostClock& clock_;
    Output& output_;
    sim::Headset& headset_;
    std::vector<HostedProvider> providers_;
    std::vector<std::optional<int64_t>> nextSampleNs_;
    int64_t snapshotEveryNs_;
    // The longest of the providers' sampling periods (as they gave them when acquired) and the
    // snapshot period: a shorter run has not seen every provider's work once.
    int64_t longestPeriodNs_;
    std::vector<ScheduledCall> hooks_;  // in time order
    RunSummary summary_;
    int64_t stepNs_ = 0;                 // the device time of the step being run
    std::vector<int64_t> snapshotAtNs_;  // the step of each provider's last snapshot
    std::vector<int64_t> samplesSinceRecord_;
    std::vector<bool> acquired_;  // whether acquireResources succeeded
    std::vector<bool> sampled_;   // at least once
    std::vector<bool> recorded_;  // a snapshot refreshed its record at least once
    std::vector<std::unique_ptr<ProviderLock>> locks_;  // by provider index
    bool exportRecords_ = false;
    RenderedRecord rendered_;

    // Pushes arrive on any thread; everything else here is the driving thread's.
    threadsafety::Mutex pushMutex_;
    threadsafety::ConditionVariable pushArrived_;  // also woken by a stop request
    std::deque<Push> pushes_ GUARDED_BY(pushMutex_);
    int stopStatus_ GUARDED_BY(pushMutex_) = 0;  // non-zero once a stop is requested
};

}  // namespace host
