// Helpers of the HAL stand-ins' out-of-line parts (host platform internal): interface chains,
// and the checked down-cast behind every castFrom() (hostplatform/HidlServiceInterface.h).
#pragma once

#include <initializer_list>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

#include "hostplatform/HidlServiceInterface.h"

namespace hostplatform {
namespace interfaces {

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
