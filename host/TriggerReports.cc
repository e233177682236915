#include "TriggerReports.h"

#include <utils/String8.h>

namespace host {
namespace {

using json = nlohmann::ordered_json;

std::string utf8(const android::String16& text) {
    const android::String8 converted(text);
    return std::string(converted.string(), converted.size());
}

json optionalText(const std::optional<android::String16>& text) {
    return text ? json(utf8(*text)) : json(nullptr);
}

}  // namespace

json renderTriggerReport(const sim::TriggerContext& context) {
    json annotations = nullptr;
    if (context.annotations) {
        annotations = json::array();
        for (const auto& item : *context.annotations) annotations.push_back(optionalText(item));
    }
    return json{{"trigger", utf8(context.triggerName)},
                {"process", optionalText(context.processName)},
                {"timestampMs", context.timestampMs},
                {"annotations", annotations}};
}

TriggerReportPrinter::TriggerReportPrinter(Output& output) {
    sim::setTriggerReportListener([&output](const sim::TriggerContext& context) {
        output.write("TriggerService", "trigger-report", renderTriggerReport(context));
    });
}

TriggerReportPrinter::~TriggerReportPrinter() {
    sim::setTriggerReportListener(nullptr);
}

}  // namespace host
