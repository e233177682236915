// The SDK module loader against real module files. CTest registers this executable once per
// module directory (tests/CMakeLists.txt), with LD_LIBRARY_PATH pointing at it:
//   Loader*          the default modules        LoaderModuleMissing*  an empty directory
//   LoaderNoCreate*  create not exported        LoaderNoDestroy*      destroy not exported
//   LoaderNullCreate* create returns null
// Each case runs in its own process, so every case starts with nothing loaded.
#include <android/dlext.h>
#include <android/log.h>
#include <dlfcn.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "SdkControl.h"
#include "hostplatform/DlExt.h"
#include "platkit/Loader.h"
#include "platkit/focus/IVrFocusManager.h"
#include "platkit/instsamp/IInstructionSampler.h"

// The platform linker's exported-namespace look-up, which glibc lacks. Defined here (and exported
// from the executable) so the loader's namespace path can run; it answers only when a case
// switches it on, so the other cases take the plain dlopen path.
namespace {
std::atomic<bool> g_namespacesOn{false};
std::atomic<int> g_namespaceLookups{0};
int g_defaultNamespace;  // its address stands for the opaque namespace
}  // namespace

extern "C" android_namespace_t* __loader_android_get_exported_namespace(const char* name) {
    if (!g_namespacesOn) return nullptr;
    ++g_namespaceLookups;
    return std::string(name) == "default"
                   ? reinterpret_cast<android_namespace_t*>(&g_defaultNamespace)
                   : nullptr;
}

namespace {

using Platkit::Focus::v5::createVrFocusManagerPtr;
using Platkit::InstructionSampler::v4::createInstructionSamplerPtr;

const std::string kFocusModule = "libplatkit.halden.so";
const std::string kSamplerModule = "libinstsamp.halden.so";

size_t loading(const std::string& module) {
    return logcapture::count(ANDROID_LOG_DEBUG, "PlatkitLoader",
                             "Platkit loading module '" + module + "'");
}
size_t notFound(const std::string& module) {
    return logcapture::count(ANDROID_LOG_ERROR, "PlatkitLoader",
                             "Platkit module '" + module + "' not found");
}

TEST(Loader, EachModuleIsLoadedAndLoggedOnceHowEverOftenItsFactoryRuns) {
    auto first = createVrFocusManagerPtr();
    auto second = createVrFocusManagerPtr();
    auto sampler = createInstructionSamplerPtr();
    ASSERT_TRUE(first && second && sampler);
    EXPECT_NE(first.get(), second.get());
    first.reset();  // the destroy functions are looked up now
    second.reset();
    sampler.reset();
    EXPECT_EQ(loading(kFocusModule), 1u);
    EXPECT_EQ(loading(kSamplerModule), 1u);
    EXPECT_EQ(logcapture::entries().size(), 2u) << "nothing else is logged";
    EXPECT_EQ(sim::sdk::observations().createVersions, (std::vector<int64_t>{5, 5, 4}));
    EXPECT_TRUE(hostplatform::dlopenExtCalls().empty())
            << "without an exported namespace the module is opened with plain dlopen";
}

TEST(Loader, TheLastHandleReturnsTheObjectWithItsCreatingVersion) {
    auto manager = createVrFocusManagerPtr();
    auto sampler = createInstructionSamplerPtr();
    const void* managerObject = manager.get();
    const void* samplerObject = sampler.get();
    auto copy = manager;
    manager.reset();
    EXPECT_TRUE(sim::sdk::observations().destroyCalls.empty()) << "a copy still holds it";
    copy.reset();
    sampler.reset();
    const auto calls = sim::sdk::observations().destroyCalls;
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].function, "destroyVrFocusManager");
    EXPECT_EQ(calls[0].version, 5);
    EXPECT_EQ(calls[0].object, managerObject);
    EXPECT_EQ(calls[1].function, "destroyInstructionSampler");
    EXPECT_EQ(calls[1].version, 4);
    EXPECT_EQ(calls[1].object, samplerObject);
}

