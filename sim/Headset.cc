#include "Headset.h"

#include "Seed.h"
#include "SysfsHealth.h"
#include "SysfsThermal.h"
#include "TriggerService.h"
#include "hostplatform/HwBinderThreadPool.h"
#include "hostplatform/Power.h"
#include "hostplatform/ServiceRegistry.h"

namespace sim {

namespace {

HeadsetConfig seeded(HeadsetConfig config) {
    config.battery = seededBattery(config.battery, config.seed, config.interactive);
    config.thermal = seededThermal(config.thermal, config.seed);
    config.focus = seededFocus(config.focus, config.seed);
    return config;
}

}  // namespace

Headset::Headset(HeadsetConfig config, DeviceTime now)
    : config_(seeded(std::move(config))), now_(std::move(now)) {
    hostplatform::setInteractiveSource(
            [script = config_.interactive, now = now_] { return script.at(now()); });
    if (config_.batteryBackend == HeadsetConfig::BatteryBackend::Sysfs) {
        android::sp<SysfsHealth>(new SysfsHealth)->registerAsService("default");
    } else {
        health_ = new SimHealth(config_.battery, now_, [script = config_.interactive](int64_t ns) {
            return script.at(ns);
        });
        health_->registerAsService("default");
    }
    if (config_.thermalBackend == HeadsetConfig::ThermalBackend::Sysfs) {
        thermal_ = new SysfsThermal;
    } else {
        const auto stateAt = [script = config_.interactive, health = health_](int64_t ns) {
            const auto online = [&](Charger charger) {
                return health != nullptr && health->chargerOnline(charger, ns);
            };
            const bool wired = online(Charger::Ac) || online(Charger::Usb);
            return HeadsetState{script.at(ns), wired || online(Charger::Wireless), wired};
        };
        thermal_ = new SimThermal(config_.thermal, now_, stateAt);
    }
    thermal_->registerAsService("default");
    installTriggerService();
    sdk::setDeviceTime(now_);
    sdk::setFocusScript(config_.focus);
    sdk::setInteractiveSource([script = config_.interactive](int64_t ns) { return script.at(ns); });
    sdk::setSamplerMode(config_.sampler);
    kernel_ = std::make_unique<KernelModel>(config_.focus, config_.interactive, config_.seed,
                                            config_.minimumProcesses);
    kernel_->advanceTo(now_());
    sdk::setThreadSource([kernel = kernel_.get()](int64_t ns) {
        kernel->advanceTo(ns);
        return kernel->threads();
    });
    if (config_.kernelFiles == HeadsetConfig::KernelFiles::Simulated) {
        tree_ = std::make_unique<KernelTree>(*kernel_, data_);
    }
}

void Headset::settle() {
    sdk::settle();
    hostplatform::waitForOnewayTransactions();
    kernel_->advanceTo(now_());
    if (tree_) tree_->refresh();
}

Headset::~Headset() {
    hostplatform::waitForOnewayTransactions();  // no callback may outlive the HAL it came from
    hostplatform::removeService<android::hardware::thermal::V2_0::IThermal>("default");
    hostplatform::removeService<android::hardware::thermal::V1_0::IThermal>("default");
    sdk::setInteractiveSource(nullptr);
    sdk::setThreadSource(nullptr);  // before the model it reads goes
    sdk::resetDeviceTime();
    removeTriggerService();
    hostplatform::removeService<android::hardware::health::V2_1::IHealth>("default");
    hostplatform::removeService<android::hardware::health::V2_0::IHealth>("default");
    hostplatform::resetInteractiveSource();
}

std::optional<int64_t> Headset::nextSdkChangeAfter(int64_t deviceNs) const {
    return config_.focus.nextChangeAfter(deviceNs);
}

const std::vector<std::string>& hostEventNames() {
    static const std::vector<std::string> names = {"ScreenOn", "ScreenOff", "PowerConnected",
                                                   "PowerDisconnected"};
    return names;
}

std::vector<HostEvent> Headset::nextEventsAfter(int64_t deviceNs) const {
    std::vector<HostEvent> earliest;
    const auto consider = [&earliest](HostEvent event) {
        if (!earliest.empty() && event.atNs > earliest.front().atNs) return;
        if (!earliest.empty() && event.atNs < earliest.front().atNs) earliest.clear();
        earliest.push_back(std::move(event));
    };
    // At the same instant the screen change comes first, then the charger change.
    if (const auto change = config_.interactive.nextChangeAfter(deviceNs)) {
        const bool on = config_.interactive.at(*change);
        consider({*change, on ? "ScreenOn" : "ScreenOff", on ? "interactive" : "not interactive"});
    }
    if (const auto power = health_ ? health_->nextPowerChangeAfter(deviceNs) : std::nullopt) {
        consider({power->atNs, power->connected ? "PowerConnected" : "PowerDisconnected",
                  chargerName(power->charger)});
    }
    return earliest;
}

}  // namespace sim
