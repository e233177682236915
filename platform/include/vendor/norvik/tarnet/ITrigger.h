// Host stand-in for the binder interface vendor.norvik.tarnet.ITrigger (cpp backend shape),
// the device's trigger service: it receives one TriggerContext per event worth collecting
// diagnostics for. Registered instance on the device: "vendor.norvik.tarnet.ITrigger/default".
#pragma once

#include <binder/IInterface.h>
#include <binder/Status.h>

#include "hostplatform/ServiceRegistry.h"
#include "vendor/norvik/tarnet/TriggerContext.h"

namespace vendor::norvik::tarnet {

class ITrigger : public ::android::IInterface {
    DECLARE_META_INTERFACE(Trigger)

    // Hands one event to the service. The caller keeps `context`.
    virtual ::android::binder::Status trigger(const TriggerContext& context) = 0;
};

}  // namespace vendor::norvik::tarnet

// The host service registry keys binder interfaces by their String16 descriptor.
template <>
inline std::string hostplatform::descriptorOf<vendor::norvik::tarnet::ITrigger>() {
    return hostplatform::toUtf8(vendor::norvik::tarnet::ITrigger::descriptor);
}
