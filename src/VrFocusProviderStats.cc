#include "VrFocusProviderStats.h"

#include <atomic>
#include <memory>
#include <thread>

#include "ProviderSupport.h"
#include "SharedOsServicesProperties.sysprop.h"

namespace Vistrel {
namespace {

using Platkit::Focus::v5::IVrFocusManager;

// The process's focus manager, a shared owning pointer that only the host's thread sets or drops
// (acquireResources, releaseResources, library unload), while the listener reads it on the SDK's
// thread without a lock, even during a release (a refused unregistration leaves the listener
// registered). The listener reads through a Reading: it counts itself in, then loads the address
// published atomically; a reset publishes the new address, then waits until no reading is in
// flight before it drops the old manager. So a listener never uses a released manager, takes no
// lock and no share, and the manager is always destroyed on the host's thread (the SDK's destroy
// function may wait for the very thread that calls the listener).
class FocusManagerHandle {
public:
    ~FocusManagerHandle() { reset(nullptr); }

    // The host's thread.
    void reset(std::shared_ptr<IVrFocusManager> manager) {
        address_.store(manager.get());
        owner_.swap(manager);
        while (readers_.load() != 0) std::this_thread::yield();
    }  // the earlier manager, now in `manager`, is released here
    // The host's thread (the owner's own reads need no Reading).
    explicit operator bool() const { return address_.load() != nullptr; }
    IVrFocusManager* operator->() const { return address_.load(); }

    // Any thread: the manager as published when the reading began, kept while the reading lives.
    class Reading {
    public:
        explicit Reading(FocusManagerHandle& handle) : handle_(handle) {
            handle_.readers_.fetch_add(1);
            manager_ = handle_.address_.load();
        }
        ~Reading() { handle_.readers_.fetch_sub(1); }
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;
        IVrFocusManager* get() const { return manager_; }

    private:
        FocusManagerHandle& handle_;
        IVrFocusManager* manager_;
    };

private:
    std::shared_ptr<IVrFocusManager> owner_;
    std::atomic<IVrFocusManager*> address_{nullptr};
    std::atomic<int> readers_{0};
};

// Process-wide: the property check of the latest acquire, the focus manager (released at
// library unload by its static destructor) and the registered listener (deleted only after a
// successful unregistration, since the SDK may still call it otherwise).
bool g_fgAppsEnabled = false;
FocusManagerHandle g_vrFocusManager;
VrTopActivityListener* g_topActivityListener = nullptr;

}  // namespace

VrTopActivityListener::VrTopActivityListener(NotificationRouter router)
    : router(std::move(router)) {}

VrTopActivityListener::~VrTopActivityListener() = default;

void VrTopActivityListener::onTopActivityChanged(Platkit::String,
                                                 Platkit::Optional<Platkit::Focus::ImmersiveApp>) {
    threadsafety::MutexLock lock(mutex);
    const FocusManagerHandle::Reading reading(g_vrFocusManager);
    IVrFocusManager* const manager = reading.get();
    if (manager == nullptr) return;
    std::vector<std::string> previous;
    // The module's array, released through its own release function when this call returns.
    Platkit::Array<Platkit::String> current = manager->getForegroundApps();
    previous = std::move(apps);
    apps.clear();
    if (previous.empty() && current.size() == 0) return;
    for (const Platkit::String& app : current) apps.emplace_back(app.c_str());
    // Same entries in the same order, compared byte for byte.
    if (previous != apps) {
        logInfo("VrTopActivityListener, onTopActivityChanged force sample");
        router("ForegroundAppsStats", "ForegroundApps snapshot", true);
    }
}

std::vector<std::string> VrTopActivityListener::getForegroundApps() {
    threadsafety::MutexLock lock(mutex);
    return apps;
}

const char* VrFocusProviderStats::name() const {
    return "VrFocusProviderStats";
}

bool VrFocusProviderStats::acquireResources(NotificationRouter router, IClockReader&) {
    const std::optional<bool> enabled =
            halden::sysprop::SharedOsServicesProperties::enable_fg_apps_cpu_events();
    g_fgAppsEnabled = enabled.value_or(false);
    if (!g_fgAppsEnabled) {
        foregroundApps = "NOT_ENABLED";
        return true;
    }
    g_vrFocusManager.reset(Platkit::Focus::v5::createVrFocusManagerPtr());
    if (!g_vrFocusManager) {
        logError("Could not connect to VR Focus Manager");
        return false;
    }
    g_topActivityListener = new VrTopActivityListener(std::move(router));
    if (!g_vrFocusManager->registerTopActivityListener(g_topActivityListener)) {
        logError("Failed to register listener");
        return false;
    }
    return true;
}

bool VrFocusProviderStats::releaseResources() {
    if (!g_fgAppsEnabled) return true;
    if (g_vrFocusManager && g_topActivityListener != nullptr) {
        if (!g_vrFocusManager->unregisterTopActivityListener(g_topActivityListener)) {
            logError("Failed to unregister listener");
            g_vrFocusManager.reset(nullptr);
            return false;
        }
        delete g_topActivityListener;
        g_topActivityListener = nullptr;
    }
    g_vrFocusManager.reset(nullptr);
    return true;
}

bool VrFocusProviderStats::snapshot(IClockReader& clock, bool force) {
    if (!g_fgAppsEnabled) return true;
    if (force) sample(clock);
    if (!g_vrFocusManager) {
        logError("VrFocusProviderStats: g_vrFocusManager is null");
        return false;
    }
    foregroundApps.clear();
    for (const std::string& app : g_topActivityListener->getForegroundApps()) {
        logInfo("VrFocusProviderStats: snapshot ForegroundApps: %s", app.c_str());
        foregroundApps += app;
        foregroundApps += ",";
    }
    snapshotTimeNs = clock.nowNs();
    return true;
}

}  // namespace Vistrel
