// The sysfs thermal HAL over arbitrary file contents, through a temporary file-system root.
// Input (parts joined by 0x01 bytes, see memory/FuzzFiles.h): thermal_zone0's type and temp,
// cooling_device0's type and cur_state, then trip point type/temp pairs (at most kTrips).
#include <cmath>
#include <cstdlib>

#include "../memory/FuzzFiles.h"
#include "SysfsThermal.h"

namespace {

using Status = android::hardware::thermal::V1_0::ThermalStatus;
using Code = android::hardware::thermal::V1_0::ThermalStatusCode;
using Severity = android::hardware::thermal::V2_0::ThrottlingSeverity;

constexpr size_t kTrips = 4;
const std::string kZone = "/sys/class/thermal/thermal_zone0/";
const std::string kDevice = "/sys/class/thermal/cooling_device0/";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const memfuzz::Root root;
    static const android::sp<sim::SysfsThermal> hal = new sim::SysfsThermal;
    const auto parts = memfuzz::split(data, size);
    root.put(kZone + "type", parts, 0);
    root.put(kZone + "temp", parts, 1);
    root.put(kDevice + "type", parts, 2);
    root.put(kDevice + "cur_state", parts, 3);
    for (size_t i = 0; i < kTrips; ++i) {
        const std::string trip = kZone + "trip_point_" + std::to_string(i);
        root.put(trip + "_type", parts, 4 + 2 * i);
        root.put(trip + "_temp", parts, 5 + 2 * i);
    }

    const bool named = parts.size() > 0 && sim::sysfs::parseName(parts[0]).has_value();
    hal->getCurrentTemperatures(false, {}, [&](const Status& status, const auto& list) {
        if (status.code != Code::SUCCESS || list.size() != (named ? 1u : 0u)) abort();
        if (named &&
            (static_cast<uint32_t>(list[0].throttlingStatus) > 6 || std::isinf(list[0].value))) {
            abort();
        }
    });
    // The thresholds come from the same parse; checked on the parts themselves.
    sim::sysfs::ZoneFiles files;
    if (parts.size() > 0) files.type = std::string(parts[0]);
    if (parts.size() > 1) files.temp = std::string(parts[1]);
    for (size_t i = 4; i + 1 < parts.size() && files.trips.size() < kTrips; i += 2) {
        files.trips.emplace_back(std::string(parts[i]), std::string(parts[i + 1]));
    }
    const auto zone = sim::sysfs::parseZone(files);
    if (zone.has_value() != named) abort();
    if (zone && !std::isnan(zone->threshold.hotThrottlingThresholds[0])) abort();  // NONE: none
    hal->getCurrentCoolingDevices(false, {}, [&](const Status& status, const auto& list) {
        if (status.code != Code::SUCCESS || list.size() > 1) abort();
    });
    return 0;
}
