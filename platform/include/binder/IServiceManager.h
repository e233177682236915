// Host stand-in for the binder service lookup of <binder/IServiceManager.h>.
//
// android::getService<I>(name, &out) answers from the host service registry
// (hostplatform/ServiceRegistry.h): the implementation registered for interface I under the
// instance `name`, or NAME_NOT_FOUND with a null proxy when nothing is registered. Unlike the
// device it never waits for a service to appear.
#pragma once

#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/StrongPointer.h>

#include "binder/IInterface.h"
#include "hostplatform/ServiceRegistry.h"

namespace android {

template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    *outService = hostplatform::findService<INTERFACE>(hostplatform::toUtf8(name));
    return *outService != nullptr ? NO_ERROR : NAME_NOT_FOUND;
}

}  // namespace android
