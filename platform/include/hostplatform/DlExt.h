// Host-only record of the android_dlopen_ext calls the platform stand-in has served, so tests can
// see which loading path a library took. Thread-safe.
#pragma once

#include <android/dlext.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hostplatform {

struct DlopenExtCall {
    std::string filename;
    int mode;
    uint64_t flags;                        // 0 when the call had no extension record
    const android_namespace_t* nameSpace;  // the record's namespace, or null
    bool opened;                           // a handle was returned
};

std::vector<DlopenExtCall> dlopenExtCalls();

}  // namespace hostplatform
