// The live instruction sampler's readings of this machine, decoded with the collector's own
// profile-buffer reader: every process's threads, named by their comm, and the CPU modes.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "ProfileBufferFormat.h"
#include "SamplerSources.h"

namespace {

namespace pb = Vistrel::profilebuffer;

pb::View viewOf(const sim::sdk::Reading& r) {
    return {r.bytes.data(), r.bytes.size(), r.cachedSectionOffset, r.cachedThreadTableOffset,
            r.cachedCpuCount};
}

std::vector<int32_t> threadIds(const pb::View& view) {
    std::vector<int32_t> tids;
    const auto table = pb::threadTable(view);
    if (!table) return tids;
    pb::forEachThreadRecord(view, *table, static_cast<int32_t>(*pb::cpuCount(view)),
                            [&](int32_t tid, const uint8_t*) { tids.push_back(tid); });
    return tids;
}

TEST(LiveProcess, ReadsEveryProcesssThreadsWithTheirNamesAndTheCpuModes) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_NAME, "live-probe");
        (void)!write(ready[1], "x", 1);
        pause();
        _exit(0);
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);

    sim::sdk::LiveProcess live;
    const sim::sdk::Reading reading = live.next();
    const std::vector<int32_t> tids = threadIds(viewOf(reading));
    EXPECT_NE(std::find(tids.begin(), tids.end(), getpid()), tids.end()) << "this process";
    EXPECT_NE(std::find(tids.begin(), tids.end(), child), tids.end()) << "another process";
    EXPECT_EQ(live.threadName(child), "live-probe");
    EXPECT_EQ(live.threadName(-1), "") << "not in the reading";

    const auto sections = pb::sectionTable(viewOf(reading));
    ASSERT_TRUE(sections.has_value());
    for (const char* name : {"features", "feature-ids"}) {
        const auto section = pb::findSection(viewOf(reading), *sections, name);
        ASSERT_TRUE(section.has_value()) << name;
        EXPECT_EQ(section->entries, 7) << "user, nice, system, idle, iowait, irq, softirq";
    }

    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    live.next();
    EXPECT_EQ(live.threadName(child), "") << "an ended thread leaves the reading";
}

}  // namespace
