// A host clock for tests (three independent readings that tests set directly), a stepping
// variant, a provider wrapper that counts its samples, and the text of a notification.
#pragma once

#include <string>
#include <utility>

#include "Provider.h"

namespace testing_support {

class FakeClock : public Vistrel::IClockReader {
public:
    int64_t elapsedNs() override { return elapsed; }
    int64_t readTimestamp() override { return timestamp; }
    int64_t nowNs() override { return now; }

    int64_t elapsed = 0;
    int64_t timestamp = 0;
    int64_t now = 0;
};

// A FakeClock whose nowNs() moves on by `step` after every reading, for code that must take a
// second, fresh reading.
class SteppingClock : public FakeClock {
public:
    int64_t nowNs() override { return std::exchange(now, now + step); }
    int64_t step = 0;
};

// A provider whose sample() counts its calls, to see that a forced snapshot samples through the
// virtual slot.
template <typename P>
struct SampleCounting : P {
    using P::P;
    std::optional<Vistrel::Notification> sample(Vistrel::IClockReader& clock) override {
        ++samples;
        return P::sample(clock);
    }
    int samples = 0;
};

// "name/detail" of a notification, "" for none.
inline std::string textOf(const std::optional<Vistrel::Notification>& n) {
    return n ? n->name + "/" + n->detail : "";
}

}  // namespace testing_support
