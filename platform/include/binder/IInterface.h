// Host stand-in for <binder/IInterface.h>: the base of binder interfaces, and the macros that
// give an interface its descriptor. There is no transport on the host: a service is the
// implementation object itself, found through the host service registry (<binder/IServiceManager.h>).
#pragma once

#include <string>

#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>

namespace android {

class IInterface : public virtual RefBase {
public:
    IInterface() = default;

protected:
    ~IInterface() override = default;
};

}  // namespace android

// Declares the interface's descriptor (its fully qualified name, as binder spells it: String16).
#define DECLARE_META_INTERFACE(INTERFACE)                              \
public:                                                                \
    static const ::android::String16 descriptor;                       \
    virtual const ::android::String16& getInterfaceDescriptor() const; \
    I##INTERFACE() = default;                                          \
    ~I##INTERFACE() override = default;

#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                             \
    const ::android::String16 I##INTERFACE::descriptor(NAME);                 \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const { \
        return I##INTERFACE::descriptor;                                      \
    }

namespace hostplatform {

// UTF-8 copy of a binder string. The host service registry keys binder interfaces by their
// String16 descriptor converted with this (each binder interface specialises
// hostplatform::descriptorOf<I>), and instances by their name converted likewise.
inline std::string toUtf8(const android::String16& text) {
    const android::String8 utf8(text);
    return std::string(utf8.string(), utf8.size());
}

}  // namespace hostplatform
