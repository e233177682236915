#include "Output.h"

#include "TextValues.h"

namespace host {

std::string summarize(const nlohmann::ordered_json& value) {
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

void Output::write(int64_t deviceNs, const std::string& source, const std::string& event,
                   const nlohmann::ordered_json& fields) {
    std::string line;
    if (json_) {
        nlohmann::ordered_json object = {{"t", formatDeviceTime(deviceNs)},
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
    std::lock_guard<std::mutex> lock(mutex_);
    fprintf(out_, "%s\n", line.c_str());
    fflush(out_);
}

}  // namespace host
