// A host clock for tests: three independent readings that tests set directly.
#pragma once

#include "Provider.h"

namespace testing_support {

class FakeClock : public Vistrel::IClockReader {
public:
    int64_t elapsedNs() override { return elapsed; }
    int64_t readTimestamp() override { return timestamp; }
    int64_t nowNs() override { return now; }

    // Moves all three readings forward together.
    void advanceNs(int64_t ns) {
        elapsed += ns;
        now += ns;
        timestamp += ns / 1000000;
    }

    int64_t elapsed = 0;
    int64_t timestamp = 0;
    int64_t now = 0;
};

}  // namespace testing_support
