// CpuStats against the simulated instruction sampler module in scripted mode: every profile
// buffer is laid out by the profile-buffer writer from a plain description, and the module
// serves them in order (found through LD_LIBRARY_PATH, set by CTest). Each case runs in its own
// process, so the module-level state starts fresh.
#include "CpuStats.h"

#include <android/log.h>

#include <atomic>
#include <cfloat>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "FakeClock.h"
#include "LogCapture.h"
#include "ProfileBufferWriter.h"
#include "SdkControl.h"
#include "VtableSlot.h"
#include "hostplatform/Properties.h"

namespace {

using sim::sdk::NamedSection;
using sim::sdk::ProfileDescription;
using sim::sdk::Reading;
using Vistrel::CpuStats;

constexpr int64_t kSecondNs = 1000000000;

// Every reading in these tests has two CPUs.
ProfileDescription reading(uint64_t atSeconds, std::vector<sim::sdk::ThreadCounts> threads,
                           std::vector<NamedSection> sections = {}) {
    ProfileDescription d;
    d.cpuCount = 2;
    d.timestampUs = atSeconds * 1000000;
    d.threads = std::move(threads);
    d.sections = std::move(sections);
    return d;
}

NamedSection features(std::vector<sim::sdk::SectionEntry> entries, const char* name = "features") {
    return {name, std::move(entries)};
}

void serve(const std::vector<ProfileDescription>& readings) {
    std::vector<Reading> written;
    for (const auto& d : readings) written.push_back(sim::sdk::writeProfileBuffer(d));
    sim::sdk::setSamplerMode(sim::sdk::SamplerMode::Scripted);
    sim::sdk::setScriptedReadings(std::move(written));
}

size_t warnings(const std::string& text) {
    return logcapture::count(ANDROID_LOG_WARN, "Vistrel", text);
}

// A profile buffer over exactly `bytes` (a heap block of that size, so AddressSanitizer sees any
// read past its end), with the given cached fields.
struct OwnedBuffer {
    OwnedBuffer(const std::vector<uint8_t>& raw, uint32_t section, uint32_t table, uint32_t cpus)
        : bytes(new uint8_t[raw.size()]) {
        std::copy(raw.begin(), raw.end(), bytes.get());
        buffer.data = bytes.get();
        buffer.size = raw.size();
        buffer.namedSectionOffset = section;
        buffer.threadTableOffset = table;
        buffer.cpuCount = cpus;
    }
    explicit OwnedBuffer(const Reading& r)
        : OwnedBuffer(r.bytes, r.cachedSectionOffset, r.cachedThreadTableOffset, r.cachedCpuCount) {
    }
    std::unique_ptr<uint8_t[]> bytes;
    Vistrel::ProfileBuffer buffer;
};

class CpuStatsTest : public ::testing::Test {
protected:
    // Acquires at device time 0 on `first`, which gives the CPU count.
    void acquire(const ProfileDescription& first = reading(0, {})) {
        serve({first});
        ASSERT_TRUE(cpu.acquireResources([](auto&&...) {}, clock));
    }
    std::optional<Vistrel::Notification> sampleAt(double seconds) {
        clock.now = static_cast<int64_t>(seconds * kSecondNs);
        return cpu.sample(clock);
    }

    testing_support::FakeClock clock;
    CpuStats cpu;
};

TEST_F(CpuStatsTest, TheSessionIsConfiguredWithThePropertyPeriodOr2000) {
    // The host calls it through the slot after sampleRate().
    EXPECT_EQ(testing_support::slotOf(&CpuStats::getSamplingPeriodUs),
              testing_support::slotOf(&Vistrel::Provider::sampleRate) + 1);
    EXPECT_EQ(cpu.getSamplingPeriodUs(), 2000u);
    hostplatform::setProperty("vistrel_instruction_sampler_sampling_period_us", "750");
    EXPECT_EQ(cpu.getSamplingPeriodUs(), 750u);
    acquire();
    const auto sessions = sim::sdk::observations().sessionsBegun;
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0].sampleInfos, (std::vector<uint32_t>{4, 7, 6, 0}));
    EXPECT_EQ(sessions[0].bufferNames,
              (std::vector<std::string>{"feature-ids.100", "features.100"}));
    // Kernel samples, per thread, the property's period, no trace file.
    EXPECT_EQ(std::vector<uint64_t>({sessions[0].sampleKernel, sessions[0].perThread,
                                     sessions[0].samplingPeriodUs, sessions[0].tracePathLength}),
              std::vector<uint64_t>({1, 1, 750, 0}));
    EXPECT_EQ(Vistrel::numCpus_, 2) << "from the first buffer";
}

