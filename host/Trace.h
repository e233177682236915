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

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Output.h"
#include "ThreadSafety.h"

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

// Writes a trace file line by line, each straight to the file, so that a failing write (a full
// disk, a file-size limit) is told at once and a process that ends abruptly can still close the
// file. After a failed write the file is cut back to its last whole event (which frees what the
// failed write took) and closed there, so it stays one JSON document. Thread-safe.
class TraceWriter {
public:
    using ErrorListener = std::function<void(const std::string&)>;

    // Writes to `fd`, which it owns, named `path` in messages. `providers` in the host's order,
    // each with its track patterns. `onWriteError` is told once, with what failed, when a write
    // to the file fails; no more events are written then.
    TraceWriter(int fd, std::string path,
                const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
                ErrorListener onWriteError);
    // close()
    ~TraceWriter();
    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    // Opens `path` for a trace; null with the reason in `error` when it cannot be opened.
    static std::unique_ptr<TraceWriter> open(
            const std::string& path,
            const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
            ErrorListener onWriteError, std::string* error);

    // One timeline line (an Output observer).
    void add(const Line& line) EXCLUDES(mutex_);
    // Writes the end of the file and closes it; later lines are dropped.
    void close() EXCLUDES(mutex_);
    // close(), unless another thread is writing to the file right now: for a process about to
    // end at once, which must not wait.
    void closeIfIdle() EXCLUDES(mutex_);

private:
    void addLocked(const Line& line) REQUIRES(mutex_);
    // Appends the event to the text not written yet.
    void emitLocked(const nlohmann::ordered_json& event) REQUIRES(mutex_);
    // Writes the text not written yet: whole events only.
    void writePendingLocked() REQUIRES(mutex_);
    void closeLocked() REQUIRES(mutex_);
    // After a failed write: ends the document after the last whole event written, or, when that
    // cannot be written either, after the one before.
    void endAtWholeEventLocked() REQUIRES(mutex_);
    void failLocked() REQUIRES(mutex_);
    int pidOf(const std::string& owner) const;

    threadsafety::Mutex mutex_;
    int fd_ GUARDED_BY(mutex_);  // -1 once closed
    std::string pending_ GUARDED_BY(mutex_);
    // Bytes of the file that hold whole events (the header included), after the last write and
    // after the one before.
    off_t whole_ GUARDED_BY(mutex_) = 0;
    off_t wholeBefore_ GUARDED_BY(mutex_) = 0;
    bool first_ GUARDED_BY(mutex_) = true;
    bool failed_ GUARDED_BY(mutex_) = false;
    const std::string path_;
    const ErrorListener onWriteError_;
    std::map<std::string, std::pair<int, std::vector<std::string>>> providers_;  // pid, patterns
};

}  // namespace host
