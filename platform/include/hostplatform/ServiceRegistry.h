// Host-only service registry: the HIDL getService() and binder getService() stand-ins look
// implementations up here by (interface descriptor, instance name). Tests and the simulated
// headset register implementations; a lookup with nothing registered yields null, so the
// "service missing" paths of the library are real paths. Thread-safe.
#pragma once

#include <functional>
#include <string>

#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace hostplatform {

// `object` keeps the implementation alive while registered; `iface` is the same object seen as
// the interface type, handed back to lookups of that interface.
void registerService(const std::string& descriptor, const std::string& instance,
                     const android::sp<android::RefBase>& object, void* iface);
// Returns whether something was registered under that key.
bool unregisterService(const std::string& descriptor, const std::string& instance);
void clearServices();
// Calls `use` with the registered interface pointer, under the registry lock, if one exists.
bool withService(const std::string& descriptor, const std::string& instance,
                 const std::function<void(void* iface)>& use);

// The interface descriptor a type registers under; HIDL and binder interfaces differ in how
// they spell it, so an interface whose `descriptor` is not a C string specialises this.
template <typename I>
std::string descriptorOf() {
    return std::string(I::descriptor);
}

template <typename I>
void addService(const std::string& instance, const android::sp<I>& impl) {
    I* raw = impl.get();
    registerService(descriptorOf<I>(), instance, android::sp<android::RefBase>(raw), raw);
}

template <typename I>
bool removeService(const std::string& instance) {
    return unregisterService(descriptorOf<I>(), instance);
}

template <typename I>
android::sp<I> findService(const std::string& instance) {
    android::sp<I> found;
    withService(descriptorOf<I>(), instance, [&](void* iface) { found = static_cast<I*>(iface); });
    return found;
}

}  // namespace hostplatform
