// Shell commands that start an executable this project built (the test executable itself, the
// reference host, a helper program). When the tests are cross-built (the arm64 preset), the
// machine running them cannot execute those binaries directly: the command goes through the
// build's emulator (qemu-user with its sysroot), as CTest does for the test executables.
// Natively the command is the executable alone. Environment variables such as LD_LIBRARY_PATH
// reach the emulated program's loader unchanged.
#pragma once

#include <string>

namespace testing_support {

// VISTREL_TEST_EMULATOR is the build's CMAKE_CROSSCOMPILING_EMULATOR joined with spaces, empty
// on a native build (tests/support/CMakeLists.txt).
inline std::string commandToRun(const std::string& executable) {
    const std::string emulator = VISTREL_TEST_EMULATOR;
    return emulator.empty() ? executable : emulator + " " + executable;
}

}  // namespace testing_support
