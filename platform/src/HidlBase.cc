#include <android/hidl/base/1.0/IBase.h>

#include <unistd.h>

#include <utils/misc.h>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;

const char* IBase::descriptor = "android.hidl.base@1.0::IBase";

Return<void> IBase::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb(hidl_vec<hidl_string>{descriptor});
    return Void();
}

Return<void> IBase::debug(const hidl_handle&, const hidl_vec<hidl_string>&) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    // The most-derived descriptor is the first entry of the chain.
    hidl_string first;
    interfaceChain([&](const hidl_vec<hidl_string>& chain) {
        if (chain.size() > 0) first = chain[0];
    });
    _hidl_cb(first);
    return Void();
}

Return<void> IBase::getHashChain(getHashChain_cb _hidl_cb) {
    // Host interfaces are not hashed: one all-zero entry per interface of the chain.
    size_t length = 0;
    interfaceChain([&](const hidl_vec<hidl_string>& chain) { length = chain.size(); });
    _hidl_cb(hidl_vec<hidl_array<uint8_t, 32>>(length));
    return Void();
}

Return<void> IBase::setHALInstrumentation() {
    return Void();
}

Return<bool> IBase::linkToDeath(const sp<::android::hardware::hidl_death_recipient>& recipient,
                                uint64_t) {
    return recipient != nullptr;
}

Return<void> IBase::ping() {
    return Void();
}

Return<void> IBase::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    DebugInfo info{};
    info.pid = getpid();
    info.ptr = 0;
    info.arch = sizeof(void*) == 8 ? DebugInfo::Architecture::IS_64BIT
                                   : DebugInfo::Architecture::IS_32BIT;
    _hidl_cb(info);
    return Void();
}

Return<void> IBase::notifySyspropsChanged() {
    ::android::report_sysprop_change();
    return Void();
}

Return<bool> IBase::unlinkToDeath(const sp<::android::hardware::hidl_death_recipient>& recipient) {
    return recipient != nullptr;
}

Return<sp<IBase>> IBase::castFrom(const sp<IBase>& parent, bool) {
    return parent;
}

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
