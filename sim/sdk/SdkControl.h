// Control of the simulated SDK modules (libplatkit.halden.so, libinstsamp.halden.so).
//
// The modules are real shared objects that the provider library opens at run time, so they
// cannot see the simulated headset directly. This small shared library sits between them: the
// modules link it, and so do the reference host and the tests, and being one shared object it
// exists once per process. sim::Headset (or a test) installs here the device time, the focus
// script and the sampler's mode and data; tests reach the modules' test hooks through it.
//
// Everything here is thread-safe. Its state is never destroyed (the provider library may
// release SDK objects from its own static destructors, after ordinary statics are gone).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim::sdk {

// ---- Device time -----------------------------------------------------------------------------

// Nanoseconds since boot as the simulated headset counts them; 0 until a source is installed.
void setDeviceTime(std::function<int64_t()> now);
void resetDeviceTime();
int64_t deviceNs();

// ---- Focus manager ---------------------------------------------------------------------------

// A cyclic script of the headset's foreground applications over device time, e.g. five minutes
// of the launcher, then twenty of a game: {{5 min, {"com.halden.shell"}}, {20 min, {...}}}.
// Each phase lists the applications in front, top first; an empty list means none.
class FocusScript {
public:
    struct Phase {
        int64_t lengthNs;
        std::vector<std::string> apps;
    };

    // `phases` must not be empty and every length must be positive.
    explicit FocusScript(std::vector<Phase> phases);
    // One hour: launcher, game, media app, a system dialog over the media app, a game with the
    // passthrough overlay (two immersive apps at once), back to the launcher.
    static FocusScript defaults();

    const std::vector<std::string>& appsAt(int64_t deviceNs) const;
    // First instant after `deviceNs` at which the list changes, if it ever does.
    std::optional<int64_t> nextChangeAfter(int64_t deviceNs) const;
    const std::vector<Phase>& phases() const { return phases_; }

private:
    const Phase& phaseAt(int64_t deviceNs) const;

    std::vector<Phase> phases_;
    int64_t cycleNs_ = 0;
};

void setFocusScript(FocusScript script);
FocusScript focusScript();

// Lets every live focus manager catch up with the device time now: returns once each manager's
// thread has compared the script with its last report and delivered any change (and any first
// report owed to a newly registered listener). Returns at once when no manager exists. Must not
// be called from a listener.
void settle();

// Module side: a focus manager registers how to catch up; settle() calls every hook in turn.
using SettleHook = std::function<void()>;
uint64_t addSettleHook(SettleHook hook);
void removeSettleHook(uint64_t id);

// ---- Instruction sampler ---------------------------------------------------------------------

enum class SamplerMode {
    Simulated,  // headset-like threads and feature sections driven by device time
    Live,       // every thread of the machine and its /proc/stat
    Scripted,   // exactly the readings a test supplies
};

// One reading as the sampler serves it: the raw bytes and the ProfileBuffer's cached fields.
struct Reading {
    std::vector<uint8_t> bytes;
    uint32_t cachedSectionOffset = 0xFFFFFFFF;
    uint32_t cachedThreadTableOffset = 0xFFFFFFFF;
    uint32_t cachedCpuCount = 0xFFFFFFFF;
};

void setSamplerMode(SamplerMode mode);
SamplerMode samplerMode();
// Simulated mode: whether the headset is interactive at a device time (threads and rates follow
// it); without a source the headset counts as interactive.
void setInteractiveSource(std::function<bool(int64_t deviceNs)> interactive);
bool interactiveAt(int64_t deviceNs);

// Simulated mode: a thread of the simulated headset's processes as the sampler sees it at a
// device time, e.g. {612, 615, "compositor", 0.45, 0x30 (CPUs 4 and 5), "render"}.
struct HeadsetThread {
    int32_t pid = 0;  // its process (thread group)
    int32_t tid = 0;
    std::string name;     // its comm, at most 15 characters
    double busy = 0;      // fraction of one CPU it uses
    uint32_t cpus = 0;    // bit i set: it runs on CPU i; its samples spread evenly over them
    std::string feature;  // the "features" entry its samples also count for; "" for none
};
// Simulated mode: the headset's threads at a device time (installed by sim::Headset); without
// a source the sampler reports no threads.
void setThreadSource(std::function<std::vector<HeadsetThread>(int64_t deviceNs)> threads);
std::vector<HeadsetThread> headsetThreadsAt(int64_t deviceNs);

// Scripted mode: readings served in order, one per readProfileBuffer; after the last, null.
void setScriptedReadings(std::vector<Reading> readings);
// Scripted mode: the name getThreadInfo reports for each thread id (others: empty names).
void setScriptedThreadNames(std::map<int32_t, std::string> names);
// Module side: the next scripted reading, if any is left.
std::optional<Reading> takeScriptedReading();
std::string scriptedThreadName(int32_t tid);

// ---- Test hooks and observations -------------------------------------------------------------

struct Hooks {
    bool createReturnsNull = false;     // both create functions return null
    bool refuseRegistration = false;    // registerTopActivityListener returns false
    bool refuseUnregistration = false;  // unregisterTopActivityListener returns false
    bool refuseSession = false;         // beginSession returns false
};
void setHooks(const Hooks& hooks);
Hooks hooks();

struct DestroyCall {
    std::string function;  // "destroyVrFocusManager" or "destroyInstructionSampler"
    int64_t version;
    const void* object;
};

struct SessionConfiguration {
    std::vector<uint32_t> sampleInfos;
    std::vector<std::string> bufferNames;
    uint32_t sampleKernel;
    uint32_t perThread;
    uint32_t samplingPeriodUs;
    uint64_t tracePathLength;
};

struct Observations {
    std::vector<int64_t> createVersions;  // every create call, both modules
    std::vector<DestroyCall> destroyCalls;
    int registeredListeners = 0;         // over all live focus managers
    int64_t outstandingAllocations = 0;  // module allocations handed out and not yet released
    std::vector<SessionConfiguration> sessionsBegun;
    int sessionsEnded = 0;
    int profileBufferReads = 0;
};
Observations observations();
void resetObservations();

// Module side: record what the modules saw.
void recordCreate(int64_t version);
void recordDestroy(const char* function, int64_t version, const void* object);
void recordListenerCountChange(int delta);
void recordAllocation(int delta);
void recordSessionBegun(SessionConfiguration configuration);
void recordSessionEnded();
void recordProfileBufferRead();

}  // namespace sim::sdk
