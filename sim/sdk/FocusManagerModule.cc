// libplatkit.halden.so, simulated: the VR focus manager, interface version 5.
//
// The foreground applications follow the control library's focus script over device time. Each
// manager keeps its own thread that calls the registered listeners: once for a newly registered
// listener (its first report), and for every listener whenever the script's list changes. The
// thread looks every 20 ms of real time, and at once when the simulated headset settles
// (sim::sdk::settle), so simulated runs see each change at the device time it happens.
//
// Variants (compile definitions), each built into its own module directory for tests:
//   VISTREL_SDK_NO_CREATE            the create function is not exported
//   VISTREL_SDK_NO_DESTROY           the destroy function is not exported
//   VISTREL_SDK_CREATE_RETURNS_NULL  the create function returns null
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "ModuleMemory.h"
#include "SdkControl.h"
#include "ThreadSafety.h"
#include "platkit/focus/IVrFocusManager.h"

#define MODULE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using Platkit::Array;
using Platkit::Optional;
using Platkit::String;
using Platkit::Focus::ImmersiveApp;
using Platkit::Focus::v5::ITopActivityListener;
using Platkit::Focus::v5::IVrFocusManager;

constexpr int64_t kVersion = 5;
constexpr auto kPollPeriod = std::chrono::milliseconds(20);

bool isSystemDialog(const std::string& package) {
    return package.find(".systemui.") != std::string::npos;
}

Optional<ImmersiveApp> immersiveAppOf(const std::string& package) {
    if (package.empty() || isSystemDialog(package)) return {};
    ImmersiveApp app;
    app.packageName = sim::sdk::moduleText(package);
    app.pid = 2000 + static_cast<int32_t>(std::hash<std::string>()(package) % 20000);
    return app;
}

std::string activityOf(const std::string& package) {
    return package.empty() ? std::string() : package + "/.MainActivity";
}

class SimFocusManager final : public IVrFocusManager {
public:
    SimFocusManager()
        : apps_(sim::sdk::focusScript().appsAt(sim::sdk::deviceNs())),
          thread_([this] { run(); }),
          settleHook_(sim::sdk::addSettleHook([this] { catchUp(); })) {}

    ~SimFocusManager() override {
        sim::sdk::removeSettleHook(settleHook_);
        {
            threadsafety::MutexLock lock(state_);
            stop_ = true;
        }
        wake_.notifyAll();
        thread_.join();
        sim::sdk::recordListenerCountChange(-static_cast<int>(listeners_.size() + fresh_.size()));
    }

    int64_t getInterfaceVersion() const override { return kVersion; }
    bool isHeadsetFocused() override { return sim::sdk::interactiveAt(sim::sdk::deviceNs()); }
    Optional<ImmersiveApp> getFocusedImmersiveApp() override { return immersiveAppOf(top()); }
    bool requestFocus(const String&) override { return false; }
    bool abandonFocus(const String&) override { return false; }

    bool registerTopActivityListener(ITopActivityListener* listener) override EXCLUDES(state_) {
        if (listener == nullptr || sim::sdk::hooks().refuseRegistration) return false;
        {
            threadsafety::MutexLock lock(state_);
            if (isRegistered(listener)) return true;
            fresh_.push_back(listener);
        }
        sim::sdk::recordListenerCountChange(+1);
        wake_.notifyAll();
        return true;
    }

    bool unregisterTopActivityListener(ITopActivityListener* listener) override EXCLUDES(state_) {
        if (sim::sdk::hooks().refuseUnregistration) return false;
        {
            threadsafety::MutexLock lock(state_);
            if (!erase(listeners_, listener) && !erase(fresh_, listener)) return false;
            // A delivery may already have picked this listener: wait until it is over (unless
            // the listener unregisters itself from within that delivery).
            if (std::this_thread::get_id() != thread_.get_id()) {
                while (delivering_) idle_.wait(state_);
            }
        }
        sim::sdk::recordListenerCountChange(-1);
        return true;
    }

    String getTopActivity() override { return sim::sdk::moduleText(activityOf(top())); }

    bool isImmersive(const String& packageName) override EXCLUDES(state_) {
        const std::string package = packageName.c_str();
        threadsafety::MutexLock lock(state_);
        return std::find(apps_.begin(), apps_.end(), package) != apps_.end() &&
               !isSystemDialog(package);
    }

