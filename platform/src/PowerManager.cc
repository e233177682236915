#include "vistrelcore/PowerManager.h"

#include <mutex>

#include "hostplatform/Power.h"

namespace {

std::mutex g_mutex;
std::function<bool()> g_interactiveSource;

}  // namespace

namespace hostplatform {

void setInteractiveSource(std::function<bool()> source) {
    std::lock_guard<std::mutex> lock(g_mutex);
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
        std::lock_guard<std::mutex> lock(g_mutex);
        source = g_interactiveSource;
    }
    return source ? source() : true;
}

PowerManager::~PowerManager() = default;

}  // namespace Vistrel
