// Host-only lookup behind the HIDL getService() stand-ins. getStub=false asks the service
// registry (hostplatform::findService) for the registered instance; getStub=true asks for the
// in-process (passthrough) implementation, which the host keeps apart under its own key so the
// two lookups can be told apart. Nothing registers passthrough implementations except tests.
#pragma once

#include <string>

#include <utils/StrongPointer.h>

#include "hostplatform/ServiceRegistry.h"

namespace hostplatform {

template <typename I>
std::string passthroughDescriptorOf() {
    return descriptorOf<I>() + "#passthrough";
}

template <typename I>
android::sp<I> findHidlService(const std::string& instance, bool getStub) {
    if (!getStub) return findService<I>(instance);
    android::sp<I> found;
    withService(passthroughDescriptorOf<I>(), instance,
                [&](void* iface) { found = static_cast<I*>(iface); });
    return found;
}

template <typename I>
void addPassthroughService(const std::string& instance, const android::sp<I>& impl) {
    I* raw = impl.get();
    registerService(passthroughDescriptorOf<I>(), instance, android::sp<android::RefBase>(raw), raw);
}

template <typename I>
bool removePassthroughService(const std::string& instance) {
    return unregisterService(passthroughDescriptorOf<I>(), instance);
}

}  // namespace hostplatform
