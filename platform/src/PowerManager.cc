#include "vistrelcore/PowerManager.h"

#include "ThreadSafety.h"
#include "hostplatform/Power.h"

namespace {

threadsafety::Mutex g_mutex;
std::function<bool()> g_interactiveSource GUARDED_BY(g_mutex);

}  // namespace

namespace hostplatform {

void setInteractiveSource(std::function<bool()> source) {
    threadsafety::MutexLock lock(g_mutex);
    g_interactiveSource = std::move(source);
}

void resetInteractiveSource() {
    setInteractiveSource(nullptr);
}

}  // namespace hostplatform

namespace Vistrel {

bool PowerManager::getIsInteractive() {
    std::function<bool()> source;
    {
        threadsafety::MutexLock lock(g_mutex);
        source = g_interactiveSource;
    }
    return source ? source() : true;
}

PowerManager::~PowerManager() = default;

}  // namespace Vistrel
