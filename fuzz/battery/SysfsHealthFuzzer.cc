// The power-supply sysfs health HAL's reading of supply attributes, on arbitrary bytes. Input
// (parts joined by 0x01 bytes, see FuzzInput.h): the attribute texts of one supply after
// another (at most four), in the order of powersupply::kAttributeFiles; the last supply may stop
// early, so its remaining files are absent. The files themselves are only read in one bounded call,
// so the parsing is fuzzed in memory.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "FuzzInput.h"
#include "SysfsHealth.h"

namespace {

namespace powersupply = sim::powersupply;

// More supplies add nothing the first few do not reach (each attribute comes from the first
// battery that has it; chargers are independent), and only make every run longer.
constexpr size_t kMaxSupplies = 4;
using android::hardware::health::V1_0::BatteryStatus;

bool online(const powersupply::SupplyFiles& files, powersupply::SupplyType type) {
    const auto& kind = files[powersupply::kType];
    const auto& state = files[powersupply::kOnline];
    return kind && powersupply::supplyTypeOf(*kind) == type && state && !state->empty() &&
           (*state)[0] != '0';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzzinput::split(data, size);
    std::vector<powersupply::SupplyFiles> supplies;
    const size_t used = std::min(parts.size(), kMaxSupplies * powersupply::kAttributeCount);
    for (size_t i = 0; i < used; ++i) {
        if (i % powersupply::kAttributeCount == 0) supplies.emplace_back();
        supplies.back()[i % powersupply::kAttributeCount] = std::string(parts[i]);
    }

    const sim::HealthReading reading = powersupply::readingOf(supplies);
    const auto& b = reading.info.legacy.legacy;
    bool ac = false, usb = false, wireless = false;
    for (const auto& files : supplies) {
        ac |= online(files, powersupply::SupplyType::Ac);
        usb |= online(files, powersupply::SupplyType::Usb);
        wireless |= online(files, powersupply::SupplyType::Wireless);
    }
    if (b.chargerAcOnline != ac || b.chargerUsbOnline != usb ||
        b.chargerWirelessOnline != wireless) {
        abort();
    }
    const auto status = static_cast<int32_t>(b.batteryStatus);
    const auto health = static_cast<int32_t>(b.batteryHealth);
    const auto level = static_cast<int32_t>(reading.info.batteryCapacityLevel);
    if (status < 1 || status > 5 || health < 1 || health > 7 || level < -1 || level > 5) abort();
    if (b.batteryLevel != reading.capacityPercent.value) abort();
    if (b.batteryLevel < 0 || b.batteryLevel > 100) abort();  // out of range reads as unknown
    if (b.maxChargingCurrent < 0 || b.maxChargingVoltage < 0) abort();
    return 0;
}
