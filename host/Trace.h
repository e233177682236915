// The run in the Trace Event Format (the JSON that the Perfetto UI and chrome://tracing open):
//
//   {"traceEvents":[
//    {"ph":"M","name":"process_name","pid":3,"args":{"name":"BatteryStats"}},
//    {"ph":"C","name":"currentMa last","pid":3,"tid":3,"ts":3600000000,"args":{"value":-1500}},
//    {"ph":"i","name":"HealthInfo","cat":"notification","s":"p","pid":3,"tid":3,
//     "ts":3610000000,"args":{"detail":"BatteryCollector"}},
//    ...]}
//
// Timestamps ("ts") are microseconds of device time. Each provider is a process of its own
// (pid 2 onwards, in the host's order; pid 1 is the host). Counter tracks come from the numeric
// fields of each record the host prints, as the provider's table entry selects them
// (HostedProvider::tracks); notifications, pushes and host events are instant events.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Output.h"

namespace host {

// The counter values that `patterns` select in a record, as (track name, value) in record
// order. A pattern is a path of '/'-separated keys ("level", "currentMa/last"); "*" stands for
// every key of an object or every element of an array. A track is named by the keys of its path
// joined with blanks, an array element by its "name" field when it has one, else by its index
// ("temperatures/*/current" gives "temperatures cpu-0 current", "topByRss/*/vmRssKb" gives
// "topByRss surfaceflinger vmRssKb"). Booleans count as 0 and 1 when a pattern names them. The
// pattern "**" takes every number in the record.
std::vector<std::pair<std::string, double>> recordCounters(const nlohmann::ordered_json& record,
                                                           const std::vector<std::string>& patterns);

class TraceWriter {
public:
    // `providers` in the host's order, each with its track patterns.
    TraceWriter(FILE* out,
                const std::vector<std::pair<std::string, std::vector<std::string>>>& providers);
    // Writes the end of the file and closes it.
    ~TraceWriter();
    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    // Opens `path` for a trace; null with the reason in `error` when it cannot be written.
    static std::unique_ptr<TraceWriter> open(
            const std::string& path,
            const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
            std::string* error);

    // One timeline line (an Output observer).
    void add(const Line& line);

private:
    void emit(const nlohmann::ordered_json& event);
    int pidOf(const std::string& owner) const;

    FILE* out_;
    bool first_ = true;
    std::map<std::string, std::pair<int, std::vector<std::string>>> providers_;  // pid, patterns
};

}  // namespace host
