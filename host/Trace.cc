#include "Trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace host {
namespace {

using json = nlohmann::ordered_json;

constexpr int kHostPid = 1;
constexpr char kHeader[] = "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n";
constexpr char kEnd[] = "\n]}\n";

// Writes all of `text`; false with errno set when a write fails.
bool writeAll(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) errno = EIO;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

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
        int fd, std::string path,
        const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
        ErrorListener onWriteError)
    : fd_(fd), path_(std::move(path)), onWriteError_(std::move(onWriteError)) {
    int pid = kHostPid;
    for (const auto& [name, patterns] : providers) providers_[name] = {++pid, patterns};
    threadsafety::MutexLock lock(mutex_);
    pending_ = kHeader;
    emitLocked(json{
            {"ph", "M"}, {"name", "process_name"}, {"pid", kHostPid}, {"args", {{"name", "host"}}}});
    for (const auto& entry : providers) {
        emitLocked(json{{"ph", "M"},
                        {"name", "process_name"},
                        {"pid", pidOf(entry.first)},
                        {"args", {{"name", entry.first}}}});
    }
    writePendingLocked();
}

TraceWriter::~TraceWriter() {
    close();
}

std::unique_ptr<TraceWriter> TraceWriter::open(
        const std::string& path,
        const std::vector<std::pair<std::string, std::vector<std::string>>>& providers,
        ErrorListener onWriteError, std::string* error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        *error = "cannot write trace file '" + path + "': " + strerror(errno);
        return nullptr;
    }
    return std::make_unique<TraceWriter>(fd, path, providers, std::move(onWriteError));
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
    if (fd_ < 0) return;
    if (!failed_ && !writeAll(fd_, kEnd)) failLocked();
    if (failed_) endAtWholeEventLocked();
    const bool closed = ::close(fd_) == 0;
    fd_ = -1;
    if (!closed) failLocked();
}

void TraceWriter::endAtWholeEventLocked() {
    for (const off_t at : {whole_, wholeBefore_}) {
        // Cutting the file back frees the space the failed write took (a pipe cannot be cut).
        const std::string end = at == 0 ? std::string(kHeader) + kEnd : kEnd;
        if (ftruncate(fd_, at) == 0 && lseek(fd_, at, SEEK_SET) == at && writeAll(fd_, end)) {
            return;
        }
    }
}

void TraceWriter::writePendingLocked() {
    if (failed_) return;
    if (!writeAll(fd_, pending_)) {
        failLocked();
        return;
    }
    wholeBefore_ = whole_;
    whole_ += static_cast<off_t>(pending_.size());
    pending_.clear();
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
    if (!first_) pending_ += ",\n";
    first_ = false;
    pending_ += event.dump();
}

void TraceWriter::add(const Line& line) {
    threadsafety::MutexLock lock(mutex_);
    if (fd_ < 0 || failed_) return;
    addLocked(line);
    writePendingLocked();
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
