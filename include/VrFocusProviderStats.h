// VrFocusProviderStats: the headset's foreground VR applications, as the SDK's focus manager
// reports them.
//
// When the system property enable_fg_apps_cpu_events is true, acquireResources() creates the
// process-wide focus manager and registers a VrTopActivityListener with it. On every
// top-activity change the listener re-reads the foreground applications and, when the list
// differs from the one it holds (same applications in the same order), pushes
// ("ForegroundAppsStats", "ForegroundApps snapshot", force = true) through the router. The host
// answers with snapshot(), which copies the list into `foregroundApps`. With the property unset
// or false the collector does nothing and its record reads "NOT_ENABLED".
//
// The collector is never sampled (base sample() and sampleRate()). The manager and the listener
// are process-wide: acquireResources(), releaseResources() and snapshot() must not overlap.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Provider.h"
#include "ThreadSafety.h"
#include "platkit/focus/IVrFocusManager.h"

namespace Vistrel {

// Holds the foreground applications the focus manager last reported. onTopActivityChanged runs
// on the SDK's thread and calls the router with `mutex` held, so the router must not call back
// into this listener on that thread.
class VrTopActivityListener : public Platkit::Focus::v5::ITopActivityListener {
public:
    explicit VrTopActivityListener(NotificationRouter router);
    ~VrTopActivityListener() override;

    // Both arguments are ignored: a change is only the trigger to re-read the list.
    void onTopActivityChanged(Platkit::String activity,
                              Platkit::Optional<Platkit::Focus::ImmersiveApp> app) override
            EXCLUDES(mutex);

    // A copy of the list, taken under the mutex; any thread.
    std::vector<std::string> getForegroundApps() EXCLUDES(mutex);

private:
    threadsafety::Mutex mutex;
    std::vector<std::string> apps GUARDED_BY(mutex);  // in the manager's order
    NotificationRouter router;
};

class VrFocusProviderStats : public Provider {
public:
    const char* name() const override;
    // Reads the property; when enabled, creates the focus manager and registers the listener.
    // False (logged) when the manager cannot be created or refuses the listener.
    bool acquireResources(NotificationRouter router, IClockReader& clock) override;
    // Unregisters and deletes the listener, then releases the manager. A refused
    // unregistration releases the manager but keeps (leaks) the listener and returns false.
    bool releaseResources() override;
    // Copies the listener's list into the record; true without change when disabled.
    bool snapshot(IClockReader& clock, bool force) override;

    // Record: each application followed by "," (so "a,b,"); "" when none is in front;
    // "NOT_ENABLED" when the feature is off.
    std::string foregroundApps;
    // clock.nowNs() at the end of the last successful snapshot, nanoseconds.
    int64_t snapshotTimeNs = 0;
};

}  // namespace Vistrel
