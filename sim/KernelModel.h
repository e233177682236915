// The simulated headset's kernel state over device time: its processes (ProcessTable) and its
// system-wide memory, swap and storage (MemoryModel), stepped through the same focus and
// interactive scripts as the rest of the headset.
//
// Steps end at every whole device minute and at every change of either script, and each step
// runs under the scene at its start, so the state at a device time never depends on how often
// the owner advanced it; between step ends the figures hold. Thread-safe: the owner advances it
// (Headset::settle), and so does the simulated instruction sampler before it reads the threads,
// on the thread of the provider that calls it.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "InteractiveScript.h"
#include "MemoryModel.h"
#include "ProcessTable.h"
#include "ThreadSafety.h"
#include "sdk/SdkControl.h"

namespace sim {

class KernelModel {
public:
    // Boots at device time 0. `seed` (0: the defaults) varies the processes and the memory;
    // `minimumProcesses` pads the process table with dormant ones up to that count.
    KernelModel(sdk::FocusScript focus, InteractiveScript interactive, uint64_t seed,
                size_t minimumProcesses);

    // Steps up to the last step end at or before `deviceNs`; earlier times are ignored.
    void advanceTo(int64_t deviceNs) EXCLUDES(mutex_);

    // The threads of the running processes as the instruction sampler sees them now.
    std::vector<sdk::HeadsetThread> threads() const EXCLUDES(mutex_);

    // Calls `read` with the state as of the last step end (the device time it reached).
    void read(const std::function<void(const ProcessTable&, const MemoryModel&, int64_t atNs)>& read)
            const EXCLUDES(mutex_);

private:
    // The end of the step that starts at `fromNs`: the next whole minute or script change.
    int64_t stepEndAfter(int64_t fromNs) const;
    void stepLocked(int64_t endNs) REQUIRES(mutex_);

    const sdk::FocusScript focus_;
    const InteractiveScript interactive_;
    mutable threadsafety::Mutex mutex_;
    ProcessTable table_ GUARDED_BY(mutex_);
    MemoryModel memory_ GUARDED_BY(mutex_);
    int64_t nowNs_ GUARDED_BY(mutex_) = 0;
};

}  // namespace sim
