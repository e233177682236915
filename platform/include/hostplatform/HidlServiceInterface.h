// What every HIDL service interface of the host stand-ins declares besides its own methods, as
// hidl-gen emits it: the casts from its parents, the lookups in the host service registry and the
// server-side registration. A service interface I that extends Parent (IBase, or the older
// version of the same service) derives from ServiceInterface<I, Parent> instead of from Parent;
// these members then hide those of an older version.
#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "hostplatform/HidlServices.h"

namespace hostplatform {
namespace interfaces {

// Whether `object` lists `descriptor` in its interface chain.
inline bool implements(android::hidl::base::V1_0::IBase& object, const char* descriptor) {
    bool found = false;
    auto ret = object.interfaceChain(
            [&](const android::hardware::hidl_vec<android::hardware::hidl_string>& chain) {
                found = chain.contains(android::hardware::hidl_string(descriptor));
            });
    return ret.isOk() && found;
}

// A checked down-cast: null when `parent` is null or not of type To.
template <typename To, typename From>
android::hardware::Return<android::sp<To>> checkedCast(const android::sp<From>& parent) {
    if (parent == nullptr || !implements(*parent, To::descriptor)) return android::sp<To>();
    return android::sp<To>(dynamic_cast<To*>(parent.get()));
}

}  // namespace interfaces

template <typename I, typename Parent>
struct ServiceInterface : Parent {
    using IBase = android::hidl::base::V1_0::IBase;
    static constexpr bool kExtendsOlderVersion = !std::is_same_v<Parent, IBase>;

    static android::hardware::Return<android::sp<I>> castFrom(const android::sp<I>& parent,
                                                              bool emitError = false) {
        return parent;
    }
    // From the parent or IBase: null unless the object is an I.
    template <typename From,
              typename = std::enable_if_t<std::is_same_v<From, Parent> || std::is_same_v<From, IBase>>>
    static android::hardware::Return<android::sp<I>> castFrom(const android::sp<From>& parent,
                                                              bool emitError = false) {
        return interfaces::checkedCast<I>(parent);
    }

    // The registered instance, or null. Keep every overload: without the const char[] one,
    // getService("default") would bind to getService(bool) and mean getStub = true.
    static android::sp<I> getService(const std::string& serviceName = "default",
                                     bool getStub = false) {
        return findHidlService<I>(serviceName, getStub);
    }
    static android::sp<I> getService(const char serviceName[], bool getStub = false) {
        return getService(std::string(serviceName == nullptr ? "" : serviceName), getStub);
    }
    static android::sp<I> getService(const android::hardware::hidl_string& serviceName,
                                     bool getStub = false) {
        return getService(std::string(serviceName.c_str()), getStub);
    }
    static android::sp<I> getService(bool getStub) { return getService("default", getStub); }
    // The host registry never blocks, so these answer as getService() does.
    template <typename... Args>
    static android::sp<I> tryGetService(Args&&... args) {
        return getService(std::forward<Args>(args)...);
    }

    // Server side: registers this object under `serviceName` in the host registry, and under
    // the older version it extends too.
    android::status_t registerAsService(const std::string& serviceName = "default") {
        I* const self = static_cast<I*>(this);
        addService<I>(serviceName, android::sp<I>(self));
        if constexpr (kExtendsOlderVersion) {
            addService<Parent>(serviceName, android::sp<Parent>(self));
        }
        return android::OK;
    }
};

}  // namespace hostplatform
