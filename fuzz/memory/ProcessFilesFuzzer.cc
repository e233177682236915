// ProcessMemoryStats' per-process readers over arbitrary /proc/<pid>/cmdline, oom_score_adj and
// stat (in that order in the input, see FuzzFiles.h).
#include <cstdlib>

#include "FuzzFiles.h"
#include "ProcessMemoryStats.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const memfuzz::Root root;
    const auto parts = memfuzz::split(data, size);
    root.put("/proc/42/cmdline", parts, 0);
    root.put("/proc/42/oom_score_adj", parts, 1);
    root.put("/proc/42/stat", parts, 2);

    Vistrel::ProcessMemoryStats stats;
    const std::optional<std::string> name = stats.getProcessName(42);
    // argv[0]: non-empty, without blanks or NULs, from the first 256 bytes.
    if (name && (name->empty() || name->size() > 256 ||
                 name->find_first_of(std::string(" \0", 2)) != std::string::npos)) {
        abort();
    }
    Vistrel::ProcessMemorySnapshot snapshot;
    snapshot.oomScoreAdj = 12345;
    if (!stats.getOomScoreAdj(42, snapshot) && snapshot.oomScoreAdj != 12345)
        abort();  // untouched on failure
    if (stats.getProcessTimeStat(42, snapshot) != snapshot.timeStatsValid) abort();
    if (snapshot.startTimeSec < 0 || snapshot.userTimeSec < 0 || snapshot.systemTimeSec < 0)
        abort();
    logcapture::clear();
    return 0;
}
