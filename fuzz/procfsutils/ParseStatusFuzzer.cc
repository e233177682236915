// parse() with the process status table over arbitrary bytes (not NUL-terminated).
#include <cstdlib>
#include <cstring>
#include <memory>

#include "procfsutils/ProcFsParserInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto out = std::make_unique<procfsutils::ProcessStatusData>();
    procfsutils::internal::parse(reinterpret_cast<const char*>(data), static_cast<int>(size),
                                 procfsutils::internal::kProcessStatusFields,
                                 procfsutils::internal::kProcessStatusFieldCount, out.get());
    if (memchr(out->name, '\0', sizeof out->name) == nullptr) abort();  // always terminated
    return 0;
}