TEST_F(CpuStatsTest, APeriodOfZeroDisablesSamplingButKeepsTheSamplerUntilReleased) {
    hostplatform::setProperty("vistrel_instruction_sampler_sampling_period_us", "0");
    EXPECT_FALSE(cpu.acquireResources([](auto&&...) {}, clock));
    EXPECT_EQ(warnings("Instruction Sampling is disabled via sysprop."), 1u);
    EXPECT_TRUE(sim::sdk::observations().sessionsBegun.empty());
    ASSERT_TRUE(cpu.getIInstructionSampler());
    EXPECT_TRUE(cpu.releaseResources());
    EXPECT_EQ(sim::sdk::observations().destroyCalls.size(), 1u);
}

TEST_F(CpuStatsTest, AcquireFailuresAndCallsWithoutASampler) {
    sim::sdk::Hooks hooks;
    hooks.createReturnsNull = true;
    sim::sdk::setHooks(hooks);
    EXPECT_FALSE(cpu.acquireResources([](auto&&...) {}, clock));
    EXPECT_EQ(warnings("Failed to Create Instruction Sampler"), 1u);

    hooks = {};
    hooks.refuseSession = true;
    sim::sdk::setHooks(hooks);
    EXPECT_FALSE(cpu.acquireResources([](auto&&...) {}, clock));
    EXPECT_EQ(warnings("Failed to begin instruction sampling session."), 1u);
    EXPECT_FALSE(cpu.getIInstructionSampler()) << "the sampler is dropped at once";
    EXPECT_EQ(sim::sdk::observations().destroyCalls.size(), 1u);

    sim::sdk::setHooks({});
    sim::sdk::setScriptedReadings({});  // the session begins, but yields no buffer
    sim::sdk::setSamplerMode(sim::sdk::SamplerMode::Scripted);
    EXPECT_FALSE(cpu.acquireResources([](auto&&...) {}, clock));
    EXPECT_EQ(warnings("No profile buffer generated"), 1u);
    EXPECT_FALSE(cpu.sample(clock).has_value());
    EXPECT_EQ(warnings("CpuStats Sampling Failed."), 1u);
    EXPECT_EQ(sim::sdk::observations().sessionsEnded, 0) << "the session stays begun";

    EXPECT_TRUE(cpu.releaseResources());
    EXPECT_EQ(sim::sdk::observations().sessionsEnded, 1);
    EXPECT_FALSE(cpu.releaseResources());
    EXPECT_EQ(warnings("No instruction sampler available"), 1u);
    EXPECT_FALSE(cpu.sample(clock).has_value());
    EXPECT_EQ(warnings("CpuStats Sampling Failed."), 2u);
    EXPECT_FALSE(cpu.snapshot(clock, false));
    EXPECT_EQ(warnings("CpuStats snapshot Failed."), 1u);
}

