// The reference host: drives providers as the device's host service does.
//
// It acquires every provider with its own router and the host clock, samples each one on its
// sampleRate() (read again after every sample), routes every notification (a sample's result,
// a push, or a simulated host event such as "ScreenOn") to every provider's notify(),
// snapshots every provider each `snapshotEveryNs` and prints the records, and finally releases
// and destroys them. Pushes may arrive on any thread: they are queued and handled on the
// driving thread; a forced push makes the host snapshot the pushing provider at once and print
// its record. Whenever device time reaches the next instant, the simulated SDK modules first
// catch up (their threads push what changed up to then), so simulated runs are deterministic.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "Headset.h"
#include "HostClock.h"
#include "Output.h"
#include "Providers.h"

namespace host {

class Host {
public:
    Host(HostClock& clock, Output& output, sim::Headset& headset,
         std::vector<HostedProvider> providers, int64_t snapshotEveryNs);

    // Runs until `durationNs` of device time has passed; returns the process exit status.
    int run(int64_t durationNs);

private:
    struct Push {
        size_t provider;
        std::string name;
        std::string detail;
        bool force;
    };

    void acquireAll();
    void releaseAll();
    void sampleOne(size_t index, int64_t atNs);
    void snapshotAll();
    void snapshotOne(size_t index, bool force);
    void route(const std::string& source, const std::string& event, const std::string& name,
               const std::string& detail);
    void enqueuePush(size_t provider, const std::string& name, const std::string& detail,
                     bool force);
    void drainPushes();
    // Moves device time to `ns`; in real mode returns early (false) when a push arrives.
    bool waitUntil(int64_t ns);

    HostClock& clock_;
    Output& output_;
    sim::Headset& headset_;
    std::vector<HostedProvider> providers_;
    std::vector<std::optional<int64_t>> nextSampleNs_;
    int64_t snapshotEveryNs_;

    std::mutex pushMutex_;
    std::condition_variable pushArrived_;
    std::deque<Push> pushes_;
};

}  // namespace host
