#include "SdkControl.h"

#include <cstdlib>
#include <deque>

#include "ThreadSafety.h"

namespace sim::sdk {
namespace {

constexpr int64_t kMinuteNs = INT64_C(60000000000);

struct State {
    threadsafety::Mutex mutex;
    std::function<int64_t()> deviceTime GUARDED_BY(mutex);
    FocusScript focus GUARDED_BY(mutex) = FocusScript::defaults();
    std::map<uint64_t, SettleHook> settleHooks GUARDED_BY(mutex);
    uint64_t nextHookId GUARDED_BY(mutex) = 1;
    SamplerMode mode GUARDED_BY(mutex) = SamplerMode::Simulated;
    std::function<bool(int64_t)> interactive GUARDED_BY(mutex);
    std::deque<Reading> scripted GUARDED_BY(mutex);
    std::map<int32_t, std::string> threadNames GUARDED_BY(mutex);
    Hooks hooks GUARDED_BY(mutex);
    Observations seen GUARDED_BY(mutex);
};

// Never destroyed: modules may call in from the provider library's static destructors.
State& state() {
    static State* const instance = new State;
    return *instance;
}

// settle() runs the hooks under this lock, so a manager cannot go away while it is settling.
threadsafety::Mutex& settleMutex() {
    static threadsafety::Mutex* const instance = new threadsafety::Mutex;
    return *instance;
}

}  // namespace

void setDeviceTime(std::function<int64_t()> now) {
    threadsafety::MutexLock lock(state().mutex);
    state().deviceTime = std::move(now);
}

void resetDeviceTime() {
    setDeviceTime(nullptr);
}

int64_t deviceNs() {
    std::function<int64_t()> now;
    {
        threadsafety::MutexLock lock(state().mutex);
        now = state().deviceTime;
    }
    return now ? now() : 0;
}

FocusScript::FocusScript(std::vector<Phase> phases) : phases_(std::move(phases)) {
    if (phases_.empty()) abort();
    for (const auto& p : phases_) {
        if (p.lengthNs <= 0) abort();
        cycleNs_ += p.lengthNs;
    }
}

FocusScript FocusScript::defaults() {
    return FocusScript({
            {10 * kMinuteNs, {"com.halden.shell"}},
            {25 * kMinuteNs, {"com.northpeak.starfall"}},
            {10 * kMinuteNs, {"com.halden.media"}},
            {5 * kMinuteNs, {"com.halden.systemui.dialog", "com.halden.media"}},
            {5 * kMinuteNs, {"com.northpeak.starfall", "com.halden.passthrough"}},
            {5 * kMinuteNs, {"com.halden.shell"}},
    });
}

const FocusScript::Phase& FocusScript::phaseAt(int64_t deviceNs) const {
    int64_t offset = ((deviceNs % cycleNs_) + cycleNs_) % cycleNs_;
    for (const auto& p : phases_) {
        if (offset < p.lengthNs) return p;
        offset -= p.lengthNs;
    }
    return phases_.back();
}

const std::vector<std::string>& FocusScript::appsAt(int64_t deviceNs) const {
    return phaseAt(deviceNs).apps;
}

std::optional<int64_t> FocusScript::nextChangeAfter(int64_t deviceNs) const {
    const auto& now = appsAt(deviceNs);
    bool anyDifferent = false;
    for (const auto& p : phases_) anyDifferent |= (p.apps != now);
    if (!anyDifferent) return std::nullopt;
    int64_t boundary = deviceNs - ((deviceNs % cycleNs_) + cycleNs_) % cycleNs_;
    for (;;) {
        for (const auto& p : phases_) {
            boundary += p.lengthNs;
            if (boundary > deviceNs && appsAt(boundary) != now) return boundary;
        }
    }
}

void setFocusScript(FocusScript script) {
    threadsafety::MutexLock lock(state().mutex);
    state().focus = std::move(script);
}

FocusScript focusScript() {
    threadsafety::MutexLock lock(state().mutex);
    return state().focus;
}

void settle() {
    threadsafety::MutexLock settling(settleMutex());
    std::map<uint64_t, SettleHook> hooks;
    {
        threadsafety::MutexLock lock(state().mutex);
        hooks = state().settleHooks;
    }
    for (auto& [id, hook] : hooks) hook();
}

uint64_t addSettleHook(SettleHook hook) {
    threadsafety::MutexLock settling(settleMutex());
    threadsafety::MutexLock lock(state().mutex);
    const uint64_t id = state().nextHookId++;
    state().settleHooks.emplace(id, std::move(hook));
    return id;
}

void removeSettleHook(uint64_t id) {
    threadsafety::MutexLock settling(settleMutex());
    threadsafety::MutexLock lock(state().mutex);
    state().settleHooks.erase(id);
}

void setSamplerMode(SamplerMode mode) {
    threadsafety::MutexLock lock(state().mutex);
    state().mode = mode;
}

SamplerMode samplerMode() {
    threadsafety::MutexLock lock(state().mutex);
    return state().mode;
}

void setInteractiveSource(std::function<bool(int64_t)> interactive) {
    threadsafety::MutexLock lock(state().mutex);
    state().interactive = std::move(interactive);
}

bool interactiveAt(int64_t deviceNs) {
    std::function<bool(int64_t)> interactive;
    {
        threadsafety::MutexLock lock(state().mutex);
        interactive = state().interactive;
    }
    return interactive ? interactive(deviceNs) : true;
}

void setScriptedReadings(std::vector<Reading> readings) {
    threadsafety::MutexLock lock(state().mutex);
    state().scripted.assign(std::make_move_iterator(readings.begin()),
                            std::make_move_iterator(readings.end()));
}

void setScriptedThreadNames(std::map<int32_t, std::string> names) {
    threadsafety::MutexLock lock(state().mutex);
    state().threadNames = std::move(names);
}

std::optional<Reading> takeScriptedReading() {
    threadsafety::MutexLock lock(state().mutex);
    if (state().scripted.empty()) return std::nullopt;
    Reading next = std::move(state().scripted.front());
    state().scripted.pop_front();
    return next;
}

std::string scriptedThreadName(int32_t tid) {
    threadsafety::MutexLock lock(state().mutex);
    const auto it = state().threadNames.find(tid);
    return it == state().threadNames.end() ? std::string() : it->second;
}

void setHooks(const Hooks& hooks) {
    threadsafety::MutexLock lock(state().mutex);
    state().hooks = hooks;
}

Hooks hooks() {
    threadsafety::MutexLock lock(state().mutex);
    return state().hooks;
}

Observations observations() {
    threadsafety::MutexLock lock(state().mutex);
    return state().seen;
}

void resetObservations() {
    threadsafety::MutexLock lock(state().mutex);
    const int listeners = state().seen.registeredListeners;
    const int64_t outstanding = state().seen.outstandingAllocations;
    state().seen = Observations{};
    // Live counts describe objects that still exist; only the history is cleared.
    state().seen.registeredListeners = listeners;
    state().seen.outstandingAllocations = outstanding;
}

void recordCreate(int64_t version) {
    threadsafety::MutexLock lock(state().mutex);
    state().seen.createVersions.push_back(version);
}

void recordDestroy(const char* function, int64_t version, const void* object) {
    threadsafety::MutexLock lock(state().mutex);
    state().seen.destroyCalls.push_back({function, version, object});
}

void recordListenerCountChange(int delta) {
    threadsafety::MutexLock lock(state().mutex);
    state().seen.registeredListeners += delta;
}

void recordAllocation(int delta) {
    threadsafety::MutexLock lock(state().mutex);
    state().seen.outstandingAllocations += delta;
}

void recordSessionBegun(SessionConfiguration configuration) {
    threadsafety::MutexLock lock(state().mutex);
    state().seen.sessionsBegun.push_back(std::move(configuration));
}

void recordSessionEnded() {
    threadsafety::MutexLock lock(state().mutex);
    ++state().seen.sessionsEnded;
}

void recordProfileBufferRead() {
    threadsafety::MutexLock lock(state().mutex);
    ++state().seen.profileBufferReads;
}

}  // namespace sim::sdk
