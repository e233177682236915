// Timeline output of the reference host: one line per event, either readable text
//   "  1:00:00.000  SystemStateStats      notification  SystemStateStats / AggregatedDonStates"
// or, with --json, one JSON object per line with the same content. Thread-safe.
#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

namespace host {

class Output {
public:
    Output(FILE* out, bool json) : out_(out), json_(json) {}

    // `event` names the kind of line ("notification", "record", "log", ...); `fields` holds its
    // content, printed as key=value pairs in text mode.
    void write(int64_t deviceNs, const std::string& source, const std::string& event,
               const nlohmann::ordered_json& fields);

private:
    std::mutex mutex_;
    FILE* out_;
    bool json_;
};

// Compact "key=value key=[a, b] key={k=v}" rendering of a JSON value.
std::string summarize(const nlohmann::ordered_json& value);

}  // namespace host
