// getByteCount() over a range of arbitrary bytes.
#include <cstdlib>

#include "FuzzInput.h"
#include "procfsutils/ProcFsParserInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzinput::Range r = fuzzinput::rangeOf(data, size);
    const uint64_t bytes = procfsutils::internal::getByteCount(r.text, r.start, r.end);
    const uint64_t number = procfsutils::internal::getNumber(r.text, r.start, r.end);
    // The byte count is the number, shifted by 0, 10, 20 or 30 bits.
    if (bytes != number && bytes != number << 10 && bytes != number << 20 && bytes != number << 30) {
        abort();
    }
    return 0;
}
