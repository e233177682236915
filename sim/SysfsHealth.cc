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

// The value named by the first line of `text`, or `otherwise`.
template <typename Value, size_t N>
Value lookUp(const Named<Value> (&table)[N], std::string_view text, Value otherwise) {
    const std::string_view name = firstLine(text);
    for (const auto& entry : table) {
        if (name == entry.text) return entry.value;
    }
    return otherwise;
}

// Each battery attribute from the first battery supply that has it.
class Battery {
public:
    explicit Battery(const std::vector<const SupplyFiles*>& batteries) : batteries_(batteries) {}

    const std::string* text(Attribute attribute) const {
        for (const SupplyFiles* files : batteries_) {
            if ((*files)[attribute]) return &*(*files)[attribute];
        }
        return nullptr;
    }
    // The attribute as a number clamped to 32 bits; empty when absent or not a number.
    std::optional<int32_t> number(Attribute attribute) const {
        const std::string* value = text(attribute);
        const auto parsed = value ? sysfs::parseInteger(*value) : std::nullopt;
        if (!parsed) return std::nullopt;
        return static_cast<int32_t>(std::clamp<int64_t>(
                *parsed, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
    }
    bool any() const { return !batteries_.empty(); }

private:
    std::vector<const SupplyFiles*> batteries_;
};

bool startsOnline(const SupplyFiles& files) {
    const auto& online = files[kOnline];
    return online && !online->empty() && (*online)[0] != '0';
}

bool isDeviceScoped(const SupplyFiles& files) {
    return files[kScope] && firstLine(*files[kScope]) == "Device";
}

// The bus voltage assumed for a charger that does not report its own, µV.
constexpr int32_t kVbusMicrovolts = 5000000;

int32_t numberIn(const SupplyFiles& files, Attribute attribute) {
    const auto& text = files[attribute];
    const auto parsed = text ? sysfs::parseInteger(*text) : std::nullopt;
    return static_cast<int32_t>(
            std::clamp<int64_t>(parsed.value_or(0), 0, std::numeric_limits<int32_t>::max()));
}

}  // namespace

SupplyType supplyTypeOf(std::string_view typeText) {
    return lookUp(kSupplyTypes, typeText, SupplyType::Unknown);
}

BatteryStatus statusOf(std::string_view text) {
    return lookUp(kStatuses, text, BatteryStatus::UNKNOWN);
}

BatteryHealth healthOf(std::string_view text) {
    return lookUp(kHealths, text, BatteryHealth::UNKNOWN);
}

BatteryCapacityLevel capacityLevelOf(std::string_view text) {
    return lookUp(kCapacityLevels, text, BatteryCapacityLevel::UNSUPPORTED);
}

const char* const kAttributeFiles[kAttributeCount] = {
        "type",           "online",         "present",     "status",
        "health",         "capacity",       "current_now", "current_avg",
        "voltage_now",    "charge_counter", "charge_full", "charge_full_design",
        "cycle_count",    "temp",           "technology",  "time_to_full_now",
        "capacity_level", "current_max",    "voltage_max", "scope",
};

HealthReading readingOf(const std::vector<SupplyFiles>& supplies) {
    HealthReading reading;
    auto& info = reading.info;
    auto& legacy = info.legacy.legacy;
    legacy.batteryStatus = BatteryStatus::UNKNOWN;
    legacy.batteryHealth = BatteryHealth::UNKNOWN;
    info.batteryCapacityLevel = BatteryCapacityLevel::UNSUPPORTED;
    info.batteryChargeTimeToFullNowSeconds = -1;

    std::vector<const SupplyFiles*> batteries;
    double maxPowerWatts = 0;
    for (const SupplyFiles& files : supplies) {
        if (!files[kType]) continue;
        const SupplyType kind = supplyTypeOf(*files[kType]);
        // A device's own battery (a controller's, a stylus's) does not power the system.
        if (kind == SupplyType::Battery && !isDeviceScoped(files)) batteries.push_back(&files);
        if (kind == SupplyType::Battery || kind == SupplyType::Unknown || !startsOnline(files)) {
            continue;
        }
        legacy.chargerAcOnline |= kind == SupplyType::Ac;
        legacy.chargerUsbOnline |= kind == SupplyType::Usb;
        legacy.chargerWirelessOnline |= kind == SupplyType::Wireless;
        // The limits are those of the most powerful online charger; one without voltage_max
        // counts as a 5 V bus.
        const int32_t current = numberIn(files, kCurrentMax);
        const int32_t voltage = files[kVoltageMax] ? numberIn(files, kVoltageMax) : kVbusMicrovolts;
        const double watts = (current / 1e6) * (voltage / 1e6);
        if (maxPowerWatts < watts) {
            legacy.maxChargingCurrent = current;
            legacy.maxChargingVoltage = voltage;
            maxPowerWatts = watts;
        }
    }

    const Battery battery(batteries);
    if (const std::string* present = battery.text(kPresent)) {
        legacy.batteryPresent = !present->empty() && (*present)[0] != '0';
    } else {
        legacy.batteryPresent = battery.any();
    }
    if (const std::string* status = battery.text(kStatus)) legacy.batteryStatus = statusOf(*status);
    if (const std::string* health = battery.text(kHealth)) legacy.batteryHealth = healthOf(*health);
    if (const std::string* level = battery.text(kCapacityLevel)) {
        info.batteryCapacityLevel = capacityLevelOf(*level);
    }
    if (const std::string* technology = battery.text(kTechnology)) {
        legacy.batteryTechnology = sysfs::parseName(*technology).value_or("");
    }
    reading.capacityPercent = battery.number(kCapacity);
    reading.currentNowUa = battery.number(kCurrentNow);
    reading.currentAverageUa = battery.number(kCurrentAvg);
    reading.chargeCounterUah = battery.number(kChargeCounter);
    legacy.batteryLevel = reading.capacityPercent.value_or(0);
    legacy.batteryCurrent = reading.currentNowUa.value_or(0);
    legacy.batteryChargeCounter = reading.chargeCounterUah.value_or(0);
    legacy.batteryVoltage = battery.number(kVoltageNow).value_or(0) / 1000;
    legacy.batteryTemperature = battery.number(kTemp).value_or(0);
    legacy.batteryCycleCount = battery.number(kCycleCount).value_or(0);
    legacy.batteryFullCharge = battery.number(kChargeFull).value_or(0);
    info.legacy.batteryCurrentAverage = reading.currentAverageUa.value_or(0);
    info.batteryFullChargeDesignCapacityUah = battery.number(kChargeFullDesign).value_or(0);
    if (const auto toFull = battery.text(kTimeToFullNow)) {
        if (const auto seconds = sysfs::parseInteger(*toFull)) {
            info.batteryChargeTimeToFullNowSeconds = *seconds;
        }
    }
    return reading;
}

}  // namespace powersupply

namespace {

constexpr const char kPowerSupplyClass[] = "/sys/class/power_supply";

// Every supply directory's attribute texts, in name order; none when the class is unreadable.
std::vector<powersupply::SupplyFiles> readSupplies() {
    std::vector<std::string> names;
    if (DIR* dir = opendir((hostplatform::fsRoot() + kPowerSupplyClass).c_str())) {
        while (const dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    std::vector<powersupply::SupplyFiles> supplies;
    for (const auto& name : names) {
        powersupply::SupplyFiles files;
        for (size_t i = 0; i < powersupply::kAttributeCount; ++i) {
            files[i] = sysfs::readSmallFile(std::string(kPowerSupplyClass) + "/" + name + "/" +
                                            powersupply::kAttributeFiles[i]);
        }
        supplies.push_back(std::move(files));
    }
    return supplies;
}

}  // namespace

HealthReading SysfsHealth::read() {
    return powersupply::readingOf(readSupplies());
}

}  // namespace sim
