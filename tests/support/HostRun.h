// Runs the reference host binary (VISTREL_HOST_BINARY) as a child process, through the build's
// emulator when the tests are cross-built, and keeps its exit status and output (stdout and
// stderr together) with the JSON lines of a --json run parsed.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ChildProcess.h"

namespace testing_support {

struct HostRun {
    int status = -1;  // exit status; -1 when the host did not exit normally
    std::string output;
    std::vector<nlohmann::json> lines;  // the lines of the output that are JSON objects
};

// The SDK module directory the host puts first on LD_LIBRARY_PATH: the --sdk-dir argument, else
// the build's own modules.
inline std::string sdkDirectoryOf(const std::string& arguments) {
    const std::string option = "--sdk-dir ";
    const size_t at = arguments.find(option);
    if (at == std::string::npos) return VISTREL_SDK_MODULE_ROOT "/default";
    const size_t start = at + option.size();
    return arguments.substr(start, arguments.find(' ', start) - start);
}

inline HostRun runHost(const std::string& arguments) {
    HostRun run;
    // Natively the host re-executes itself with its SDK module directory on LD_LIBRARY_PATH; an
    // emulated host cannot (the emulator does not follow an execve of an arm64 program), so the
    // directory is put there before it starts.
    const std::string environment =
            commandToRun("").empty() ? "" : "LD_LIBRARY_PATH=" + sdkDirectoryOf(arguments) + " ";
    const std::string command =
            environment + commandToRun(VISTREL_HOST_BINARY) + " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof(chunk), pipe)) > 0;) run.output.append(chunk, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    for (size_t start = 0, end; start < run.output.size(); start = end + 1) {
        end = run.output.find('\n', start);
        if (end == std::string::npos) end = run.output.size();
        const std::string line = run.output.substr(start, end - start);
        if (!line.empty() && line[0] == '{') run.lines.push_back(nlohmann::json::parse(line));
    }
    return run;
}

}  // namespace testing_support
