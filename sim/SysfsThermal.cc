#include "SysfsThermal.h"

#include <dirent.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "hostplatform/FsRoot.h"

namespace sim {
namespace sysfs {
namespace {

using android::hardware::thermal::V2_0::CoolingType;
using android::hardware::thermal::V2_0::TemperatureType;
using android::hardware::thermal::V2_0::ThrottlingSeverity;

struct ZonePrefix {
    const char* prefix;
    TemperatureType type;
};

// In match order: the BCL zones before anything their names could also start with.
const ZonePrefix kZoneTypes[] = {
        {"vbat", TemperatureType::BCL_VOLTAGE},
        {"ibat", TemperatureType::BCL_CURRENT},
        {"soc", TemperatureType::BCL_PERCENTAGE},
        {"cpu", TemperatureType::CPU},
        {"apc", TemperatureType::CPU},
        {"x86_pkg", TemperatureType::CPU},
        {"gpu", TemperatureType::GPU},
        {"battery", TemperatureType::BATTERY},
        {"bms", TemperatureType::BATTERY},
        {"skin", TemperatureType::SKIN},
        {"xo-therm", TemperatureType::SKIN},
        {"usb", TemperatureType::USB_PORT},
        {"pa-therm", TemperatureType::POWER_AMPLIFIER},
        {"pa_therm", TemperatureType::POWER_AMPLIFIER},
        {"npu", TemperatureType::NPU},
        {"nsp", TemperatureType::NPU},
};

struct CoolingPart {
    const char* part;
    CoolingType type;
};

const CoolingPart kCoolingTypes[] = {
        {"fan", CoolingType::FAN},         {"cpu", CoolingType::CPU},
        {"gpu", CoolingType::GPU},         {"kgsl", CoolingType::GPU},
        {"battery", CoolingType::BATTERY}, {"charge", CoolingType::BATTERY},
        {"modem", CoolingType::MODEM},     {"npu", CoolingType::NPU},
        {"cdsp", CoolingType::NPU},
};

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

bool isBatteryLimit(TemperatureType type) {
    return type == TemperatureType::BCL_VOLTAGE || type == TemperatureType::BCL_CURRENT ||
           type == TemperatureType::BCL_PERCENTAGE;
}

// The severity a trip point of this type stands for; NONE for unknown trip types.
ThrottlingSeverity tripSeverityOf(std::string_view tripType) {
    if (tripType == "active") return ThrottlingSeverity::LIGHT;
    if (tripType == "passive") return ThrottlingSeverity::MODERATE;
    if (tripType == "hot") return ThrottlingSeverity::SEVERE;
    if (tripType == "critical") return ThrottlingSeverity::SHUTDOWN;
    return ThrottlingSeverity::NONE;
}

// Collects the files of one zone or cooling device that could not be used.
class Unusable {
public:
    explicit Unusable(UnusableFiles* out) : out_(out) {}
    void add(std::string file, std::string why) {
        if (out_ != nullptr) out_->emplace_back(std::move(file), std::move(why));
    }

private:
    UnusableFiles* out_;
};

// A zone's value in the kernel's unit (millidegrees, or the battery limit zones' own) into
// `value`; false when the file is absent, or is not a number that unit allows (said to
// `unusable`).
bool zoneValueOf(const std::string& file, const std::optional<std::string>& text,
                 TemperatureType type, Unusable& unusable, int64_t* value) {
    if (!text) return false;
    const auto parsed = parseInteger(*text);
    if (!parsed) {
        unusable.add(file, "not a number: " + quotedValue(*text));
        return false;
    }
    int64_t min = -273150, max = 1000000;  // absolute zero to 1000 degrees
    if (type == TemperatureType::BCL_PERCENTAGE) min = 0, max = 100;
    if (type == TemperatureType::BCL_VOLTAGE) min = 0, max = std::numeric_limits<int64_t>::max();
    if (type == TemperatureType::BCL_CURRENT) {
        min = std::numeric_limits<int64_t>::min(), max = std::numeric_limits<int64_t>::max();
    }
    *value = parsed.value_or(0);
    if (*value >= min && *value <= max) return true;
    unusable.add(file, "out of range: " + quotedValue(*text));
    return false;
}

// The trip points' thresholds, and the severity the zone's value (when `known`) has reached.
void addTrips(const ZoneFiles& files, bool known, int64_t value, float scale, Unusable& unusable,
              Zone& zone) {
    for (size_t i = 0; i < files.trips.size(); ++i) {
        const auto& [tripType, tripTemp] = files.trips[i];
        const std::string trip = "trip_point_" + std::to_string(i);
        const ThrottlingSeverity severity =
                tripSeverityOf(tripType ? parseName(*tripType).value_or("") : "");
        if (tripType && severity == ThrottlingSeverity::NONE) {
            unusable.add(trip + "_type", "not a known value: " + quotedValue(*tripType));
        }
        int64_t at = 0;
        if (!zoneValueOf(trip + "_temp", tripTemp, zone.temperature.type, unusable, &at) ||
            severity == ThrottlingSeverity::NONE) {
            continue;
        }
        float& threshold = zone.threshold.hotThrottlingThresholds[static_cast<size_t>(severity)];
        const float atValue = static_cast<float>(at) / scale;
        if (std::isnan(threshold) || atValue < threshold) threshold = atValue;
        if (known && value >= at && severity > zone.temperature.throttlingStatus) {
            zone.temperature.throttlingStatus = severity;
        }
    }
}

}  // namespace

ThermalHal::TemperatureType zoneTypeOf(std::string_view zoneType) {
    const std::string lower = lowerCase(zoneType);
    for (const auto& entry : kZoneTypes) {
        if (lower.rfind(entry.prefix, 0) == 0) return entry.type;
    }
    return TemperatureType::UNKNOWN;
}

ThermalHal::CoolingType coolingTypeOf(std::string_view deviceType) {
    const std::string lower = lowerCase(deviceType);
    for (const auto& entry : kCoolingTypes) {
        if (lower.find(entry.part) != std::string::npos) return entry.type;
    }
    return CoolingType::COMPONENT;
}

std::optional<Zone> parseZone(const ZoneFiles& files, UnusableFiles* unusableFiles) {
    Unusable unusable(unusableFiles);
    const auto name = files.type ? parseName(*files.type) : std::nullopt;
    if (!name) {
        if (files.type) unusable.add("type", "empty");
        return std::nullopt;
    }
    const TemperatureType type = zoneTypeOf(*name);
    // Degrees from millidegrees; the battery limit zones are already in their own units.
    const float scale = isBatteryLimit(type) ? 1.0f : 1000.0f;
    int64_t value = 0;
    const bool known = zoneValueOf("temp", files.temp, type, unusable, &value);

    Zone zone{};
    zone.temperature.type = type;
    zone.temperature.name = *name;
    zone.temperature.value = known ? static_cast<float>(value) / scale : NAN;
    zone.temperature.throttlingStatus = ThrottlingSeverity::NONE;
    zone.threshold.type = type;
    zone.threshold.name = *name;
    for (size_t i = 0; i < 7; ++i) {
        zone.threshold.hotThrottlingThresholds[i] = NAN;
        zone.threshold.coldThrottlingThresholds[i] = NAN;
    }
    zone.threshold.vrThrottlingThreshold = NAN;
    addTrips(files, known, value, scale, unusable, zone);
    return zone;
}

std::optional<ThermalHal::CoolingDevice> parseCoolingDevice(
        const std::optional<std::string>& type, const std::optional<std::string>& curState,
        UnusableFiles* unusableFiles) {
    Unusable unusable(unusableFiles);
    const auto name = type ? parseName(*type) : std::nullopt;
    if (type && !name) unusable.add("type", "empty");
    if (!curState) return std::nullopt;
    const auto state = parseInteger(*curState);
    if (!state || state.value_or(0) < 0) {
        unusable.add("cur_state",
                     (state ? "negative: " : "not a number: ") + quotedValue(*curState));
        return std::nullopt;
    }
    if (!name) return std::nullopt;
    return ThermalHal::CoolingDevice{coolingTypeOf(*name), *name,
                                     static_cast<uint64_t>(state.value_or(0))};
}

}  // namespace sysfs

namespace {

using android::hardware::thermal::V1_0::ThermalStatus;
using android::hardware::thermal::V1_0::ThermalStatusCode;

constexpr const char kThermalClass[] = "/sys/class/thermal";
constexpr size_t kMaxTrips = 32;

using sysfs::readSmallFile;

std::string hostPath(const std::string& devicePath) {
    return hostplatform::fsRoot() + devicePath;
}

// Entries of the thermal class directory named `prefix` followed by a decimal number, in
// number order. Returns 0, or the errno of a directory that cannot be read.
int numberedEntries(const char* prefix, std::vector<std::string>& names) {
    DIR* dir = opendir(hostPath(kThermalClass).c_str());
    if (dir == nullptr) return errno;
    std::vector<std::pair<uint64_t, std::string>> found;
    while (const dirent* entry = readdir(dir)) {
        if (const auto number = sysfs::entryNumber(entry->d_name, prefix)) {
            found.emplace_back(*number, entry->d_name);
        }
    }
    closedir(dir);
    std::sort(found.begin(), found.end());
    for (auto& entry : found) names.push_back(std::move(entry.second));
    return 0;
}

ThermalStatus unreadableDirectory(int error) {
    return ThermalStatus{ThermalStatusCode::FAILURE,
                         std::string("cannot read ") + kThermalClass + ": " + strerror(error)};
}

ThermalStatus success() {
    return ThermalStatus{ThermalStatusCode::SUCCESS, ""};
}

sysfs::ZoneFiles readZoneFiles(const std::string& directory) {
    sysfs::ZoneFiles files;
    files.type = readSmallFile(directory + "/type");
    files.temp = readSmallFile(directory + "/temp");
    for (size_t i = 0; i < kMaxTrips; ++i) {
        const std::string trip = directory + "/trip_point_" + std::to_string(i);
        auto type = readSmallFile(trip + "_type");
        if (!type) break;  // the kernel numbers trip points without gaps
        files.trips.emplace_back(std::move(type), readSmallFile(trip + "_temp"));
    }
    return files;
}

}  // namespace

// Adds the unusable files of the entry at `directory` to `all`, by device path.
void addUnusable(const std::string& directory, const sysfs::UnusableFiles& files,
                 std::map<std::string, std::string>& all) {
    for (const auto& [file, why] : files) all[directory + "/" + file] = why;
}

ThermalStatus SysfsThermal::readZones(std::vector<std::pair<std::string, sysfs::Zone>>& zones) {
    std::vector<std::string> names;
    if (const int error = numberedEntries("thermal_zone", names)) return unreadableDirectory(error);
    std::map<std::string, std::string> unusable;
    for (const auto& name : names) {
        const std::string directory = std::string(kThermalClass) + "/" + name;
        sysfs::UnusableFiles files;
        auto zone = sysfs::parseZone(readZoneFiles(directory), &files);
        addUnusable(directory, files, unusable);
        if (zone) zones.emplace_back(name, std::move(*zone));
    }
    unusableLog_.report("zones", std::move(unusable));
    return success();
}

ThermalStatus SysfsThermal::readTemperatures(std::vector<Temperature>& out) {
    std::vector<std::pair<std::string, sysfs::Zone>> zones;
    const ThermalStatus status = readZones(zones);
    std::vector<Temperature> risen;
    {
        threadsafety::MutexLock lock(mutex_);
        for (const auto& [directory, zone] : zones) {
            const auto severity = static_cast<int32_t>(zone.temperature.throttlingStatus);
            const auto last = lastSeverity_.find(directory);
            if (last != lastSeverity_.end() && severity > last->second) {
                risen.push_back(zone.temperature);
            }
            lastSeverity_[directory] = severity;
            out.push_back(zone.temperature);
        }
    }
    for (const auto& temperature : risen) deliverThrottling(temperature);
    return status;
}

ThermalStatus SysfsThermal::readThresholds(std::vector<TemperatureThreshold>& out) {
    std::vector<std::pair<std::string, sysfs::Zone>> zones;
    const ThermalStatus status = readZones(zones);
    for (const auto& entry : zones) out.push_back(entry.second.threshold);
    return status;
}

ThermalStatus SysfsThermal::readCoolingDevices(std::vector<CoolingDevice>& out) {
    std::vector<std::string> names;
    if (const int error = numberedEntries("cooling_device", names)) {
        return unreadableDirectory(error);
    }
    std::map<std::string, std::string> unusable;
    for (const auto& name : names) {
        const std::string directory = std::string(kThermalClass) + "/" + name;
        sysfs::UnusableFiles files;
        const auto device = sysfs::parseCoolingDevice(
                readSmallFile(directory + "/type"), readSmallFile(directory + "/cur_state"), &files);
        addUnusable(directory, files, unusable);
        if (device) out.push_back(*device);
    }
    unusableLog_.report("cooling devices", std::move(unusable));
    return success();
}

}  // namespace sim
