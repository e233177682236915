#include "SystemStateStats.h"

#include <gtest/gtest.h>

#include "FakeClock.h"
#include "LogCapture.h"

namespace {

using logcapture::info;
using testing_support::FakeClock;
using Vistrel::SystemStateStats;

// A power manager that answers a scripted sequence, over and over.
class ScriptedPowerManager : public Vistrel::PowerManager {
public:
    explicit ScriptedPowerManager(std::vector<bool> answers) : answers_(std::move(answers)) {}
    bool getIsInteractive() override { return answers_[next_++ % answers_.size()]; }

private:
    std::vector<bool> answers_;
    size_t next_ = 0;
};

// Samples `states` in order and returns the packed words of the resulting batch.
std::vector<int64_t> pack(uint32_t bits, const std::vector<bool>& states) {
    SystemStateStats stats(bits, static_cast<int32_t>(states.size()), 1000);
    stats.setPowerManager(std::make_unique<ScriptedPowerManager>(states));
    FakeClock clock;
    for (size_t i = 0; i < states.size(); ++i) stats.sample(clock);
    return stats.getDonStates();
}

std::vector<bool> repeat(bool value, size_t n) {
    return std::vector<bool>(n, value);
}

std::vector<bool> concat(std::vector<bool> a, const std::vector<bool>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(SystemStateStatsPacking, StatesArePackedIntoWordsOfTheWidthModulo32) {
    using Words = std::vector<int64_t>;
    EXPECT_EQ(pack(8, {1, 0, 1, 1}), Words{0xffff00ff});
    EXPECT_EQ(pack(1, repeat(true, 40)), (Words{0xffffffff, 0xff}));
    EXPECT_EQ(pack(1, concat(repeat(false, 32), {1})), (Words{0, 1}));
    EXPECT_EQ(pack(2, {0, 1, 0, 1}), Words{0xcc});
    EXPECT_EQ(pack(16, {1, 1, 1}), (Words{0xffffffff, 0xffff}));
    // b = 3: ten slots per word, but the word closes only at 33 bits, so the 11th state lands in
    // slot 0 of the same word and the 12th starts the next word in slot 1.
    EXPECT_EQ(pack(3, concat(repeat(false, 10), {1, 0, 1})), (Words{0x7, 0x1c0}));
    EXPECT_EQ(pack(3, repeat(true, 12)), (Words{0x3fffffff, 0x38}));
    // b = 5: six slots, a word closes after seven states (35 bits).
    EXPECT_EQ(pack(5, concat(repeat(false, 6), {1})), Words{0x1f});
    EXPECT_EQ(pack(32, {1, 1}), (Words{0, 0})) << "an empty mask";
    EXPECT_EQ(pack(33, {1, 1}), (Words{1, 2}));
    EXPECT_TRUE(pack(0, {1, 1, 1}).empty()) << "width 0 never closes a word";
}

TEST(SystemStateStatsPacking, EachWordIsLoggedAtInfo) {
    logcapture::clear();
    pack(1, repeat(true, 40));
    EXPECT_EQ(logcapture::entries(),
              (std::vector<logcapture::Entry>{info("SystemStateStats::getDonStates: ffffffff"),
                                              info("SystemStateStats::getDonStates: ff")}));

    SystemStateStats empty(1, 4, 1000);
    logcapture::clear();
    EXPECT_TRUE(empty.getDonStates().empty());
    EXPECT_TRUE(logcapture::entries().empty());
}

struct SystemStateStatsBatchOfThree : testing::Test {
    void SetUp() override {
        stats.setPowerManager(
                std::make_unique<ScriptedPowerManager>(std::vector<bool>{1, 0, 1, 0, 0, 1}));
    }
    SystemStateStats stats{1, 3, 60000};
    FakeClock clock;
};

TEST_F(SystemStateStatsBatchOfThree, EveryThirdSampleCompletesABatchAndTheNextStartsANewOne) {
    clock.elapsed = 1999999;
    EXPECT_FALSE(stats.sample(clock));
    clock.elapsed = 5000000000;
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_EQ(testing_support::textOf(stats.sample(clock)), "SystemStateStats/AggregatedDonStates");
    EXPECT_EQ(stats.getEventStartTime(), 1) << "start of the batch, 1999999 ns truncated to ms";
    EXPECT_EQ(stats.getDonStates(), (std::vector<int64_t>{0b101}));

    clock.elapsed = 7000000000;
    EXPECT_FALSE(stats.sample(clock));  // the next batch starts and replaces the states
    EXPECT_EQ(stats.getEventStartTime(), 7000);
    EXPECT_EQ(stats.getDonStates(), (std::vector<int64_t>{0}));
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_TRUE(stats.sample(clock));
    EXPECT_EQ(stats.getDonStates(), (std::vector<int64_t>{0b100}));
}

TEST(SystemStateStatsBatches, LargeBatchCounterWrapsLikeThe32BitFormula) {
    // (counter + N + 1) mod N in wrapping 32-bit arithmetic: for N = INT32_MAX the first step
    // wraps to INT32_MIN, leaving -1, and the second lands on 0, so the batch closes early.
    // The point is the device's result without signed-overflow undefined behaviour.
    SystemStateStats stats(1, INT32_MAX, 1000);
    stats.setPowerManager(std::make_unique<ScriptedPowerManager>(std::vector<bool>{1}));
    FakeClock clock;
    EXPECT_FALSE(stats.sample(clock));
    EXPECT_TRUE(stats.sample(clock));
}

TEST_F(SystemStateStatsBatchOfThree, SnapshotConsumesTheReadyFlagAndTheNextSampleClearsIt) {
    EXPECT_FALSE(stats.snapshot(clock, false));
    stats.sample(clock);
    stats.sample(clock);
    EXPECT_FALSE(stats.snapshot(clock, false));
    stats.sample(clock);
    EXPECT_TRUE(stats.snapshot(clock, false));
    EXPECT_FALSE(stats.snapshot(clock, false)) << "a second snapshot without a new batch";
    for (int i = 0; i < 3; ++i) stats.sample(clock);  // a batch nobody snapshots
    stats.sample(clock);  // starts the next one: the flag is cleared again
    EXPECT_FALSE(stats.snapshot(clock, false));
}

TEST(SystemStateStatsSnapshot, ForcedSnapshotSamplesThroughTheVirtualInterface) {
    testing_support::SampleCounting<SystemStateStats> stats(1, 2, 1000);
    stats.setPowerManager(std::make_unique<ScriptedPowerManager>(std::vector<bool>{1}));
    FakeClock clock;
    stats.sample(clock);
    EXPECT_TRUE(stats.snapshot(clock, true)) << "its own sample completed the batch";
    EXPECT_EQ(stats.samples, 2);
    EXPECT_FALSE(stats.snapshot(clock, true)) << "this forced sample starts a new batch";
    EXPECT_EQ(stats.getDonStates(), (std::vector<int64_t>{1}));
    EXPECT_FALSE(stats.snapshot(clock, false));
    EXPECT_EQ(stats.samples, 3);
}

TEST(SystemStateStatsPowerManager, AcquireInstallsADefaultThroughTheVirtualSlot) {
    struct Observed : SystemStateStats {
        using SystemStateStats::SystemStateStats;
        void setPowerManager(std::unique_ptr<Vistrel::PowerManager>&& pm) override {
            seen = pm != nullptr;
            SystemStateStats::setPowerManager(std::move(pm));
        }
        bool seen = false;
    } stats(1, 1, 1000);
    struct Counted : Vistrel::PowerManager {
        explicit Counted(int& count) : destroyed(count) {}
        ~Counted() override { ++destroyed; }
        int& destroyed;
    };
    int destroyed = 0;
    stats.setPowerManager(std::make_unique<Counted>(destroyed));
    FakeClock clock;
    EXPECT_TRUE(stats.acquireResources(nullptr, clock)) << "the router is never called";
    EXPECT_TRUE(stats.seen);
    EXPECT_EQ(destroyed, 1) << "the manager it replaces";
    EXPECT_TRUE(stats.sample(clock)) << "the default manager answers";
}

}  // namespace
