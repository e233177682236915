// A private, writable copy of a fixture tree under tests/data/, installed as the file-system
// root for the lifetime of the object (the root is cleared and the copy removed afterwards).
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "hostplatform/FsRoot.h"

namespace testing_support {

class FixtureTree {
public:
    // `relative` is a directory under tests/data/ (e.g. "memstorage/device"); "" gives an
    // empty root in which every file is missing.
    explicit FixtureTree(const std::string& relative) {
        char pattern[] = "/tmp/vistrel-fixture-XXXXXX";
        root_ = mkdtemp(pattern);
        if (!relative.empty()) {
            std::filesystem::copy(std::string(VISTREL_SOURCE_DIR) + "/tests/data/" + relative,
                                  root_, std::filesystem::copy_options::recursive);
        }
        hostplatform::setFsRoot(root_.string());
    }
    ~FixtureTree() {
        hostplatform::setFsRoot("");
        std::filesystem::remove_all(root_);
    }
    FixtureTree(const FixtureTree&) = delete;
    FixtureTree& operator=(const FixtureTree&) = delete;

    // Host path of a device path such as "/proc/meminfo".
    std::filesystem::path at(const std::string& devicePath) const {
        return root_.string() + devicePath;
    }

    void write(const std::string& devicePath, const std::string& text) const {
        std::filesystem::create_directories(at(devicePath).parent_path());
        std::ofstream(at(devicePath), std::ios::trunc) << text;
    }
    std::string read(const std::string& devicePath) const {
        std::ifstream in(at(devicePath));
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    void remove(const std::string& devicePath) const { std::filesystem::remove(at(devicePath)); }

private:
    std::filesystem::path root_;
};

}  // namespace testing_support
