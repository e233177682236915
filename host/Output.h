// Timeline output of the reference host: one line per event, either readable text
//   "  1:00:00.000  SystemStateStats      notification  name=SystemStateStats detail=..."
// or, with --json, one JSON object per line with the same content. Thread-safe.
//
// Each line is stamped with the device time read under the output's lock, so lines written from
// any thread reach the timeline, and its observers, in device-time order.
//
// Every line belongs to an owner: the provider whose call was running on the writing thread
// (ProviderCall), else its source. Observers (the trace writer) see every line; the timeline
// shows those the filter lets through:
//   hide  lines whose source, kind or "name" field is one of these (--hide);
//   only  when not empty, lines whose owner is one of these (--only);
//   fold  a notification equal (name and detail) to the previous one its owner showed is not
//         printed; when the owner next shows another line, or the timeline ends, one "repeated"
//         line gives how many were folded and the device times of the first and last (--fold);
//         "sample" lines neither fold nor end a fold.
//
// A write that fails (a full disk, a closed pipe) is told once to the write-error listener, with
// what failed; nothing more is written to that stream afterwards.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ThreadSafety.h"

namespace host {

struct TimelineFilter {
    std::set<std::string> hide;
    std::set<std::string> only;
    bool fold = false;
};

struct Line {
    int64_t deviceNs;
    const std::string& source;
    const std::string& event;
    const nlohmann::ordered_json& fields;
    const std::string& owner;
};

// The kinds of line the host writes (Line::event).
const std::vector<std::string>& lineKinds();

class Output {
public:
    // `deviceNow` gives the device time in nanoseconds; it is called under the output's lock.
    Output(FILE* out, bool json, std::function<int64_t()> deviceNow, TimelineFilter filter = {});

    // `event` names the kind of line ("notification", "record", "log", ...); `fields` holds its
    // content, printed as key=value pairs in text mode.
    void write(const std::string& source, const std::string& event,
               const nlohmann::ordered_json& fields) EXCLUDES(mutex_);
    // The same for a line the host writes on behalf of `owner` (a provider, or "host").
    void write(const std::string& source, const std::string& event,
               const nlohmann::ordered_json& fields, const std::string& owner) EXCLUDES(mutex_);
    // A line shown whatever the filter, and not observed (the run summary).
    void writeUnfiltered(const std::string& source, const std::string& event,
                         const nlohmann::ordered_json& fields) EXCLUDES(mutex_);
    // Text printed as it is (text timelines only).
    void writeRaw(const std::string& text) EXCLUDES(mutex_);
    // Prints the "repeated" lines of folds still open. Call when the run's events end.
    void endTimeline() EXCLUDES(mutex_);

    // Called once, under the output's lock, with what failed, when a write to the timeline's
    // stream fails. Set before writing.
    void onWriteError(std::function<void(const std::string&)> listener) EXCLUDES(mutex_);

    // The providers by index, so that lines written during a ProviderCall name their owner.
    void setProviderNames(std::vector<std::string> names) EXCLUDES(mutex_);
    // Called under the output's lock for every line written with write().
    void observe(std::function<void(const Line&)> observer) EXCLUDES(mutex_);
    bool isJson() const { return json_; }

private:
    struct Fold {
        std::string name;
        std::string detail;
        int64_t repeats = 0;
        int64_t firstNs = 0;
        int64_t lastNs = 0;
    };

    bool shown(const Line& line) const;
    // True when the line is folded into its owner's repeats (nothing to print).
    bool foldedLocked(const Line& line) REQUIRES(mutex_);
    void closeFoldLocked(const std::string& owner, int64_t deviceNs) REQUIRES(mutex_);
    void printLocked(int64_t deviceNs, const std::string& source, const std::string& event,
                     const nlohmann::ordered_json& fields) REQUIRES(mutex_);
    void putLocked(const std::string& text) REQUIRES(mutex_);

    threadsafety::Mutex mutex_;
    FILE* const out_;  // written to under mutex_
    const bool json_;
    const std::function<int64_t()> deviceNow_;
    const TimelineFilter filter_;
    bool failed_ GUARDED_BY(mutex_) = false;  // a write to out_ failed: nothing more goes there
    std::function<void(const std::string&)> onWriteError_ GUARDED_BY(mutex_);
    std::map<std::string, Fold> folds_ GUARDED_BY(mutex_);  // by owner: its last notification
    std::vector<std::string> providerNames_ GUARDED_BY(mutex_);
    std::vector<std::function<void(const Line&)>> observers_ GUARDED_BY(mutex_);
};

// Compact "key=value key=[a, b] key={k=v}" rendering of a JSON value.
std::string summarize(const nlohmann::ordered_json& value);

}  // namespace host