    Array<String> getForegroundApps() override EXCLUDES(state_) {
        std::vector<std::string> apps;
        {
            threadsafety::MutexLock lock(state_);
            apps = apps_;
        }
        return sim::sdk::moduleTexts(apps);
    }

private:
    static bool erase(std::vector<ITopActivityListener*>& from, ITopActivityListener* listener) {
        const auto it = std::find(from.begin(), from.end(), listener);
        if (it == from.end()) return false;
        from.erase(it);
        return true;
    }

    bool isRegistered(ITopActivityListener* listener) const REQUIRES(state_) {
        return std::count(listeners_.begin(), listeners_.end(), listener) +
                       std::count(fresh_.begin(), fresh_.end(), listener) !=
               0;
    }

    std::string top() EXCLUDES(state_) {
        threadsafety::MutexLock lock(state_);
        return apps_.empty() ? std::string() : apps_.front();
    }

    // The settle hook: wakes the thread and waits until it has looked at the script once more.
    void catchUp() EXCLUDES(state_) {
        threadsafety::MutexLock lock(state_);
        const uint64_t round = ++requested_;
        wake_.notifyAll();
        while (processed_ < round && !stop_) done_.wait(state_);
    }

    // The manager's thread: looks at the script every poll period, and at once when asked to
    // stop, to catch up or to give a new listener its first report.
    void run() EXCLUDES(state_) {
        pthread_setname_np(pthread_self(), "PlatkitFocus");
        threadsafety::MutexLock lock(state_);
        for (;;) {
            const auto deadline = std::chrono::steady_clock::now() + kPollPeriod;
            bool timedOut = false;
            while (!stop_ && requested_ <= processed_ && fresh_.empty() && !timedOut) {
                timedOut = !wake_.waitUntil(state_, deadline);
            }
            if (stop_) break;
            const uint64_t round = requested_;
            deliver();
            processed_ = std::max(processed_, round);
            done_.notifyAll();
        }
        done_.notifyAll();
    }

    // Compares the script with the last report and calls the listeners owed a report, with state_
    // released (they call back into the manager) and delivering_ set, so that unregistration can
    // wait for calls in progress.
    void deliver() REQUIRES(state_) {
        const std::vector<std::string> now = sim::sdk::focusScript().appsAt(sim::sdk::deviceNs());
        std::vector<ITopActivityListener*> owed;
        if (now != apps_) {
            apps_ = now;
            owed = listeners_;
        }
        for (auto* listener : fresh_) {
            listeners_.push_back(listener);
            if (std::find(owed.begin(), owed.end(), listener) == owed.end()) {
                owed.push_back(listener);
            }
        }
        fresh_.clear();
        if (owed.empty()) return;
        const std::string topApp = apps_.empty() ? std::string() : apps_.front();
        delivering_ = true;
        state_.unlock();
        for (auto* listener : owed) {
            listener->onTopActivityChanged(sim::sdk::moduleText(activityOf(topApp)),
                                           immersiveAppOf(topApp));
        }
        state_.lock();
        delivering_ = false;
        idle_.notifyAll();
    }

    threadsafety::Mutex state_;
    threadsafety::ConditionVariable wake_;
    threadsafety::ConditionVariable done_;
    threadsafety::ConditionVariable idle_;  // delivering_ went false
    std::vector<std::string> apps_ GUARDED_BY(state_);
    std::vector<ITopActivityListener*> listeners_ GUARDED_BY(state_);
    // Registered, first report not yet delivered.
    std::vector<ITopActivityListener*> fresh_ GUARDED_BY(state_);
    uint64_t requested_ GUARDED_BY(state_) = 0;
    uint64_t processed_ GUARDED_BY(state_) = 0;
    bool stop_ GUARDED_BY(state_) = false;
    bool delivering_ GUARDED_BY(state_) = false;  // listeners are being called
    std::thread thread_;
    uint64_t settleHook_;
};

}  // namespace

#ifndef VISTREL_SDK_NO_CREATE
MODULE_EXPORT IVrFocusManager* createVrFocusManager(int64_t version) {
    sim::sdk::recordCreate(version);
#ifdef VISTREL_SDK_CREATE_RETURNS_NULL
    return nullptr;
#else
    if (version != kVersion || sim::sdk::hooks().createReturnsNull) return nullptr;
    return new SimFocusManager;
#endif
}
#endif

#ifndef VISTREL_SDK_NO_DESTROY
MODULE_EXPORT void destroyVrFocusManager(int64_t version, IVrFocusManager* manager) noexcept {
    sim::sdk::recordDestroy("destroyVrFocusManager", version, manager);
    // Returning an object under another version than it was made with is a caller's bug.
    if (version != kVersion) abort();
    delete static_cast<SimFocusManager*>(manager);
}
#endif
