// The simulated headset: deterministic implementations behind the host platform interfaces,
// driven by the device time of the reference host's clock (real or simulated).
//
// Constructing a Headset installs everything (the power manager's interactive source, and the
// services later parts register); destroying it withdraws them again. Only one Headset should
// exist at a time, as the platform interfaces it stands behind are process-wide.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DataPartition.h"
#include "InteractiveScript.h"
#include "KernelModel.h"
#include "KernelTree.h"
#include "SimHealth.h"
#include "SimThermal.h"
#include "sdk/SdkControl.h"

namespace sim {

// Device time in nanoseconds since boot.
using DeviceTime = std::function<int64_t()>;

// A host event, such as "ScreenOn", that the device raises outside any provider.
struct HostEvent {
    int64_t atNs;
    std::string name;
    std::string detail;
};

// The names of every host event a headset raises.
const std::vector<std::string>& hostEventNames();

struct HeadsetConfig {
    InteractiveScript interactive = InteractiveScript::defaults();
    // Health HAL 2.1 "default" while the headset lives: the simulated battery of `battery`, or
    // the power-supply sysfs tree under the file-system root. The sysfs battery raises no power
    // events and the simulated thermal sensors then see no charger.
    enum class BatteryBackend { Simulated, Sysfs } batteryBackend = BatteryBackend::Simulated;
    BatteryScript battery = BatteryScript::defaults();
    DataFigures data;  // statvfs("/data") while the headset lives
    // Thermal HAL 2.0 "default" while the headset lives: the simulated sensors of `thermal`,
    // or the thermal sysfs tree under the file-system root.
    enum class ThermalBackend { Simulated, Sysfs } thermalBackend = ThermalBackend::Simulated;
    ThermalScript thermal = ThermalScript::defaults();
    // The SDK modules (sim/sdk): foreground applications over device time, and what the
    // instruction sampler serves.
    sdk::FocusScript focus = sdk::FocusScript::defaults();
    sdk::SamplerMode sampler = sdk::SamplerMode::Simulated;
    // The kernel files (/proc, /sys) the providers read: those under whatever file-system root
    // is set (the workstation's own, a captured tree), or the simulated headset's own, which it
    // writes into a temporary tree and installs as the root while it lives (KernelTree.h). Its
    // processes (KernelModel.h) are the simulated sampler's threads either way.
    enum class KernelFiles { FileSystemRoot, Simulated } kernelFiles = KernelFiles::FileSystemRoot;
    // Pads the headset's process table with dormant processes up to this count.
    size_t minimumProcesses = 0;
    // A headset of a lab of headsets that differ: varies the battery's start level and drain,
    // the thermal scenario, the focus script's phase and the process table, the same way on
    // every run. 0: all as configured.
    uint64_t seed = 0;
};

class Headset {
public:
    Headset(HeadsetConfig config, DeviceTime now);
    ~Headset();
    Headset(const Headset&) = delete;
    Headset& operator=(const Headset&) = delete;

    // Every host event at the earliest instant strictly after `deviceNs` (several when they
    // coincide; none when nothing more happens).
    std::vector<HostEvent> nextEventsAfter(int64_t deviceNs) const;

    // The first instant after `deviceNs` at which an SDK module has news (a focus change).
    std::optional<int64_t> nextSdkChangeAfter(int64_t deviceNs) const;

    const HeadsetConfig& config() const { return config_; }
    // The simulated battery; null with the sysfs battery.
    SimHealth* health() { return health_.get(); }
    ThermalHal& thermal() { return *thermal_; }
    // The directory of the simulated kernel files (KernelTree.h); "" without them.
    std::string kernelTreeDirectory() const { return tree_ ? tree_->directory() : ""; }

    // Lets the simulated threads catch up with the device time now: the SDK modules' threads make
    // the reports they owe for what happened up to now, and every callback the simulated HALs have
    // sent so far (one-way calls on the hardware-binder thread) is delivered before this returns.
    // The kernel's state (and the simulated kernel files) catch up too.
    void settle();

private:
    HeadsetConfig config_;
    DeviceTime now_;
    android::sp<SimHealth> health_;  // null with the sysfs battery
    android::sp<ThermalHal> thermal_;
    DataPartition data_{config_.data};
    std::unique_ptr<KernelModel> kernel_;
    std::unique_ptr<KernelTree> tree_;  // with simulated kernel files
};

}  // namespace sim
