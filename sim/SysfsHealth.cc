#include "SysfsHealth.h"

#include <dirent.h>

#include <algorithm>
#include <limits>

#include "SysfsText.h"
#include "hostplatform/FsRoot.h"

namespace sim {
namespace powersupply {
namespace {

using android::hardware::health::V1_0::BatteryHealth;
using android::hardware::health::V1_0::BatteryStatus;
using android::hardware::health::V2_0::Result;
using android::hardware::health::V2_1::BatteryCapacityLevel;

template <typename Value>
struct Named {
    const char* text;
    Value value;
};

const Named<SupplyType> kSupplyTypes[] = {
        {"Battery", SupplyType::Battery}, {"Mains", SupplyType::Ac},
        {"UPS", SupplyType::Ac},          {"USB_DCP", SupplyType::Ac},
        {"USB_HVDCP", SupplyType::Ac},    {"USB_CDP", SupplyType::Ac},
        {"USB_ACA", SupplyType::Ac},      {"USB_C", SupplyType::Ac},
        {"USB_PD", SupplyType::Ac},       {"USB", SupplyType::Usb},
        {"USB_PD_DRP", SupplyType::Usb},  {"Wireless", SupplyType::Wireless},
        {"Dock", SupplyType::Dock},
};

const Named<BatteryStatus> kStatuses[] = {
        {"Unknown", BatteryStatus::UNKNOWN},
        {"Charging", BatteryStatus::CHARGING},
        {"Discharging", BatteryStatus::DISCHARGING},
        {"Not charging", BatteryStatus::NOT_CHARGING},
        {"Full", BatteryStatus::FULL},
};

const Named<BatteryHealth> kHealths[] = {
        {"Unknown", BatteryHealth::UNKNOWN},
        {"Good", BatteryHealth::GOOD},
        {"Overheat", BatteryHealth::OVERHEAT},
        {"Dead", BatteryHealth::DEAD},
        {"Over voltage", BatteryHealth::OVER_VOLTAGE},
        {"Unspecified failure", BatteryHealth::UNSPECIFIED_FAILURE},
        {"Cold", BatteryHealth::COLD},
        {"Warm", BatteryHealth::GOOD},
        {"Cool", BatteryHealth::GOOD},
        {"Hot", BatteryHealth::OVERHEAT},
};

const Named<BatteryCapacityLevel> kCapacityLevels[] = {
        {"Unknown", BatteryCapacityLevel::UNKNOWN}, {"Critical", BatteryCapacityLevel::CRITICAL},
        {"Low", BatteryCapacityLevel::LOW},         {"Normal", BatteryCapacityLevel::NORMAL},
        {"High", BatteryCapacityLevel::HIGH},       {"Full", BatteryCapacityLevel::FULL},
};

// The first line of `text` without trailing blanks.
std::string_view firstLine(std::string_view text) {
    text = text.substr(0, text.find('\n'));
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

// The value named by the first line of `text`, if the table has it.
template <typename Value, size_t N>
std::optional<Value> lookUp(const Named<Value> (&table)[N], std::string_view text) {
    const std::string_view name = firstLine(text);
    for (const auto& entry : table) {
        if (name == entry.text) return entry.value;
    }
    return std::nullopt;
}

// The values a numeric attribute may take; the others are out of range.
struct Range {
    int64_t min, max;
};
constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr Range kSigned = {kInt32Min, kInt32Max};
constexpr Range kNotNegative = {0, kInt32Max};

Range rangeOf(Attribute attribute) {
    switch (attribute) {
        case kCapacity:
            return {0, 100};
        case kTemp:
            return {-2731, kInt32Max};  // tenths of a degree, not below absolute zero
        case kCurrentNow:
        case kCurrentAvg:
            return kSigned;
        default:
            return kNotNegative;
    }
}

// Collects the files a reading could not use.
class Unusable {
public:
    explicit Unusable(std::vector<UnusableFile>* out) : out_(out) {}
    void add(size_t supply, Attribute attribute, std::string why) {
        if (out_ != nullptr) out_->push_back({supply, attribute, std::move(why)});
    }

private:
    std::vector<UnusableFile>* out_;
};

// The attribute of supply `index` as a number in its range; empty when absent or unusable (said
// to `unusable`).
std::optional<int32_t> numberOf(const SupplyFiles& files, size_t index, Attribute attribute,
                                Unusable& unusable) {
    if (!files[attribute]) return std::nullopt;
    const std::string& text = *files[attribute];
    const auto parsed = sysfs::parseInteger(text);
    const Range range = rangeOf(attribute);
    if (!parsed) {
        unusable.add(index, attribute, "not a number: " + sysfs::quotedValue(text));
    } else if (*parsed < range.min || *parsed > range.max) {
        unusable.add(index, attribute,
                     "out of range: " + sysfs::quotedValue(text) + " (" +
                             std::to_string(range.min) + " to " + std::to_string(range.max) + ")");
    } else {
        return static_cast<int32_t>(*parsed);
    }
    return std::nullopt;
}

// A text attribute of supply `index` looked up in `table`; empty when absent or unknown (said
// to `unusable`).
template <typename Value, size_t N>
std::optional<Value> namedValueOf(const Named<Value> (&table)[N], const SupplyFiles& files,
                                  size_t index, Attribute attribute, Unusable& unusable) {
    if (!files[attribute]) return std::nullopt;
    const auto value = lookUp(table, *files[attribute]);
    if (!value)
        unusable.add(index, attribute,
                     "not a known value: " + sysfs::quotedValue(*files[attribute]));
    return value;
}

// Each battery attribute from the first battery supply that has its file.
class Battery {
public:
    Battery(const std::vector<SupplyFiles>& supplies, const std::vector<size_t>& batteries,
            Unusable& unusable)
        : supplies_(supplies), batteries_(batteries), unusable_(unusable) {}

    // The index of the battery supply with this attribute's file, if any.
    std::optional<size_t> holder(Attribute attribute) const {
        for (const size_t index : batteries_) {
            if (supplies_[index][attribute]) return index;
        }
        return std::nullopt;
    }
    const std::string* text(Attribute attribute) const {
        const auto index = holder(attribute);
        return index ? &*supplies_[*index][attribute] : nullptr;
    }
    std::optional<int32_t> number(Attribute attribute) const {
        const auto index = holder(attribute);
        return index ? numberOf(supplies_[*index], *index, attribute, unusable_) : std::nullopt;
    }
    // The single-value getter's answer for this attribute.
    HealthValue value(Attribute attribute) const {
        if (!holder(attribute)) return {};
        const auto read = number(attribute);
        return read ? HealthValue(*read) : HealthValue::unreadable();
    }
    template <typename Value, size_t N>
    std::optional<Value> named(const Named<Value> (&table)[N], Attribute attribute) const {
        const auto index = holder(attribute);
        return index ? namedValueOf(table, supplies_[*index], *index, attribute, unusable_)
                     : std::nullopt;
    }
    // A flag file ("1", "0"): true when it starts with anything but '0'.
    std::optional<bool> flag(Attribute attribute) const {
        const auto index = holder(attribute);
        if (!index) return std::nullopt;
        const std::string& text = *supplies_[*index][attribute];
        if (text.empty()) unusable_.add(*index, attribute, "empty");
        return !text.empty() && text[0] != '0';
    }
    bool any() const { return !batteries_.empty(); }

private:
    const std::vector<SupplyFiles>& supplies_;
    const std::vector<size_t>& batteries_;
    Unusable& unusable_;
};

bool startsOnline(const SupplyFiles& files, size_t index, Unusable& unusable) {
    const auto& online = files[kOnline];
    if (online && online->empty()) unusable.add(index, kOnline, "empty");
    return online && !online->empty() && (*online)[0] != '0';
}

bool isDeviceScoped(const SupplyFiles& files) {
    return files[kScope] && firstLine(*files[kScope]) == "Device";
}

// The bus voltage assumed for a charger that does not report its own, µV.
constexpr int32_t kVbusMicrovolts = 5000000;

}  // namespace

SupplyType supplyTypeOf(std::string_view typeText) {
    return lookUp(kSupplyTypes, typeText).value_or(SupplyType::Unknown);
}

BatteryStatus statusOf(std::string_view text) {
    return lookUp(kStatuses, text).value_or(BatteryStatus::UNKNOWN);
}

BatteryHealth healthOf(std::string_view text) {
    return lookUp(kHealths, text).value_or(BatteryHealth::UNKNOWN);
}

BatteryCapacityLevel capacityLevelOf(std::string_view text) {
    return lookUp(kCapacityLevels, text).value_or(BatteryCapacityLevel::UNSUPPORTED);
}

const char* const kAttributeFiles[kAttributeCount] = {
        "type",           "online",         "present",     "status",
        "health",         "capacity",       "current_now", "current_avg",
        "voltage_now",    "charge_counter", "charge_full", "charge_full_design",
        "cycle_count",    "temp",           "technology",  "time_to_full_now",
        "capacity_level", "current_max",    "voltage_max", "scope",
};

namespace {

// The charger flags and the limits of the most powerful online charger; the indices of the
// system's batteries (a device's own battery, a controller's or a stylus's, does not power it).
std::vector<size_t> readChargers(const std::vector<SupplyFiles>& supplies, HealthReading& reading,
                                 Unusable& unusable) {
    auto& legacy = reading.info.legacy.legacy;
    std::vector<size_t> batteries;
    double maxPowerWatts = 0;
    for (size_t i = 0; i < supplies.size(); ++i) {
        const SupplyFiles& files = supplies[i];
        if (!files[kType]) continue;
        const SupplyType kind = supplyTypeOf(*files[kType]);
        if (kind == SupplyType::Battery && !isDeviceScoped(files)) batteries.push_back(i);
        if (kind == SupplyType::Battery || kind == SupplyType::Unknown ||
            !startsOnline(files, i, unusable)) {
            continue;
        }
        legacy.chargerAcOnline |= kind == SupplyType::Ac;
        legacy.chargerUsbOnline |= kind == SupplyType::Usb;
        legacy.chargerWirelessOnline |= kind == SupplyType::Wireless;
        // One without voltage_max counts as a 5 V bus.
        const int32_t current = numberOf(files, i, kCurrentMax, unusable).value_or(0);
        const int32_t voltage = files[kVoltageMax]
                                        ? numberOf(files, i, kVoltageMax, unusable).value_or(0)
                                        : kVbusMicrovolts;
        const double watts = (current / 1e6) * (voltage / 1e6);
        if (maxPowerWatts < watts) {
            legacy.maxChargingCurrent = current;
            legacy.maxChargingVoltage = voltage;
            maxPowerWatts = watts;
        }
    }
    return batteries;
}

void readBattery(const Battery& battery, HealthReading& reading) {
    auto& info = reading.info;
    auto& legacy = info.legacy.legacy;
    legacy.batteryPresent = battery.flag(kPresent).value_or(battery.any());
    legacy.batteryStatus = battery.named(kStatuses, kStatus).value_or(BatteryStatus::UNKNOWN);
    legacy.batteryHealth = battery.named(kHealths, kHealth).value_or(BatteryHealth::UNKNOWN);
    info.batteryCapacityLevel = battery.named(kCapacityLevels, kCapacityLevel)
                                        .value_or(BatteryCapacityLevel::UNSUPPORTED);
    if (const std::string* technology = battery.text(kTechnology)) {
        legacy.batteryTechnology = sysfs::parseName(*technology).value_or("");
    }
    reading.capacityPercent = battery.value(kCapacity);
    reading.currentNowUa = battery.value(kCurrentNow);
    reading.currentAverageUa = battery.value(kCurrentAvg);
    reading.chargeCounterUah = battery.value(kChargeCounter);
    if (reading.capacityPercent.result == Result::UNKNOWN) reading.infoResult = Result::UNKNOWN;
    legacy.batteryLevel = reading.capacityPercent.value;
    legacy.batteryCurrent = reading.currentNowUa.value;
    legacy.batteryChargeCounter = reading.chargeCounterUah.value;
    legacy.batteryVoltage = battery.number(kVoltageNow).value_or(0) / 1000;
    legacy.batteryTemperature = battery.number(kTemp).value_or(0);
    legacy.batteryCycleCount = battery.number(kCycleCount).value_or(0);
    legacy.batteryFullCharge = battery.number(kChargeFull).value_or(0);
    info.legacy.batteryCurrentAverage = reading.currentAverageUa.value;
    info.batteryFullChargeDesignCapacityUah = battery.number(kChargeFullDesign).value_or(0);
    info.batteryChargeTimeToFullNowSeconds = battery.number(kTimeToFullNow).value_or(-1);
}

}  // namespace

HealthReading readingOf(const std::vector<SupplyFiles>& supplies,
                        std::vector<UnusableFile>* unusable) {
    HealthReading reading;
    auto& info = reading.info;
    info.legacy.legacy.batteryStatus = BatteryStatus::UNKNOWN;
    info.legacy.legacy.batteryHealth = BatteryHealth::UNKNOWN;
    info.batteryCapacityLevel = BatteryCapacityLevel::UNSUPPORTED;
    info.batteryChargeTimeToFullNowSeconds = -1;
    Unusable found(unusable);
    const std::vector<size_t> batteries = readChargers(supplies, reading, found);
    readBattery(Battery(supplies, batteries, found), reading);
    return reading;
}

}  // namespace powersupply

namespace {

constexpr const char kPowerSupplyClass[] = "/sys/class/power_supply";

// Every supply directory's name, in name order; none when the class is unreadable.
std::vector<std::string> supplyNames() {
    std::vector<std::string> names;
    if (DIR* dir = opendir((hostplatform::fsRoot() + kPowerSupplyClass).c_str())) {
        while (const dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string attributePath(const std::string& supply, size_t attribute) {
    return std::string(kPowerSupplyClass) + "/" + supply + "/" +
           powersupply::kAttributeFiles[attribute];
}

}  // namespace

HealthReading SysfsHealth::read() {
    const std::vector<std::string> names = supplyNames();
    std::vector<powersupply::SupplyFiles> supplies(names.size());
    for (size_t s = 0; s < names.size(); ++s) {
        for (size_t i = 0; i < powersupply::kAttributeCount; ++i) {
            supplies[s][i] = sysfs::readSmallFile(attributePath(names[s], i));
        }
    }
    std::vector<powersupply::UnusableFile> found;
    HealthReading reading = powersupply::readingOf(supplies, &found);
    std::map<std::string, std::string> unusable;
    for (const auto& file : found) {
        unusable[attributePath(names[file.supply], file.attribute)] = file.why;
    }
    unusable_.report("supplies", std::move(unusable));
    return reading;
}

}  // namespace sim
