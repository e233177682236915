// getNumber() and parsePid() over a range of arbitrary bytes.
#include <cstdlib>
#include <string>

#include "FuzzInput.h"
#include "procfsutils/ProcFsParserInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzinput::Range r = fuzzinput::rangeOf(data, size);
    const uint64_t value = procfsutils::internal::getNumber(r.text, r.start, r.end);
    // A range without digits reads as 0.
    bool digits = false;
    for (int i = r.start; i < r.end; ++i) digits |= r.text[i] >= '0' && r.text[i] <= '9';
    if (!digits && value != 0) abort();
    // A process id name (up to a NUL) is all digits, so it reads as the same number.
    const std::string name(r.text + r.start, static_cast<size_t>(r.end - r.start));
    int pid = -1;
    if (procfsutils::internal::parsePid(name.c_str(), &pid) &&
        (pid < 0 || static_cast<uint64_t>(pid) != value)) {
        abort();
    }
    return 0;
}
