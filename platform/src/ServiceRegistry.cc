#include "hostplatform/ServiceRegistry.h"

#include <map>
#include <utility>

#include "ThreadSafety.h"

namespace hostplatform {
namespace {

struct Entry {
    android::sp<android::RefBase> object;
    void* iface;
};

threadsafety::Mutex g_mutex;
std::map<std::pair<std::string, std::string>, Entry> g_services GUARDED_BY(g_mutex);

}  // namespace

void registerService(const std::string& descriptor, const std::string& instance,
                     const android::sp<android::RefBase>& object, void* iface) {
    android::sp<android::RefBase> replaced;  // released outside the lock
    threadsafety::MutexLock lock(g_mutex);
    Entry& entry = g_services[{descriptor, instance}];
    replaced = std::move(entry.object);
    entry = Entry{object, iface};
}

bool unregisterService(const std::string& descriptor, const std::string& instance) {
    android::sp<android::RefBase> removed;
    threadsafety::MutexLock lock(g_mutex);
    const auto it = g_services.find({descriptor, instance});
    if (it == g_services.end()) return false;
    removed = std::move(it->second.object);
    g_services.erase(it);
    return true;
}

void clearServices() {
    std::map<std::pair<std::string, std::string>, Entry> removed;
    threadsafety::MutexLock lock(g_mutex);
    removed.swap(g_services);
}

bool withService(const std::string& descriptor, const std::string& instance,
                 const std::function<void(void* iface)>& use) {
    threadsafety::MutexLock lock(g_mutex);
    const auto it = g_services.find({descriptor, instance});
    if (it == g_services.end()) return false;
    use(it->second.iface);
    return true;
}

}  // namespace hostplatform
