// Support for fuzzing the memory collectors' file readers end to end: a private temporary
// file-system root, and an input split into the contents of several files.
//
// Input format: the files' contents separated by 0x01 bytes, in the order the target lists
// them. A file whose part is missing (fewer separators) is removed, so opening it fails.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "LogCapture.h"
#include "hostplatform/FsRoot.h"

namespace memfuzz {

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

// A temporary directory installed as the file-system root for the life of the process.
class Root {
public:
    Root() {
        // In memory where possible: the files are rewritten on every run.
        std::string pattern = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
        pattern += "/vistrel-fuzz-XXXXXX";
        dir_ = mkdtemp(pattern.data());
        hostplatform::setFsRoot(dir_.string());
    }
    ~Root() { std::filesystem::remove_all(dir_); }

    // Writes `text` to the device path, or removes the file when `text` is null.
    void put(const std::string& devicePath, const std::string_view* text) const {
        const std::filesystem::path path = dir_.string() + devicePath;
        if (text == nullptr) {
            unlink(path.c_str());
            return;
        }
        std::filesystem::create_directories(path.parent_path());
        if (FILE* file = fopen(path.c_str(), "w")) {
            fwrite(text->data(), 1, text->size(), file);
            fclose(file);
        }
    }
    // Writes part `i` of `parts` to the device path, or removes the file when there is none.
    void put(const std::string& devicePath, const std::vector<std::string_view>& parts,
             size_t i) const {
        put(devicePath, i < parts.size() ? &parts[i] : nullptr);
    }

private:
    std::filesystem::path dir_;
};

}  // namespace memfuzz
