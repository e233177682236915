// Ways of cutting a fuzz input into what a parser takes, and a stream over bytes for the stdio
// reading a parser must agree with.
//
// rangeOf: a range [start, end) of the bytes after a two-byte header, so scanners are also driven
// with ranges that start and stop inside the text.
// split / Parts: the contents of several files separated by 0x01 bytes, in the order the target
// lists them; a missing part reads as an empty file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "procfsutils/KernelFiles.h"

namespace fuzzinput {

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

// The parts of an input, in order (at least one).
inline std::vector<std::string_view> split(const uint8_t* data, size_t size) {
    std::vector<std::string_view> parts;
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    for (size_t cut; (cut = rest.find('\x01')) != std::string_view::npos;
         rest.remove_prefix(cut + 1)) {
        parts.push_back(rest.substr(0, cut));
    }
    parts.push_back(rest);
    return parts;
}

// Part i of the input, cut to the `limit` bytes its reader takes in.
class Parts {
public:
    Parts(const uint8_t* data, size_t size) : parts_(split(data, size)) {}
    std::string get(size_t i, size_t limit) const {
        return i < parts_.size() ? std::string(parts_[i].substr(0, limit)) : std::string();
    }

private:
    std::vector<std::string_view> parts_;
};

// A read stream over the bytes of `text` (NULs included), as the file would be.
inline procfsutils::UniqueStream streamOver(std::string& text) {
    return procfsutils::UniqueStream(fmemopen(text.data(), text.size(), "r"));
}

}  // namespace fuzzinput
