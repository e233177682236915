// Splits a fuzz input into a range [start, end) of the bytes after a two-byte header, so the
// scanners are also driven with ranges that start and stop inside the text.
#pragma once

#include <cstddef>
#include <cstdint>

namespace procfsfuzz {

struct Range {
    const char* text;
    int start;
    int end;
};

inline Range rangeOf(const uint8_t* data, size_t size) {
    if (size < 2) return {reinterpret_cast<const char*>(data), 0, static_cast<int>(size)};
    const char* text = reinterpret_cast<const char*>(data + 2);
    const int length = static_cast<int>(size - 2);
    // A first header byte of 255 selects the whole text, so whole-line seeds stay useful.
    if (data[0] == 255) return {text, 0, length};
    const int start = data[0] % (length + 1);
    const int end = start + data[1] % (length - start + 1);
    return {text, start, end};
}

}  // namespace procfsfuzz
