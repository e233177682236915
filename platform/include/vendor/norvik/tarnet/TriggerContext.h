// Host stand-in for the trigger service's parcelable vendor.norvik.tarnet.TriggerContext
// (cpp backend shape): public fields in declaration order.
//
// Field names are this stand-in's own; what each carries:
//   triggerName  the trigger's name, e.g. "memory_heartbeat_over_budget:/system/bin/foo"
//   processName  the process the trigger is about (nullable)
//   timestampMs  time of the event in ms; 0 lets the service stamp it on arrival
//   annotations  "key:value" details of the event, in the sender's order (nullable list of
//                nullable strings)
#pragma once

#include <cstdint>
#include <optional>
#include <tuple>
#include <vector>

#include <utils/String16.h>

namespace vendor::norvik::tarnet {

class TriggerContext {
public:
    ::android::String16 triggerName;
    ::std::optional<::android::String16> processName;
    int64_t timestampMs = 0;
    ::std::optional<::std::vector<::std::optional<::android::String16>>> annotations;

    bool operator==(const TriggerContext& other) const {
        return std::tie(triggerName, processName, timestampMs, annotations) ==
               std::tie(other.triggerName, other.processName, other.timestampMs, other.annotations);
    }
    bool operator!=(const TriggerContext& other) const { return !(*this == other); }
};

}  // namespace vendor::norvik::tarnet
