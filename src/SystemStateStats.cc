#include "SystemStateStats.h"

#include "ProviderSupport.h"
#include "Timing.h"

namespace Vistrel {

SystemStateStats::SystemStateStats(uint32_t bitsPerState, int32_t statesPerAggregate,
                                   int64_t samplePeriodMs)
    : bitsPerState(bitsPerState),
      statesPerAggregate(statesPerAggregate),
      samplePeriodMs(samplePeriodMs) {}

SystemStateStats::~SystemStateStats() = default;

const char* SystemStateStats::name() const {
    return "SystemStateStats";
}

SamplePeriod SystemStateStats::sampleRate() const {
    return std::chrono::milliseconds(samplePeriodMs);
}

bool SystemStateStats::acquireResources(NotificationRouter, IClockReader&) {
    setPowerManager(std::make_unique<PowerManager>());
    return true;
}

void SystemStateStats::setPowerManager(std::unique_ptr<PowerManager>&& manager) {
    powerManager = std::move(manager);
}

std::optional<Notification> SystemStateStats::sample(IClockReader& clock) {
    if (sampleCounter == 0) {
        eventStartNs = clock.elapsedNs();
        states.clear();
    }
    states.push_back(powerManager->getIsInteractive() & 1);
    // (counter + N + 1) mod N with 32-bit wrap-around, as the device's arithmetic does it.
    const auto next = static_cast<int32_t>(static_cast<uint32_t>(sampleCounter) +
                                           static_cast<uint32_t>(statesPerAggregate) + 1u);
    sampleCounter = next % statesPerAggregate;
    aggregateReady = sampleCounter == 0;
    if (!aggregateReady) return std::nullopt;
    return Notification{"SystemStateStats", "AggregatedDonStates"};
}

bool SystemStateStats::snapshot(IClockReader& clock, bool force) {
    if (force) sample(clock);
    const bool ready = aggregateReady;
    aggregateReady = false;
    return ready;
}

std::vector<int64_t> SystemStateStats::getDonStates() {
    std::vector<int64_t> words;
    const uint32_t width = bitsPerState;
    const uint32_t slotsPerWord = width == 0 ? 0 : 32 / width;
    const uint32_t mask = ~(UINT32_C(0xffffffff) << (width & 31));
    uint32_t word = 0;
    uint32_t usedBits = 0;
    for (size_t i = 0; i < states.size(); ++i) {
        const auto slot = static_cast<uint32_t>(slotsPerWord == 0 ? i : i % slotsPerWord);
        if (states[i] != 0) word |= mask << ((width * slot) & 31);
        usedBits += width;
        if (usedBits >= 32) {
            words.push_back(static_cast<int64_t>(word));
            word = 0;
            usedBits = 0;
        }
    }
    if (usedBits != 0) words.push_back(static_cast<int64_t>(word));
    for (const int64_t w : words) {
        logInfo("SystemStateStats::getDonStates: %lx", static_cast<unsigned long>(w));
    }
    return words;
}

int64_t SystemStateStats::getEventStartTime() {
    return eventStartNs / kNsPerMs;
}

}  // namespace Vistrel
