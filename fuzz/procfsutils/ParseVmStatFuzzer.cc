// parse() with the vmstat table over arbitrary bytes (not NUL-terminated).
#include <memory>

#include "procfsutils/ProcFsParserInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto out = std::make_unique<procfsutils::VmStatData>();
    procfsutils::internal::parse(reinterpret_cast<const char*>(data), static_cast<int>(size),
                                 procfsutils::internal::kVmStatFields,
                                 procfsutils::internal::kVmStatFieldCount, out.get());
    return 0;
}
