// Host stand-in for android.hidl.base@1.0::IBase, the root of every HIDL interface. Every
// method has the default body of a local (in-process) object; interfaces override
// interfaceChain() and interfaceDescriptor() to name themselves.
#pragma once

#include <cstdint>
#include <functional>

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <android/hidl/base/1.0/types.h>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {

struct hidl_death_recipient : virtual public ::android::RefBase {
    virtual void serviceDied(uint64_t cookie,
                             const ::android::wp<::android::hidl::base::V1_0::IBase>& who) = 0;
};

}  // namespace hardware

namespace hidl {
namespace base {
namespace V1_0 {

struct IBase : virtual public ::android::RefBase {
    static const char* descriptor;  // "android.hidl.base@1.0::IBase"

    virtual bool isRemote() const { return false; }

    using interfaceChain_cb = std::function<void(
            const ::android::hardware::hidl_vec<::android::hardware::hidl_string>&)>;
    // The descriptors of this interface and its ancestors, most-derived first.
    virtual ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb);

    virtual ::android::hardware::Return<void> debug(
            const ::android::hardware::hidl_handle& fd,
            const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options);

    using interfaceDescriptor_cb = std::function<void(const ::android::hardware::hidl_string&)>;
    virtual ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb);

    using getHashChain_cb = std::function<void(
            const ::android::hardware::hidl_vec<::android::hardware::hidl_array<uint8_t, 32>>&)>;
    virtual ::android::hardware::Return<void> getHashChain(getHashChain_cb _hidl_cb);

    virtual ::android::hardware::Return<void> setHALInstrumentation();

    virtual ::android::hardware::Return<bool> linkToDeath(
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient,
            uint64_t cookie);

    virtual ::android::hardware::Return<void> ping();

    using getDebugInfo_cb = std::function<void(const DebugInfo&)>;
    virtual ::android::hardware::Return<void> getDebugInfo(getDebugInfo_cb _hidl_cb);

    virtual ::android::hardware::Return<void> notifySyspropsChanged();

    virtual ::android::hardware::Return<bool> unlinkToDeath(
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient);

    static ::android::hardware::Return<::android::sp<IBase>> castFrom(
            const ::android::sp<IBase>& parent, bool emitError = false);
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
