#include "Trace.h"

#include <cerrno>
#include <cstring>

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr int kHostPid = 1;

std::vector<std::string> splitPath(const std::string& pattern) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t slash; (slash = pattern.find('/', start)) != std::string::npos; start = slash + 1) {
        parts.push_back(pattern.substr(start, slash - start));
    }
    parts.push_back(pattern.substr(start));
    return parts;
}

using Counters = std::vector<std::pair<std::string, double>>;

// Track names join the keys of a path with blanks: "temperatures cpu-0 current".
std::string joined(const std::string& path, const std::string& part) {
    return path.empty() ? part : path + " " + part;
}

// The name an array element gives its track: its "name" field, else its index.
std::string elementName(const json& element, size_t index) {
    if (element.is_object()) {
        const auto name = element.find("name");
        if (name != element.end() && name->is_string()) return name->get<std::string>();
    }
    return std::to_string(index);
}

// Every number under `value` (booleans excluded), named by its path.
void allNumbers(const json& value, const std::string& path, Counters& out) {
    if (value.is_number()) {
        out.emplace_back(path, value.get<double>());
    } else if (value.is_object()) {
        for (auto it = value.begin(); it != value.end(); ++it) {
            allNumbers(it.value(), joined(path, it.key()), out);
        }
    } else if (value.is_array()) {
        for (size_t i = 0; i < value.size(); ++i) {
            allNumbers(value[i], joined(path, elementName(value[i], i)), out);
        }
    }
}

void matching(const json& value, const std::vector<std::string>& parts, size_t at,
              const std::string& path, Counters& out) {
    if (at == parts.size()) {
        if (value.is_number()) out.emplace_back(path, value.get<double>());
        if (value.is_boolean()) out.emplace_back(path, value.get<bool>() ? 1.0 : 0.0);
        return;
    }
    const std::string& part = parts[at];
    if (value.is_object()) {
        for (auto it = value.begin(); it != value.end(); ++it) {
            if (part == "*" || part == it.key()) {
                matching(it.value(), parts, at + 1, joined(path, it.key()), out);
            }
        }
    } else if (value.is_array()) {
        for (size_t i = 0; i < value.size(); ++i) {
            if (part == "*" || part == std::to_string(i)) {
                matching(value[i], parts, at + 1, joined(path, elementName(value[i], i)), out);
            }
        }
    }
}

}  // namespace

Counters recordCounters(const json& record, const std::vector<std::string>& patterns) {
    Counters counters;
    for (const auto& pattern : patterns) {
        if (pattern == "**") {
            allNumbers(record, "", counters);
        } else {
            matching(record, splitPath(pattern), 0, "", counters);
        }
    }
    return counters;
}

TraceWriter::TraceWriter(
        FILE* out, std::string path,
        const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
        ErrorListener onWriteError)
    : out_(out), path_(std::move(path)), onWriteError_(std::move(onWriteError)) {
    int pid = kHostPid;
    for (const auto& [name, patterns] : providers) providers_[name] = {++pid, patterns};
    threadsafety::MutexLock lock(mutex_);
    fputs("{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n", out_);
    emitLocked(json{
            {"ph", "M"}, {"name", "process_name"}, {"pid", kHostPid}, {"args", {{"name", "host"}}}});
    for (const auto& entry : providers) {
        emitLocked(json{{"ph", "M"},
                        {"name", "process_name"},
                        {"pid", pidOf(entry.first)},
                        {"args", {{"name", entry.first}}}});
    }
    flushLocked();
}

TraceWriter::~TraceWriter() {
    close();
}

std::unique_ptr<TraceWriter> TraceWriter::open(
        const std::string& path,
        const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
        ErrorListener onWriteError, std::string* error) {
    FILE* out = fopen(path.c_str(), "we");
    if (out == nullptr) {
        *error = "cannot write trace file '" + path + "': " + strerror(errno);
        return nullptr;
    }
    return std::make_unique<TraceWriter>(out, path, providers, std::move(onWriteError));
}

void TraceWriter::close() {
    threadsafety::MutexLock lock(mutex_);
    closeLocked();
}

void TraceWriter::closeIfIdle() {
    if (!mutex_.try_lock()) return;
    closeLocked();
    mutex_.unlock();
}

void TraceWriter::closeLocked() {
    if (out_ == nullptr) return;
    if (!failed_) fputs("\n]}\n", out_);
    const bool closed = fclose(out_) == 0;
    out_ = nullptr;
    if (!closed) failLocked();
}

void TraceWriter::flushLocked() {
    if (!failed_ && fflush(out_) != 0) failLocked();
}

void TraceWriter::failLocked() {
    if (failed_) return;
    failed_ = true;
    if (onWriteError_) onWriteError_("cannot write trace file '" + path_ + "': " + strerror(errno));
}

int TraceWriter::pidOf(const std::string& owner) const {
    const auto found = providers_.find(owner);
    return found == providers_.end() ? kHostPid : found->second.first;
}

void TraceWriter::emitLocked(const json& event) {
    fputs(first_ ? "" : ",\n", out_);
    first_ = false;
    fputs(event.dump().c_str(), out_);
}

void TraceWriter::add(const Line& line) {
    threadsafety::MutexLock lock(mutex_);
    if (out_ == nullptr || failed_) return;
    addLocked(line);
    flushLocked();
}

void TraceWriter::addLocked(const Line& line) {
    const int64_t us = line.deviceNs / 1000;
    const int pid = pidOf(line.owner);
    if (line.event == "record") {
        const auto found = providers_.find(line.owner);
        if (found == providers_.end()) return;
        for (const auto& [track, value] : recordCounters(line.fields, found->second.second)) {
            emitLocked(json{{"ph", "C"},
                            {"name", track},
                            {"pid", pid},
                            {"tid", pid},
                            {"ts", us},
                            {"args", {{"value", value}}}});
        }
        return;
    }
    const bool push = line.event.rfind("push", 0) == 0;
    if (line.event != "notification" && line.event != "host-event" && !push) return;
    json args = {{"detail", line.fields.value("detail", std::string())}};
    if (push) args["force"] = line.event == "push (force)";
    emitLocked(json{{"ph", "i"},
                    {"name", line.fields.value("name", std::string())},
                    {"cat", push ? "push" : line.event},
                    {"s", pid == kHostPid ? "g" : "p"},
                    {"pid", pid},
                    {"tid", pid},
                    {"ts", us},
                    {"args", args}});
}

}  // namespace host
