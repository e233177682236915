#include "hostplatform/MemoryFootprint.h"

#include <cerrno>
#include <memory>

#include "ThreadSafety.h"

namespace {

threadsafety::Mutex g_mutex;
std::shared_ptr<const hostplatform::MemoryFootprintFn> g_source GUARDED_BY(g_mutex);

}  // namespace

extern "C" int get_memory_footprint(pid_t pid, struct memory_footprint_data* data, uint32_t what) {
    std::shared_ptr<const hostplatform::MemoryFootprintFn> source;
    {
        threadsafety::MutexLock lock(g_mutex);
        source = g_source;
    }
    // Called outside the lock, so a source may itself install or reset sources.
    return source ? (*source)(pid, data, what) : -ENOSYS;
}

namespace hostplatform {

void setMemoryFootprintSource(MemoryFootprintFn fn) {
    auto source = fn ? std::make_shared<const MemoryFootprintFn>(std::move(fn)) : nullptr;
    threadsafety::MutexLock lock(g_mutex);
    g_source = std::move(source);
}

void resetMemoryFootprintSource() {
    setMemoryFootprintSource(nullptr);
}

}  // namespace hostplatform
