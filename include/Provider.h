// The contract between a statistics provider and the host service that drives it.
//
// The host constructs each provider, reads name() and sampleRate(), calls
// acquireResources(router, clock) once, then in any interleaving sample(clock) every
// sampleRate() milliseconds (re-reading sampleRate() after each sample), notify() for every
// routed notification and snapshot(clock, force) whenever it wants fresh records, and finally
// releaseResources() and the virtual destructor. All of these run on the host's driving
// thread; the only calls from other threads are router pushes (see NotificationRouter).
//
// The virtual operations below are declared in their ABI slot order; providers compiled
// against the host library rely on it, so never reorder, insert or remove one.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace Vistrel {

// An event a provider reports to the host: the host routes it to every provider's notify().
struct Notification {
    std::string name;    // event name receivers match on, e.g. "ZramHeartbeat"
    std::string detail;  // free text qualifying the event, e.g. "15 minutes"
};

// Sampling period: engaged means "call sample() every that many milliseconds";
// empty means the provider is never sampled periodically.
using SamplePeriod = std::optional<std::chrono::milliseconds>;

// Host callable that receives pushed notifications (name, detail, force). Providers that push
// from platform threads copy it into their listener; the host must make it safe to call
// concurrently with its own calls into providers. Calling an empty router aborts.
using NotificationRouter =
        std::function<void(const std::string& name, const std::string& detail, bool force)>;

// Host clock. Providers only ever subtract two readings of the same operation.
class IClockReader {
public:
    virtual ~IClockReader() = default;
    // Nanoseconds; time stamp of a periodic reading (divided by 1000000 for milliseconds).
    virtual int64_t elapsedNs() = 0;
    // Host-defined time stamp of a state change or of a refreshed record.
    virtual int64_t readTimestamp() = 0;
    // Nanoseconds; every elapsed-time decision (heartbeats, one-hour gates, snapshot stamps).
    virtual int64_t nowNs() = 0;
};

class Provider {
public:
    virtual ~Provider() = default;

    // Static text owned by the provider class; identifies the provider to the host.
    virtual const char* name() const = 0;

    // Connects to services, builds tables, takes start stamps. False: could not connect (the
    // reason is logged); later sample/snapshot calls then fail until a later acquire succeeds.
    virtual bool acquireResources(NotificationRouter router, IClockReader& clock) { return true; }

    // Undoes what acquireResources registered.
    virtual bool releaseResources() { return true; }

    // Refreshes the provider's record; true when it now holds fresh values. With force, most
    // providers first run their own sample() and drop its notification.
    virtual bool snapshot(IClockReader& clock, bool force) = 0;

    // Periodic work; at most one notification for the host to route.
    virtual std::optional<Notification> sample(IClockReader& clock) { return std::nullopt; }

    // A routed notification, whatever its source (a sample, a push or a host event).
    virtual void notify(const std::string& name, const std::string& detail, IClockReader& clock) {}

    // How often the host calls sample(); empty: never.
    virtual SamplePeriod sampleRate() const { return std::nullopt; }
};

}  // namespace Vistrel