TEST(Loader, AnExportedDefaultNamespaceIsUsedThroughTheExtendedOpen) {
    g_namespacesOn = true;
    ASSERT_TRUE(createInstructionSamplerPtr());
    ASSERT_TRUE(createInstructionSamplerPtr());
    const auto calls = hostplatform::dlopenExtCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].filename, kSamplerModule);
    EXPECT_EQ(calls[0].mode, RTLD_LAZY);
    EXPECT_EQ(calls[0].flags, uint64_t{ANDROID_DLEXT_USE_NAMESPACE});
    EXPECT_EQ(calls[0].nameSpace, reinterpret_cast<android_namespace_t*>(&g_defaultNamespace));
    EXPECT_TRUE(calls[0].opened);
    EXPECT_EQ(g_namespaceLookups, 1);
    EXPECT_EQ(loading(kSamplerModule), 1u);
}

// Many threads making their first factory calls at once (run under ThreadSanitizer): one load
// per module, every call served.
TEST(LoaderConcurrency, FirstCallsFromManyThreadsLoadEachModuleOnce) {
    g_namespacesOn = true;
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::atomic<int> served{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            auto sampler = createInstructionSamplerPtr();
            auto manager = createVrFocusManagerPtr();
            served += (sampler != nullptr) + (manager != nullptr);
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(served, 2 * kThreads);
    EXPECT_EQ(loading(kFocusModule), 1u);
    EXPECT_EQ(loading(kSamplerModule), 1u);
    EXPECT_EQ(hostplatform::dlopenExtCalls().size(), 2u);
    EXPECT_EQ(sim::sdk::observations().destroyCalls.size(), static_cast<size_t>(2 * kThreads));
}

TEST(LoaderModuleMissing, IsLoggedOnceAndEveryFactoryCallReturnsAnEmptyHandle) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(createVrFocusManagerPtr());
        EXPECT_FALSE(createInstructionSamplerPtr());
    }
    EXPECT_EQ(loading(kFocusModule), 1u);
    EXPECT_EQ(notFound(kFocusModule), 1u);
    EXPECT_EQ(loading(kSamplerModule), 1u);
    EXPECT_EQ(notFound(kSamplerModule), 1u);
    EXPECT_EQ(logcapture::entries().size(), 4u);
}

TEST(LoaderModuleMissing, FallsBackToPlainOpenWhenTheNamespaceCannotOpenIt) {
    g_namespacesOn = true;
    EXPECT_FALSE(createVrFocusManagerPtr());
    const auto calls = hostplatform::dlopenExtCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_FALSE(calls[0].opened);
    EXPECT_EQ(notFound(kFocusModule), 1u) << "one line for both attempts";
}

TEST(LoaderNoCreate, GivesEmptyHandlesSilently) {
    EXPECT_FALSE(createVrFocusManagerPtr());
    EXPECT_FALSE(createInstructionSamplerPtr());
    EXPECT_EQ(logcapture::entries().size(), 2u) << "only the two loading lines";
    EXPECT_TRUE(sim::sdk::observations().destroyCalls.empty());
}

TEST(LoaderNullCreate, GivesEmptyHandlesWithoutDestroying) {
    EXPECT_FALSE(createVrFocusManagerPtr());
    EXPECT_FALSE(createInstructionSamplerPtr());
    EXPECT_EQ(sim::sdk::observations().createVersions, (std::vector<int64_t>{5, 4}));
    EXPECT_TRUE(sim::sdk::observations().destroyCalls.empty());
    EXPECT_EQ(logcapture::entries().size(), 2u) << "only the two loading lines";
}

TEST(LoaderNoDestroy, TheMissingDestroyIsCachedAsNullAndCalledWithoutCheck) {
    Platkit::Symbol::Cache<void (*)(int64_t, void*)> destroy(Platkit::internal::platkitModule,
                                                             "destroyVrFocusManager");
    EXPECT_EQ(destroy.getCached(), nullptr);
    // A module must export both functions: there is no fallback, releasing the handle crashes.
    EXPECT_DEATH(
            {
                auto manager = createVrFocusManagerPtr();
                if (manager) manager.reset();
            },
            "");
}

}  // namespace