TEST_F(CpuStatsTest, HeartbeatCycleOfFiveMinutesWithABurstInTheLastMinute) {
    acquire();
    std::vector<ProfileDescription> readings(20, reading(0, {}));
    serve(readings);
    const auto rateMs = [&] { return cpu.sampleRate()->count(); };
    EXPECT_FALSE(sampleAt(239.9).has_value());
    EXPECT_FALSE(Vistrel::inLastMinute_);
    EXPECT_EQ(rateMs(), 240000);
    EXPECT_FALSE(sampleAt(240.0).has_value());
    EXPECT_TRUE(Vistrel::inLastMinute_) << "exactly 240 s is the last minute";
    EXPECT_EQ(rateMs(), 10000);
    for (double at = 250.0; at < 300.0; at += 10.0) EXPECT_FALSE(sampleAt(at).has_value());
    EXPECT_FALSE(sampleAt(299.9).has_value());
    EXPECT_TRUE(Vistrel::inLastMinute_);

    testing_support::SteppingClock stepping;
    stepping.now = 300 * kSecondNs;
    stepping.step = 7;
    EXPECT_EQ(testing_support::textOf(cpu.sample(stepping)),
              "ProcessCpuHeartbeat/300.000000 seconds");
    EXPECT_FALSE(Vistrel::inLastMinute_);
    EXPECT_EQ(rateMs(), 240000);
    {
        threadsafety::MutexLock lock(cpu.heartbeatMutex);
        EXPECT_EQ(cpu.lastHeartbeatNs, 300 * kSecondNs + 7) << "a second, fresh clock reading";
    }
    // acquire, then 239.9, 240, 250..290 (five), 299.9 and 300
    EXPECT_EQ(sim::sdk::observations().profileBufferReads, 10);
    EXPECT_FALSE(sampleAt(539.0).has_value());
    EXPECT_FALSE(Vistrel::inLastMinute_) << "the next period counts from the heartbeat";
}

TEST_F(CpuStatsTest, SnapshotReducesTheIntervalsAfterTheFlagThenStartsOver) {
    acquire();
    const auto features = [](uint64_t render, uint64_t idle) {
        return std::vector<NamedSection>{
                {"features.100", {{"render", {999, 999}}}},  // a decoy: not "features"
                {"features", {{"render", {render, 20}}, {"idle", {3, 3}}}},
                {"feature-ids", {{"42", {render * 2, 0}}}}};
    };
    serve({reading(230, {{7, {90, 40}}}, features(1, 0)),
           reading(240, {{7, {100, 50}}, {8, {1, 1}}, {10, {5, 0}}, {11, {50, 0}}}, features(10, 0)),
           reading(250, {{7, {160, 50}}, {8, {1, 1}}, {10, {5, 0}}, {11, {80, 0}}}, features(15, 0)),
           reading(260, {{7, {200, 80}}, {8, {1, 1}}, {9, {5, 5}}, {10, {9, 0}}, {11, {90, 0}}},
                   features(15, 0))});
    sim::sdk::setScriptedThreadNames({{7, "render"}, {8, "idle"}, {9, "late"}, {11, "render"}});
    for (double at : {230.0, 240.0, 250.0, 260.0}) sampleAt(at);
    // Threads 7 and 11 are both "render": the one the snapshot meets first is published.
    int32_t firstRender = 0;
    for (const auto& [tid, intervals] : *Vistrel::tidToInfoMap) {
        if (firstRender == 0 && (tid == 7 || tid == 11)) firstRender = tid;
    }

    ASSERT_TRUE(cpu.snapshot(clock, false));
    ASSERT_TRUE(cpu.processStats.has_value());
    const auto& processes = *cpu.processStats;
    EXPECT_EQ(processes.count("idle"), 0u) << "no samples in the last minute";
    EXPECT_EQ(processes.size(), 2u) << "thread 10 has no name, so it is never published";
    // Thread 7 over two 10 s intervals: {60, 0} then {40, 30}.
    const Vistrel::ProcessCpuStats& render = processes.at("render");
    if (firstRender == 7) {
        EXPECT_EQ(render.total, 130.0);
        EXPECT_DOUBLE_EQ(render.meanRate, 130.0 / 20000);
        EXPECT_DOUBLE_EQ(render.maxRate, 70.0 / 10000);
        EXPECT_DOUBLE_EQ(render.minRate, 60.0 / 10000);
        EXPECT_DOUBLE_EQ(render.totalTimeMs, 20000);
        EXPECT_EQ(render.perCpuMeanRate, (std::vector<double>{100.0 / 20000, 30.0 / 20000}));
        EXPECT_EQ(render.perCpuMaxRate, (std::vector<double>{60.0 / 10000, 30.0 / 10000}));
        EXPECT_EQ(render.perCpuMinRate, (std::vector<double>{40.0 / 10000, 0.0}));
    } else {
        // Thread 11 met first: its own intervals {30, 0} and {10, 0}, never summed with 7's.
        EXPECT_EQ(firstRender, 11);
        EXPECT_EQ(render.total, 40.0);
    }
    // Thread 9 appeared in the last interval: credited with all its counts.
    EXPECT_EQ(processes.at("late").total, 10.0);
    EXPECT_EQ(processes.at("late").perCpuMeanRate, (std::vector<double>{5.0 / 10000, 5.0 / 10000}));

    ASSERT_TRUE(cpu.featureStats.has_value());
    EXPECT_EQ(cpu.featureStats->size(), 2u);
    // "render" deltas: 5 then 0, over 10 s each.
    EXPECT_EQ(cpu.featureStats->at("render"),
              (Vistrel::FeatureCpuStats{5.0 / 20000, 5.0 / 10000, 0, 20000, 5.0 / 10000,
                                        5.0 / 10000, 10000}));
    EXPECT_EQ(cpu.featureStats->at("idle"), (Vistrel::FeatureCpuStats{0, 0, 0, 20000, 0, DBL_MAX, 0}))
            << "all-zero deltas";
    EXPECT_EQ(cpu.featureIdStats->at("42")[0], 10.0 / 20000);

    // Everything accumulated was consumed: a new snapshot has no readings.
    EXPECT_TRUE(cpu.snapshot(clock, true));
    EXPECT_EQ(warnings("CpuStats: unable to force sample in snapshot"), 1u);
    EXPECT_FALSE(cpu.featureStats || cpu.featureIdStats || cpu.processStats);
    EXPECT_EQ(warnings("Missing one of the needed buffers for snapshot"), 2u);
    EXPECT_EQ(warnings("Missing one of CPU buffers needed for snapshot"), 1u);
    EXPECT_EQ(sim::sdk::observations().profileBufferReads, 5) << "a forced snapshot never samples";
}

