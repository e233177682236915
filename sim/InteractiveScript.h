// The headset's interactive (worn and in use) state over device time, as a cyclic script.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

// A cyclic on/off script for the headset's interactive (worn and in use) state, e.g.
// "40m on, 20m off": interactive for the first 40 minutes of every hour since boot.
class InteractiveScript {
public:
    struct Phase {
        int64_t lengthNs;
        bool interactive;
    };

    // `phases` must not be empty and every length must be positive.
    explicit InteractiveScript(std::vector<Phase> phases);
    // "40m on, 20m off": interactive for the first 40 minutes of every hour.
    static InteractiveScript defaults();

    bool at(int64_t deviceNs) const;
    // First instant after `deviceNs` at which the state changes, if it ever does.
    std::optional<int64_t> nextChangeAfter(int64_t deviceNs) const;
    const std::vector<Phase>& phases() const { return phases_; }

private:
    std::vector<Phase> phases_;
    int64_t cycleNs_ = 0;
};

}  // namespace sim
