// SystemStateStats: packs the headset's interactive (don) state, sampled once per tick from the
// host's PowerManager, into batches of `statesPerAggregate` one-bit samples.
//
// Every statesPerAggregate-th sample completes a batch and returns
// ("SystemStateStats", "AggregatedDonStates"); until the next sample starts a new batch,
// getDonStates() returns the batch packed into words and getEventStartTime() its start time.
// snapshot() reports (and clears) whether a batch has completed since the last snapshot.
//
// Host obligations: acquireResources() (or setPowerManager()) before the first sample;
// statesPerAggregate must not be 0; calls are not synchronised.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Provider.h"
#include "vistrelcore/PowerManager.h"

namespace Vistrel {

class SystemStateStats : public Provider {
public:
    // bitsPerState: width of one state in the packed words; statesPerAggregate: samples per
    // batch; samplePeriodMs: the period sampleRate() reports.
    SystemStateStats(uint32_t bitsPerState, int32_t statesPerAggregate, int64_t samplePeriodMs);
    ~SystemStateStats() override;

    const char* name() const override;
    // Installs a default PowerManager through setPowerManager(); router and clock are unused.
    bool acquireResources(NotificationRouter router, IClockReader& clock) override;
    // With force, samples first (the notification is dropped); returns and clears the
    // "batch completed" flag.
    bool snapshot(IClockReader& clock, bool force) override;
    std::optional<Notification> sample(IClockReader& clock) override;
    SamplePeriod sampleRate() const override;

    // Takes ownership of `powerManager` (leaving the argument empty) and destroys the previous one.
    virtual void setPowerManager(std::unique_ptr<PowerManager>&& powerManager);

    // The current batch, bitsPerState bits per state; only the low 32 bits of each word are
    // used. Each state i sets slot i mod (32 / bitsPerState) of the word being filled, and a word
    // closes once 32 or more bits were counted into it, so widths that do not divide 32 make
    // the last state of a word share slot 0 with the word's first. Logs every word.
    std::vector<int64_t> getDonStates();
    // Start of the current batch: the clock's elapsedNs() at its first sample, in milliseconds.
    int64_t getEventStartTime();

private:
    std::unique_ptr<PowerManager> powerManager;
    uint32_t bitsPerState;
    int32_t statesPerAggregate;
    int64_t samplePeriodMs;
    int32_t sampleCounter = 0;
    bool aggregateReady = false;
    std::vector<uint8_t> states;
    int64_t eventStartNs = 0;
};

}  // namespace Vistrel
