// Support for fuzzing a file reader end to end: a private temporary file-system root.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "hostplatform/FsRoot.h"
#include "procfsutils/KernelFiles.h"

namespace memfuzz {

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
        if (const procfsutils::UniqueStream file{fopen(path.c_str(), "w")}) {
            fwrite(text->data(), 1, text->size(), file.get());
        }
    }

private:
    std::filesystem::path dir_;
};

}  // namespace memfuzz
