// parseZramStatData() over arbitrary bytes, NUL-terminated as the reader does.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "procfsutils/ProcFsParserInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    procfsutils::ZramStatData out;
    const int count = procfsutils::internal::parseZramStatData(text.data(), &out);
    // Anything but exactly 10 columns leaves the whole record zero.
    const char zeros[sizeof out] = {};
    if (count != 10 && memcmp(&out, zeros, sizeof out) != 0) abort();
    return 0;
}
