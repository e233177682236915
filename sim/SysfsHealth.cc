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
        {"Battery", SupplyType::Battery},
        {"Mains", SupplyType::Ac},
        {"UPS", SupplyType::Ac},
        {"USB_DCP", SupplyType::Ac},
        {"USB_CDP", SupplyType::Ac},
        {"USB_ACA", SupplyType::Ac},
        {"USB_C", SupplyType::Ac},
        {"USB_PD", SupplyType::Ac},
        {"USB", SupplyType::Usb},
        {"USB_PD_DRP", SupplyType::Usb},
        {"Wireless", SupplyType::Wireless},
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

// The value named by the first line of `text`, or `otherwise`.
template <typename Value, size_t N>
Value lookUp(const Named<Value> (&table)[N], std::string_view text, Value otherwise) {
    const auto name = sysfs::parseName(text);
    if (!name) return otherwise;
    for (const auto& entry : table) {
        if (*name == entry.text) return entry.value;
    }
    return otherwise;
}

// Each battery attribute from the first battery supply that has it.
class Battery {
public:
    explicit Battery(const std::vector<const SupplyFiles*>& batteries) : batteries_(batteries) {}

    const std::string* text(const char* attribute) const {
        for (const SupplyFiles* files : batteries_) {
            const auto found = files->find(attribute);
            if (found != files->end()) return &found->second;
        }
        return nullptr;
    }
    // The attribute as a number clamped to 32 bits; empty when absent or not a number.
    std::optional<int32_t> number(const char* attribute) const {
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
    const auto online = files.find("online");
    return online != files.end() && !online->second.empty() && online->second[0] != '0';
}

int32_t numberIn(const SupplyFiles& files, const char* attribute) {
    const auto found = files.find(attribute);
    const auto parsed = found != files.end() ? sysfs::parseInteger(found->second) : std::nullopt;
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

const std::vector<std::string>& attributeNames() {
    static const std::vector<std::string> names = {
            "type",           "online",         "present",     "status",
            "health",         "capacity",       "current_now", "current_avg",
            "voltage_now",    "charge_counter", "charge_full", "charge_full_design",
            "cycle_count",    "temp",           "technology",  "time_to_full_now",
            "capacity_level", "max_current",    "max_voltage",
    };
    return names;
}

HealthReading readingOf(const std::vector<SupplyFiles>& supplies) {
    HealthReading reading;
    auto& info = reading.info;
    auto& legacy = info.legacy.legacy;
    legacy.batteryStatus = BatteryStatus::UNKNOWN;
    legacy.batteryHealth = BatteryHealth::UNKNOWN;
    info.batteryCapacityLevel = BatteryCapacityLevel::UNSUPPORTED;
    info.batteryChargeTimeToFullNowSeconds = -1;

    std::vector<const SupplyFiles*> batteries;
    for (const SupplyFiles& files : supplies) {
        const auto type = files.find("type");
        if (type == files.end()) continue;
        const SupplyType kind = supplyTypeOf(type->second);
        if (kind == SupplyType::Battery) batteries.push_back(&files);
        if (kind == SupplyType::Battery || kind == SupplyType::Unknown || !startsOnline(files)) {
            continue;
        }
        legacy.chargerAcOnline |= kind == SupplyType::Ac;
        legacy.chargerUsbOnline |= kind == SupplyType::Usb;
        legacy.chargerWirelessOnline |= kind == SupplyType::Wireless;
        legacy.maxChargingCurrent =
                std::max(legacy.maxChargingCurrent, numberIn(files, "max_current"));
        legacy.maxChargingVoltage =
                std::max(legacy.maxChargingVoltage, numberIn(files, "max_voltage"));
    }

    const Battery battery(batteries);
    if (const std::string* present = battery.text("present")) {
        legacy.batteryPresent = !present->empty() && (*present)[0] != '0';
    } else {
        legacy.batteryPresent = battery.any();
    }
    if (const std::string* status = battery.text("status"))
        legacy.batteryStatus = statusOf(*status);
    if (const std::string* health = battery.text("health"))
        legacy.batteryHealth = healthOf(*health);
    if (const std::string* level = battery.text("capacity_level")) {
        info.batteryCapacityLevel = capacityLevelOf(*level);
    }
    if (const std::string* technology = battery.text("technology")) {
        legacy.batteryTechnology = sysfs::parseName(*technology).value_or("");
    }
    reading.capacityPercent = battery.number("capacity");
    reading.currentNowUa = battery.number("current_now");
    reading.currentAverageUa = battery.number("current_avg");
    reading.chargeCounterUah = battery.number("charge_counter");
    legacy.batteryLevel = reading.capacityPercent.value_or(0);
    legacy.batteryCurrent = reading.currentNowUa.value_or(0);
    legacy.batteryChargeCounter = reading.chargeCounterUah.value_or(0);
    legacy.batteryVoltage = battery.number("voltage_now").value_or(0) / 1000;
    legacy.batteryTemperature = battery.number("temp").value_or(0);
    legacy.batteryCycleCount = battery.number("cycle_count").value_or(0);
    legacy.batteryFullCharge = battery.number("charge_full").value_or(0);
    info.legacy.batteryCurrentAverage = reading.currentAverageUa.value_or(0);
    info.batteryFullChargeDesignCapacityUah = battery.number("charge_full_design").value_or(0);
    if (const auto toFull = battery.text("time_to_full_now")) {
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
        for (const auto& attribute : powersupply::attributeNames()) {
            auto text = sysfs::readSmallFile(std::string(kPowerSupplyClass) + "/" + name + "/" +
                                             attribute);
            if (text) files.emplace(attribute, std::move(*text));
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
