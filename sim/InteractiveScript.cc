#include "InteractiveScript.h"

namespace sim {

InteractiveScript::InteractiveScript(std::vector<Phase> phases) : phases_(std::move(phases)) {
    for (const auto& p : phases_) cycleNs_ += p.lengthNs;
}

InteractiveScript InteractiveScript::defaults() {
    constexpr int64_t kMinuteNs = INT64_C(60000000000);
    return InteractiveScript({{40 * kMinuteNs, true}, {20 * kMinuteNs, false}});
}

bool InteractiveScript::at(int64_t deviceNs) const {
    int64_t offset = deviceNs % cycleNs_;
    if (offset < 0) offset += cycleNs_;
    for (const auto& p : phases_) {
        if (offset < p.lengthNs) return p.interactive;
        offset -= p.lengthNs;
    }
    return phases_.back().interactive;
}

std::optional<int64_t> InteractiveScript::nextChangeAfter(int64_t deviceNs) const {
    const bool now = at(deviceNs);
    bool anyDifferent = false;
    for (const auto& p : phases_) anyDifferent |= (p.interactive != now);
    if (!anyDifferent) return std::nullopt;
    // Walk phase boundaries from the start of the current cycle until the state flips.
    int64_t boundary = deviceNs - ((deviceNs % cycleNs_) + cycleNs_) % cycleNs_;
    for (;;) {
        for (const auto& p : phases_) {
            boundary += p.lengthNs;
            if (boundary > deviceNs && at(boundary) != now) return boundary;
        }
    }
}

}  // namespace sim
