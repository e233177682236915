// Counting a text's occurrences in test output.
#pragma once

#include <cstddef>
#include <string>

namespace testing_support {

// How many times `needle` occurs in `text`, overlapping occurrences included.
inline size_t occurrences(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++n;
    return n;
}

}  // namespace testing_support
