// Host stand-in for the types of android.hidl.base@1.0.
#pragma once

#include <cstdint>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

struct DebugInfo final {
    enum class Architecture : int32_t {
        UNKNOWN = 0,
        IS_64BIT = 1,
        IS_32BIT = 2,
    };

    int32_t pid;   // -1 when unknown
    uint64_t ptr;  // address of the implementation object, 0 when unknown
    Architecture arch;
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
