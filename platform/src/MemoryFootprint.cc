#include "hostplatform/MemoryFootprint.h"

#include <cerrno>
#include <memory>
#include <mutex>

namespace {

std::mutex g_mutex;
std::shared_ptr<const hostplatform::MemoryFootprintFn> g_source;

}  // namespace

extern "C" int get_memory_footprint(pid_t pid, struct memory_footprint_data* data, uint32_t what) {
    std::shared_ptr<const hostplatform::MemoryFootprintFn> source;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        source = g_source;
    }
    // Called outside the lock, so a source may itself install or reset sources.
    return source ? (*source)(pid, data, what) : -ENOSYS;
}

namespace hostplatform {

void setMemoryFootprintSource(MemoryFootprintFn fn) {
    auto source = fn ? std::make_shared<const MemoryFootprintFn>(std::move(fn)) : nullptr;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_source = std::move(source);
}

void resetMemoryFootprintSource() {
    setMemoryFootprintSource(nullptr);
}

}  // namespace hostplatform
