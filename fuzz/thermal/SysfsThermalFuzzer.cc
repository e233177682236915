// The sysfs thermal HAL's parsing of file contents and directory entry names, on arbitrary
// bytes. Input (parts joined by 0x01 bytes, see FuzzInput.h): a zone's type and temp, a
// cooling device's type and cur_state, a directory entry name, then trip point type/temp pairs.
// The files themselves are only opened and read in one bounded call, so the parsers are fuzzed
// in memory, which keeps a run in microseconds.
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>

#include "FuzzInput.h"
#include "SysfsThermal.h"

namespace {

namespace sysfs = sim::sysfs;

std::optional<std::string> part(const std::vector<std::string_view>& parts, size_t i) {
    if (i >= parts.size()) return std::nullopt;
    return std::string(parts[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzzinput::split(data, size);
    sysfs::ZoneFiles files;
    files.type = part(parts, 0);
    files.temp = part(parts, 1);
    for (size_t i = 5; i < parts.size(); i += 2)
        files.trips.emplace_back(part(parts, i), part(parts, i + 1));

    const auto zone = sysfs::parseZone(files);
    const bool named = files.type && sysfs::parseName(*files.type);
    if (zone.has_value() != named) abort();
    if (zone) {
        const auto& t = zone->temperature;
        if (static_cast<uint32_t>(t.throttlingStatus) > 6 || std::isinf(t.value)) abort();
        if (t.type != sysfs::zoneTypeOf(std::string(t.name))) abort();
        if (!std::isnan(zone->threshold.hotThrottlingThresholds[0])) abort();  // NONE has none
    }
    const auto device = sysfs::parseCoolingDevice(part(parts, 2), part(parts, 3));
    if (device && (device->name.size() == 0 || !sysfs::parseInteger(*part(parts, 3)))) abort();
    if (const auto name = part(parts, 4)) {
        const auto number = sysfs::entryNumber(*name, "thermal_zone");
        if (number && name->rfind("thermal_zone", 0) != 0) abort();
    }
    return 0;
}
