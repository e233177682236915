#include "Output.h"

#include <cerrno>
#include <cstring>

#include "HostSideWork.h"
#include "ProviderCall.h"
#include "TextValues.h"

namespace host {

namespace {

using json = nlohmann::ordered_json;

std::string fieldText(const json& fields, const char* key) {
    const auto found = fields.find(key);
    return found != fields.end() && found->is_string() ? found->get<std::string>() : "";
}

}  // namespace

std::string summarize(const json& value) {
    if (value.is_object()) {
        std::string text;
        for (auto it = value.begin(); it != value.end(); ++it) {
            if (!text.empty()) text += ' ';
            const bool nested = it.value().is_object();
            text += it.key() + "=" + (nested ? "{" : "") + summarize(it.value()) +
                    (nested ? "}" : "");
        }
        return text;
    }
    if (value.is_array()) {
        std::string text = "[";
        for (size_t i = 0; i < value.size(); ++i) {
            text += (i ? ", " : "") + summarize(value[i]);
        }
        return text + "]";
    }
    if (value.is_string()) return value.get<std::string>();
    return value.dump();
}

const std::vector<std::string>& lineKinds() {
    static const std::vector<std::string> kinds = {
            "acquire",        "release",      "notification", "fetch", "record",
            "push",           "push (force)", "host-event",   "hook",  "log",
            "trigger-report", "repeated",     "summary"};
    return kinds;
}

Output::Output(FILE* out, bool json, std::function<int64_t()> deviceNow, TimelineFilter filter)
    : out_(out), json_(json), deviceNow_(std::move(deviceNow)), filter_(std::move(filter)) {}

void Output::setProviderNames(std::vector<std::string> names) {
    threadsafety::MutexLock lock(mutex_);
    providerNames_ = std::move(names);
}

void Output::observe(std::function<void(const Line&)> observer) {
    threadsafety::MutexLock lock(mutex_);
    observers_.push_back(std::move(observer));
}

void Output::onWriteError(std::function<void(const std::string&)> listener) {
    threadsafety::MutexLock lock(mutex_);
    onWriteError_ = std::move(listener);
}

void Output::write(const std::string& source, const std::string& event, const json& fields) {
    write(source, event, fields, std::string());
}

void Output::write(const std::string& source, const std::string& event, const json& fields,
                   const std::string& owner) {
    const sim::HostSideWork printing;  // the host's work, even when a provider's call caused it
    const size_t caller = ProviderCall::current();
    threadsafety::MutexLock lock(mutex_);
    const std::string& resolved = !owner.empty()                   ? owner
                                  : caller < providerNames_.size() ? providerNames_[caller]
                                                                   : source;
    const Line line{deviceNow_(), source, event, fields, resolved};
    for (const auto& observer : observers_) observer(line);
    if (!shown(line) || foldedLocked(line)) return;
    printLocked(line.deviceNs, source, event, fields);
}

void Output::writeUnfiltered(const std::string& source, const std::string& event,
                             const json& fields) {
    threadsafety::MutexLock lock(mutex_);
    printLocked(deviceNow_(), source, event, fields);
}

void Output::writeRaw(const std::string& text) {
    threadsafety::MutexLock lock(mutex_);
    putLocked(text);
}

bool Output::shown(const Line& line) const {
    const auto& hide = filter_.hide;
    if (hide.count(line.source) || hide.count(line.event) ||
        hide.count(fieldText(line.fields, "name"))) {
        return false;
    }
    return filter_.only.empty() || filter_.only.count(line.owner) != 0;
}

bool Output::foldedLocked(const Line& line) {
    // What a sample read comes between its owner's notifications without breaking a fold.
    if (!filter_.fold || line.event == "sample") return false;
    const bool notification = line.event == "notification";
    if (notification) {
        const auto found = folds_.find(line.owner);
        const std::string name = fieldText(line.fields, "name");
        const std::string detail = fieldText(line.fields, "detail");
        if (found != folds_.end() && found->second.name == name && found->second.detail == detail) {
            Fold& fold = found->second;
            if (fold.repeats++ == 0) fold.firstNs = line.deviceNs;
            fold.lastNs = line.deviceNs;
            return true;
        }
        closeFoldLocked(line.owner, line.deviceNs);
        folds_[line.owner] = Fold{name, detail};
        return false;
    }
    closeFoldLocked(line.owner, line.deviceNs);
    folds_.erase(line.owner);
    return false;
}

void Output::closeFoldLocked(const std::string& owner, int64_t deviceNs) {
    const auto found = folds_.find(owner);
    if (found == folds_.end() || found->second.repeats == 0) return;
    Fold& fold = found->second;
    printLocked(deviceNs, owner, "repeated",
                json{{"name", fold.name},
                     {"detail", fold.detail},
                     {"count", fold.repeats},
                     {"first", formatDeviceTime(fold.firstNs)},
                     {"last", formatDeviceTime(fold.lastNs)}});
    fold.repeats = 0;
}

void Output::endTimeline() {
    threadsafety::MutexLock lock(mutex_);
    const int64_t deviceNs = deviceNow_();
    for (auto& entry : folds_) closeFoldLocked(entry.first, deviceNs);
    folds_.clear();
}

void Output::printLocked(int64_t deviceNs, const std::string& source, const std::string& event,
                         const json& fields) {
    std::string line;
    if (json_) {
        json object = {{"t", formatDeviceTime(deviceNs)},
                       {"t_ns", deviceNs},
                       {"source", source},
                       {"event", event}};
        object.update(fields);
        line = object.dump();
    } else {
        char head[96];
        snprintf(head, sizeof(head), "%13s  %-21s %-13s", formatDeviceTime(deviceNs).c_str(),
                 source.c_str(), event.c_str());
        line = std::string(head) + " " + summarize(fields);
    }
    putLocked(line + "\n");
}

void Output::putLocked(const std::string& text) {
    if (failed_) return;
    if (fputs(text.c_str(), out_) >= 0 && fflush(out_) == 0) return;
    failed_ = true;
    if (onWriteError_) onWriteError_(std::string("cannot write the timeline: ") + strerror(errno));
}

}  // namespace host