TEST_F(CpuStatsTest, ASnapshotBeforeAnySampleIsDisengagedAndNamesAreReleased) {
    acquire();
    EXPECT_TRUE(cpu.snapshot(clock, false));
    EXPECT_FALSE(cpu.featureStats || cpu.featureIdStats || cpu.processStats);
    EXPECT_EQ(logcapture::entries().size(), 4u) << "the loader's line and the three missing ones";
    serve({reading(1, {{1, {1, 1}}, {2, {2, 2}}}), reading(2, {{1, {1, 1}}})});
    sim::sdk::setScriptedThreadNames({{1, "a"}, {2, "b"}});
    sampleAt(1);
    ASSERT_EQ(Vistrel::tidMap->size(), 2u);
    EXPECT_STREQ(Vistrel::tidMap->at(2).name.data, "b");
    EXPECT_NE(Vistrel::tidMap->at(2).name.release, nullptr);
    sampleAt(2);
    EXPECT_EQ(Vistrel::tidMap->count(2), 0u) << "rebuilt from the latest reading only";
    EXPECT_TRUE(cpu.releaseResources());
    EXPECT_EQ(sim::sdk::observations().outstandingAllocations, 0)
            << "every id array and name went back to the module";
}

// Buffers the SDK's own fields describe in other ways, and malformed ones.
TEST_F(CpuStatsTest, HeaderFieldsThresholdsAndMalformedBuffers) {
    acquire();
    sim::sdk::setScriptedThreadNames({{1, "t"}});
    const auto withFeatures = [](uint64_t at, bool cached) {
        ProfileDescription d = reading(at, {{1, {at, at}}}, {features({{"f", {at, 1}}})});
        d.cacheHeader = cached;
        return sim::sdk::writeProfileBuffer(d);
    };
    // Cached fields of 0xFFFFFFFF: offsets and CPU count come from the header.
    const Reading uncached = withFeatures(5, false);
    ASSERT_EQ(uncached.cachedThreadTableOffset, 0xFFFFFFFFu);
    OwnedBuffer fromHeader(uncached);
    EXPECT_TRUE(cpu.processNamedFeatures(&fromHeader.buffer));
    EXPECT_TRUE(cpu.processCpuSample(&fromHeader.buffer));
    EXPECT_EQ(Vistrel::currentProcessSnapshot_->at(1), (std::vector<uint64_t>{5, 5}));
    EXPECT_EQ(Vistrel::currentNamedFeatureBuffer_->at("f"), (std::vector<uint64_t>{5, 1}));
    EXPECT_DOUBLE_EQ(Vistrel::currentProcessSnapshotTimestamp, 5.0);

    // A thread table base of 0 fails and leaves no previous reading for the next sample.
    OwnedBuffer noTable(uncached.bytes, 0xFFFFFFFF, 0, 0xFFFFFFFF);
    EXPECT_FALSE(cpu.processCpuSample(&noTable.buffer));
    OwnedBuffer good(withFeatures(6, true));
    EXPECT_TRUE(cpu.processCpuSample(&good.buffer));
    EXPECT_FALSE(Vistrel::previousProcessSnapshot_);

    // Only a section named "features.100": no match.
    OwnedBuffer decoy(sim::sdk::writeProfileBuffer(
            reading(7, {}, {features({{"f", {1, 1}}}, "features.100")})));
    EXPECT_FALSE(cpu.processNamedFeatures(&decoy.buffer));
    EXPECT_FALSE(Vistrel::currentNamedFeatureBuffer_);

    // Under 64 bytes, even when the cached offsets fit: here an empty "features" section at 20
    // and one thread record at 24, both inside the 63 bytes.
    std::vector<uint8_t> tiny(good.buffer.data, good.buffer.data + 63);
    const char kHead[16] = "features";
    std::copy(kHead, kHead + 16, tiny.begin() + 20);
    tiny[60] = 1;
    OwnedBuffer shortBuffer(tiny, 20, 8, 1);
    EXPECT_FALSE(cpu.processNamedFeatures(&shortBuffer.buffer));
    EXPECT_FALSE(cpu.processCpuSample(&shortBuffer.buffer));
    OwnedBuffer empty(std::vector<uint8_t>(1, 0), 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_FALSE(cpu.processFeatureIds(&empty.buffer));
    EXPECT_FALSE(cpu.processCpuSample(&empty.buffer));
}

// Where the buffer ends inside what its fields describe, the reads stop at the end (run under
// AddressSanitizer, any read past the end fails the test).
TEST_F(CpuStatsTest, ReadsStopAtTheEndOfTruncatedOrInconsistentBuffers) {
    acquire();
    const Reading full = sim::sdk::writeProfileBuffer(reading(
            3, {{1, {1, 2}}, {2, {3, 4}}, {3, {5, 6}}},
            {features({{"a", {1, 1}}, {"b", {2, 2}}}), features({{"0", {1, 1}}}, "feature-ids")}));
    // Cut inside the third thread record.
    const uint32_t third = sim::sdk::threadRecordOffset(2, 2);
    std::vector<uint8_t> cut(full.bytes.begin(), full.bytes.begin() + third + 10);
    OwnedBuffer truncated(cut, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_TRUE(cpu.processCpuSample(&truncated.buffer));
    EXPECT_EQ(Vistrel::currentProcessSnapshot_->size(), 2u);
    EXPECT_FALSE(cpu.processNamedFeatures(&truncated.buffer)) << "the first section is gone";

    // Cut inside the second entry of "features", then inside the head of "feature-ids".
    const uint32_t sections = full.cachedSectionOffset;
    for (uint32_t end : {sections + 16 + 48 + 10, sections + 16 + 2 * 48 + 8}) {
        std::vector<uint8_t> part(full.bytes.begin(), full.bytes.begin() + end);
        OwnedBuffer b(part, sections, full.cachedThreadTableOffset, 2);
        EXPECT_TRUE(cpu.processNamedFeatures(&b.buffer));
        EXPECT_EQ(Vistrel::currentNamedFeatureBuffer_->size(), end < sections + 112 ? 1u : 2u);
        EXPECT_FALSE(cpu.processFeatureIds(&b.buffer));
    }

    // More CPUs taken at acquire time than the buffer's records hold: the last record's counts
    // would run past the end, so it is left out.
    Vistrel::numCpus_ = 3;
    OwnedBuffer whole(full);
    EXPECT_TRUE(cpu.processCpuSample(&whole.buffer));
    EXPECT_EQ(Vistrel::currentProcessSnapshot_->count(3), 1u) << "sections follow the table";
    std::vector<uint8_t> tableOnly(full.bytes.begin(),
                                   full.bytes.begin() + full.cachedSectionOffset);
    OwnedBuffer noSections(tableOnly, 0xFFFFFFFF, full.cachedThreadTableOffset, 2);
    EXPECT_TRUE(cpu.processCpuSample(&noSections.buffer));
    EXPECT_EQ(Vistrel::currentProcessSnapshot_->count(3), 0u);
    // In bounds, the third count of record 2 is read from the next record's first 8 bytes:
    // its thread id 3 and the low half of its first count, 5.
    EXPECT_EQ(Vistrel::currentProcessSnapshot_->at(2),
              (std::vector<uint64_t>{3, 4, (uint64_t{5} << 32) | 3}));

    // An entry name without its NUL at the very end of the buffer.
    std::vector<uint8_t> unterminated(full.bytes.begin(), full.bytes.begin() + sections + 16 + 48);
    std::fill(unterminated.end() - 48, unterminated.end(), 'x');
    OwnedBuffer noNul(unterminated, sections, full.cachedThreadTableOffset, 2);
    EXPECT_TRUE(cpu.processNamedFeatures(&noNul.buffer));
    EXPECT_TRUE(Vistrel::currentNamedFeatureBuffer_->empty());
}

// A buffer listing no CPUs, read with 64 (records every 4 bytes) and 1000 (entries every 32):
// the overlapping copies stop at 16 times the buffer's size instead of growing with its square.
TEST_F(CpuStatsTest, OverlappingRecordsAndEntriesCopyAtMostSixteenTimesTheBuffer) {
    acquire();
    std::vector<uint8_t> table(64 + 4096, 0);
    const uint32_t manyRecords = 0xFFFFFFFF;
    memcpy(&table[56], &manyRecords, 4);
    for (uint32_t at = 64, tid = 1; at + 4 <= table.size(); at += 4, ++tid)
        memcpy(&table[at], &tid, 4);
    OwnedBuffer records(table, 0, 64, 0);
    Vistrel::numCpus_ = 64;
    EXPECT_TRUE(cpu.processCpuSample(&records.buffer));
    EXPECT_EQ(Vistrel::currentProcessSnapshot_->size(), 16 * table.size() / (8 * 64));
    Vistrel::numCpus_ = -1;  // a cached count of 0x80000000 or more, taken at acquire
    EXPECT_TRUE(cpu.processCpuSample(&records.buffer));
    EXPECT_TRUE(Vistrel::currentProcessSnapshot_->empty()) << "no record holds a negative count";

    std::vector<uint8_t> sections(64 + 16 + 255 * 32 + 8000, 0);
    sections[60] = 1;
    memcpy(&sections[64], "features", 8);
    sections[64 + 15] = 255;
    for (int i = 0; i < 255; ++i) sections[64 + 16 + 32 * i] = static_cast<uint8_t>('A' + i % 58);
    for (int i = 0; i < 255; ++i)
        sections[64 + 16 + 32 * i + 1] = static_cast<uint8_t>('A' + i / 58);
    OwnedBuffer entries(sections, 64, 0, 0);
    Vistrel::numCpus_ = 1000;
    EXPECT_TRUE(cpu.processNamedFeatures(&entries.buffer));
    EXPECT_EQ(Vistrel::currentNamedFeatureBuffer_->size(), 16 * sections.size() / (8 * 1000));
}

// A later acquire may report more CPUs than the readings and intervals kept from before it:
// those are read only as far as they go (run under AddressSanitizer).
TEST_F(CpuStatsTest, ACpuCountThatGrowsBetweenAcquiresNeverReadsPastOlderReadings) {
    acquire();
    sim::sdk::setScriptedThreadNames({{1, "t"}});
    serve({reading(240, {{1, {1, 1}}}, {features({{"f", {1, 1}}})}),
           reading(250, {{1, {2, 2}}}, {features({{"f", {2, 2}}})})});
    sampleAt(240);
    sampleAt(250);  // one interval of two CPUs
    ProfileDescription four = reading(260, {{1, {3, 3, 3, 3}}}, {features({{"f", {3, 3, 3, 3}}})});
    four.cpuCount = 4;
    serve({four, four});
    ASSERT_TRUE(cpu.acquireResources([](auto&&...) {}, clock));
    ASSERT_EQ(Vistrel::numCpus_, 4);
    Vistrel::inLastMinute_ = true;
    sampleAt(260);
    ASSERT_TRUE(cpu.snapshot(clock, false));
    // Interval 1: {1, 1} over 10 s; interval 2: {1, 1, 3, 3} against the two-CPU reading.
    EXPECT_EQ(cpu.processStats->at("t").total, 10.0);
    EXPECT_EQ(cpu.featureStats->at("f")[3], 20000.0);
}

TEST_F(CpuStatsTest, FeatureIntervalsWithoutPositiveLengthAndCreditsText) {
    acquire();
    Vistrel::currentNamedFeatureBuffer_ = std::make_unique<Vistrel::FeatureReading>();
    Vistrel::previousNamedFeatureBuffer_ = std::make_unique<Vistrel::FeatureReading>();
    (*Vistrel::featureToInfoMap)["still"] = {{5, 0.0}, {3, -10.0}};
    const auto stats = cpu.generateFeatureSnapshot();
    ASSERT_TRUE(stats.has_value());
    EXPECT_EQ(stats->at("still"), (Vistrel::FeatureCpuStats{0, 0, DBL_MAX, 0, 0, DBL_MAX, 0}));
    EXPECT_EQ(cpu.creditsToString({1, 2, 3}), "1 2 3 ");
    EXPECT_EQ(cpu.creditsToString({}), "");
}

// Snapshots from several threads (serialised by the module-level lock), then the last copies of
// the sampler, which outlive the release, dropped on several threads at once (run under
// ThreadSanitizer).
TEST_F(CpuStatsTest, ConcurrentSnapshotsAndSamplerCopiesReleasedOnOtherThreads) {
    acquire();
    std::vector<ProfileDescription> readings;
    for (uint64_t s = 240; s <= 300; s += 10) {
        readings.push_back(reading(s, {{1, {s, s}}}, {features({{"f", {s, 0}}})}));
    }
    serve(readings);
    sim::sdk::setScriptedThreadNames({{1, "t"}});
    for (double at = 240; at <= 290; at += 10) sampleAt(at);
    constexpr int kThreads = 4;
    std::atomic<int> published{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            CpuStats other;
            testing_support::FakeClock otherClock;
            EXPECT_TRUE(other.snapshot(otherClock, false));
            published += other.processStats && !other.processStats->empty();
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(published, 1) << "the first snapshot takes the intervals, the others find none";

    std::vector<std::shared_ptr<Vistrel::IInstructionSampler>> copies(kThreads,
                                                                      cpu.getIInstructionSampler());
    const void* sampler = copies[0].get();
    EXPECT_TRUE(cpu.releaseResources());
    EXPECT_EQ(sim::sdk::observations().sessionsEnded, 1);
    EXPECT_TRUE(sim::sdk::observations().destroyCalls.empty()) << "the copies keep it";
    EXPECT_FALSE(cpu.releaseResources());
    threads.clear();
    for (auto& copy : copies) threads.emplace_back([c = std::move(copy)]() mutable { c.reset(); });
    for (auto& t : threads) t.join();
    const auto destroyed = sim::sdk::observations().destroyCalls;
    ASSERT_EQ(destroyed.size(), 1u);
    EXPECT_EQ(destroyed[0].version, 4);
    EXPECT_EQ(destroyed[0].object, sampler);
}

}  // namespace
