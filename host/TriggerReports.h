// Prints every report the simulated trigger service receives as a "trigger-report" line of the
// timeline (source "TriggerService") while an instance exists.
#pragma once

#include <nlohmann/json.hpp>

#include "Output.h"
#include "TriggerService.h"

namespace host {

class TriggerReportPrinter {
public:
    explicit TriggerReportPrinter(Output& output);
    ~TriggerReportPrinter();
    TriggerReportPrinter(const TriggerReportPrinter&) = delete;
    TriggerReportPrinter& operator=(const TriggerReportPrinter&) = delete;
};

// {"trigger": ..., "process": ..., "timestampMs": ..., "annotations": [...]}; absent optionals
// are null.
nlohmann::ordered_json renderTriggerReport(const sim::TriggerContext& context);

}  // namespace host
