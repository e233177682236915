// getString() over a range of arbitrary bytes into an exactly sized heap buffer, so a write past
// its end is caught.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "FuzzInput.h"
#include "procfsutils/ProcFsParserInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int bufSize = 1 + data[0] % 40;
    const fuzzinput::Range r = fuzzinput::rangeOf(data + 1, size - 1);
    auto buf = std::make_unique<char[]>(static_cast<size_t>(bufSize));
    procfsutils::internal::getString(r.text, r.start, r.end, buf.get(), bufSize);
    if (memchr(buf.get(), '\0', static_cast<size_t>(bufSize)) == nullptr) abort();
    return 0;
}
