// The run summary and every provider's last record as one JSON document (--summary FILE), for
// comparing two runs (scripts/compare-runs):
//
//   {"run": RunConfig::description,
//    "deviceNs": device time run,
//    "providers": {row name: the summary's counts (RunSummary.h) and "lastRecord", the fields
//                  of the provider's latest record line, or null when it printed none},
//    "allProviders": CPU totals and the budget}
//
// CPU figures are in ms and ms per device hour. Thread-safe.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "Output.h"
#include "RunSummary.h"
#include "ThreadSafety.h"

namespace host {

class SummaryFile {
public:
    // Opens `path` for writing now, so that an unwritable path ends the run before it starts;
    // null with the reason in `*error` when it cannot be opened.
    static std::unique_ptr<SummaryFile> open(const std::string& path, std::string* error);
    ~SummaryFile();
    SummaryFile(const SummaryFile&) = delete;
    SummaryFile& operator=(const SummaryFile&) = delete;

    // Keeps each provider's latest record from the lines `output` writes from now on.
    void follow(Output& output);
    // Writes the document for a run of `deviceNs` and closes the file; false with the reason in
    // `*error` when writing failed.
    bool write(const nlohmann::ordered_json& run, const RunSummary& summary, int64_t deviceNs,
               int64_t longestPeriodNs, std::string* error);

private:
    SummaryFile(FILE* out, std::string path) : out_(out), path_(std::move(path)) {}
    void keep(const Line& line) EXCLUDES(mutex_);

    FILE* out_;  // null once written
    const std::string path_;
    threadsafety::Mutex mutex_;
    std::map<std::string, nlohmann::ordered_json> lastRecords_ GUARDED_BY(mutex_);
};

}  // namespace host
