// Helpers of the HAL stand-ins' out-of-line parts (host platform internal): interface chains
// and the checked down-cast behind every castFrom().
#pragma once

#include <initializer_list>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

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

// Answers interfaceChain() with `names`, most-derived first.
inline android::hardware::Return<void> chain(
        const android::hidl::base::V1_0::IBase::interfaceChain_cb& cb,
        std::initializer_list<const char*> names) {
    android::hardware::hidl_vec<android::hardware::hidl_string> descriptors(names.size());
    size_t i = 0;
    for (const char* name : names) descriptors[i++] = name;
    cb(descriptors);
    return android::hardware::Void();
}

}  // namespace interfaces
}  // namespace hostplatform
