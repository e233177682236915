// Support for fuzzing the memory collectors' file parsers: an input split into the contents of
// several files, and a memory stream over one of them for the stdio reading each parser must
// agree with.
//
// Input format: the files' contents separated by 0x01 bytes, in the order the target lists
// them; a missing part reads as an empty file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace memfuzz {

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

struct StreamCloser {
    void operator()(FILE* stream) const { fclose(stream); }
};

// A read stream over the bytes of `text` (NULs included), as the file would be.
inline std::unique_ptr<FILE, StreamCloser> streamOver(std::string& text) {
    return std::unique_ptr<FILE, StreamCloser>(fmemopen(text.data(), text.size(), "r"));
}

}  // namespace memfuzz
