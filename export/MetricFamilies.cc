#include "MetricFamilies.h"

namespace metrics {
namespace {

// Length of the well-formed UTF-8 sequence at text[at]; 0 when there is none (a stray
// continuation byte, an overlong form, a surrogate, a code point above U+10FFFF, a cut sequence).
size_t sequenceLength(const std::string& text, size_t at) {
    const auto byte = [&text, at](size_t k) {
        return at + k < text.size() ? static_cast<unsigned char>(text[at + k]) : 0;
    };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return 1;
    size_t length;
    unsigned char low = 0x80, high = 0xbf;  // range of the second byte
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        if (lead == 0xe0) low = 0xa0;
        if (lead == 0xed) high = 0x9f;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        if (lead == 0xf0) low = 0x90;
        if (lead == 0xf4) high = 0x8f;
    } else {
        return 0;
    }
    if (byte(1) < low || byte(1) > high) return 0;
    for (size_t k = 2; k < length; ++k) {
        if ((byte(k) & 0xc0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

std::string labelValue(const std::string& text) {
    std::string valid;
    valid.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const size_t length = sequenceLength(text, at);
        if (length == 0) {
            valid += "\xef\xbf\xbd";
            ++at;
        } else {
            valid.append(text, at, length);
            at += length;
        }
    }
    return valid;
}

}  // namespace metrics
