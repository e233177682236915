// The SDK boundary types (ownership through release functions) and the binary layout of the SDK
// interfaces that modules built elsewhere rely on.
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "VrFocusProviderStats.h"
#include "VtableSlot.h"
#include "platkit/focus/IVrFocusManager.h"
#include "platkit/instsamp/IInstructionSampler.h"

namespace {

using Platkit::Array;
using Platkit::String;
using testing_support::slotOf;

// Release calls seen by the recording release functions below, in order.
std::vector<std::string> g_released;

void recordText(char* data, uint64_t length, void* extra) {
    g_released.push_back(std::string(data, length) + (extra != nullptr ? "+extra" : ""));
    free(data);
}

String recordedText(const char* text, void* extra = nullptr) {
    return String(strdup(text), strlen(text), extra, &recordText);
}

TEST(PlatkitString, CopiesAreDeepAndEachReleasesItsOwnBufferOnce) {
    String original("headset");
    EXPECT_EQ(original.length, 7u);
    EXPECT_EQ(original.release, &String::freeStr);
    EXPECT_EQ(original.extra, nullptr);
    String copy = original;
    EXPECT_NE(copy.data, original.data);
    EXPECT_STREQ(copy.data, "headset");

    int token = 0;
    String recorded = recordedText("abc", &token);
    String copyOfRecorded = recorded;  // the copy is the C allocator's, not the original's
    EXPECT_EQ(copyOfRecorded.release, &String::freeStr);
    recorded = String("replacement");  // replacing releases the old text once
    EXPECT_EQ(g_released, std::vector<std::string>{"abc+extra"});
    String moved = std::move(copyOfRecorded);
    EXPECT_EQ(copyOfRecorded.release, nullptr);
}

TEST(PlatkitArray, StringsAreReleasedLastFirstThenTheVectorIsFreed) {
    std::vector<String> texts;
    texts.push_back(recordedText("first"));
    texts.push_back(recordedText("second"));
    texts.push_back(recordedText("third"));
    {
        Array<String> array(std::move(texts));
        EXPECT_EQ(array.size(), 3u);
        EXPECT_EQ(array.release, &Array<String>::deleteExtra);
        EXPECT_STREQ(array[1].data, "second");
        EXPECT_TRUE(g_released.empty());
    }
    EXPECT_EQ(g_released, (std::vector<std::string>{"third", "second", "first"}));
}

struct ArrayRelease {
    int calls = 0;
    int32_t* data = nullptr;
    uint64_t count = 0;
    void* extra = nullptr;
};
ArrayRelease g_arrayRelease;

void recordArray(int32_t* data, uint64_t count, void* extra) {
    ++g_arrayRelease.calls;
    g_arrayRelease = {g_arrayRelease.calls, data, count, extra};
}

TEST(PlatkitArray, DestroyingOrReplacingReleasesOnceWithTheStoredFields) {
    int32_t ids[] = {4, 5};
    int owner = 0;
    {
        Array<int32_t> array(ids, 2, &owner, &recordArray);
        Array<int32_t> taken = std::move(array);  // moving hands the duty on, nothing released
        EXPECT_EQ(g_arrayRelease.calls, 0);
        taken = Array<int32_t>(std::vector<int32_t>{7});
        EXPECT_EQ(g_arrayRelease.calls, 1);
        EXPECT_EQ(g_arrayRelease.data, ids);
        EXPECT_EQ(g_arrayRelease.count, 2u);
        EXPECT_EQ(g_arrayRelease.extra, &owner);
        EXPECT_EQ(taken[0], 7);
    }
    EXPECT_EQ(g_arrayRelease.calls, 1) << "the vector-backed array has its own release function";

    {
        Array<int32_t> faulty(nullptr, 5, nullptr, &recordArray);
        EXPECT_EQ(faulty.size(), 0u);
        EXPECT_EQ(faulty.begin(), faulty.end()) << "no data: nothing to read, whatever the count";
    }
    EXPECT_EQ(g_arrayRelease.count, 5u) << "released with the count as stored";
}

// Modules compiled elsewhere call through these slots and read these offsets.
TEST(PlatkitInterfaces, VirtualOperationsKeepTheirSlots) {
    using Platkit::Focus::v5::ITopActivityListener;
    using Platkit::Focus::v5::IVrFocusManager;
    using Platkit::InstructionSampler::v4::IInstructionSampler;
    EXPECT_EQ(slotOf(&IVrFocusManager::registerTopActivityListener), 7);
    EXPECT_EQ(slotOf(&IVrFocusManager::unregisterTopActivityListener), 8);
    EXPECT_EQ(slotOf(&IVrFocusManager::getForegroundApps), 11);
    EXPECT_EQ(slotOf(&ITopActivityListener::onTopActivityChanged), 0);
    EXPECT_EQ(slotOf(&Vistrel::VrTopActivityListener::onTopActivityChanged), 0);
    EXPECT_EQ(slotOf(&IInstructionSampler::beginSession), 2);
    EXPECT_EQ(slotOf(&IInstructionSampler::readProfileBuffer), 3);
    EXPECT_EQ(slotOf(&IInstructionSampler::getThreadInfo), 4);
    EXPECT_EQ(slotOf(&IInstructionSampler::endSession), 5);
}

using Platkit::InstructionSampler::v1::SampleConfiguration;
using Platkit::InstructionSampler::v1::ThreadInfo;
static_assert(offsetof(String, data) == 0 && offsetof(String, length) == 8 &&
              offsetof(String, extra) == 16 && offsetof(String, release) == 24);
static_assert(offsetof(Array<int32_t>, data) == 0 && offsetof(Array<int32_t>, count) == 8 &&
              offsetof(Array<int32_t>, extra) == 16 && offsetof(Array<int32_t>, release) == 24);
static_assert(offsetof(ThreadInfo, tid) == 0 && offsetof(ThreadInfo, tgid) == 4 &&
              offsetof(ThreadInfo, name) == 8);
static_assert(
        offsetof(SampleConfiguration, sampleInfos) < offsetof(SampleConfiguration, bufferNames) &&
        offsetof(SampleConfiguration, bufferNames) < offsetof(SampleConfiguration, sampleKernel) &&
        offsetof(SampleConfiguration, perThread) < offsetof(SampleConfiguration, samplingPeriodUs) &&
        offsetof(SampleConfiguration, samplingPeriodUs) < offsetof(SampleConfiguration, tracePath));

}  // namespace
