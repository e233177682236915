// SystemMemoryStats' readers over arbitrary files: /proc/pressure/memory through sample(), and
// zram0's idle_cluster_sz, simulated_bd_stat and idlehisto through getZramIdleMemStats() with
// the idle collector switched on (in that order in the input, see FuzzFiles.h).
#include <cstdlib>

#include "FuzzFiles.h"
#include "SystemMemoryStats.h"
#include "hostplatform/Properties.h"

namespace {

struct ZeroClock : Vistrel::IClockReader {
    int64_t elapsedNs() override { return 0; }
    int64_t readTimestamp() override { return 0; }
    int64_t nowNs() override { return 0; }
};

const std::string kZram = "/sys/devices/virtual/block/zram0/";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const memfuzz::Root root = [] {
        hostplatform::setProperty("mobile_vistrel_zram_idle_collector", "true");
        return memfuzz::Root();
    }();
    const auto parts = memfuzz::split(data, size);
    root.put("/proc/pressure/memory", parts, 0);
    const std::string_view control;
    root.put(kZram + "calculate_idle_pg_stats", &control);
    root.put(kZram + "idle_cluster_sz", parts, 1);
    root.put(kZram + "simulated_bd_stat", parts, 2);
    root.put(kZram + "idlehisto", parts, 3);

    Vistrel::SystemMemoryStats stats;
    ZeroClock clock;
    if (!stats.sample(clock) || !stats.sampleValid) abort();  // a sample always completes
    if (parts[0].empty() && (stats.psiSomeAvg10 != -1.0f || stats.psiFullAvg300 != -1.0f)) abort();
    if (stats.getZramIdleMemStats() != &stats.zramIdle) abort();
    logcapture::clear();
    return 0;
}
