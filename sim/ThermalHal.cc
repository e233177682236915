#include "ThermalHal.h"

#include <algorithm>

#include "HostSideWork.h"
#include "hostplatform/HwBinderThreadPool.h"

namespace sim {
namespace {

using android::sp;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using android::hardware::Void;
using android::hardware::thermal::V1_0::ThermalStatus;
using android::hardware::thermal::V1_0::ThermalStatusCode;
namespace V1_0 = android::hardware::thermal::V1_0;

ThermalStatus success() {
    return ThermalStatus{ThermalStatusCode::SUCCESS, ""};
}

ThermalStatus failure(const char* why) {
    return ThermalStatus{ThermalStatusCode::FAILURE, why};
}

Status transportFailure() {
    return Status::fromStatusT(android::DEAD_OBJECT);
}

// Keeps the items of `type` when `filterType` is set.
template <typename Item, typename Type>
void filter(std::vector<Item>& items, bool filterType, Type type) {
    if (!filterType) return;
    items.erase(std::remove_if(items.begin(), items.end(),
                               [type](const Item& item) { return item.type != type; }),
                items.end());
}

// Answers a list call: the reading, altered by an injected fault, through `cb`.
template <typename Item, typename Callback>
Return<void> answer(bool faulted, ThermalHal::Fault fault, ThermalStatus status,
                    std::vector<Item>& items, const Callback& cb) {
    if (faulted) {
        if (fault == ThermalHal::Fault::Transport) return transportFailure();
        if (fault != ThermalHal::Fault::Empty) status = failure("injected failure");
        if (fault != ThermalHal::Fault::Failure) items.clear();
    }
    cb(status, hidl_vec<Item>(items));
    return Void();
}

}  // namespace

void ThermalHal::failNext(Call call, Fault fault) {
    threadsafety::MutexLock lock(mutex_);
    faults_[call].push_back(fault);
}

bool ThermalHal::takeFault(Call call, Fault& fault) {
    threadsafety::MutexLock lock(mutex_);
    auto& queue = faults_[call];
    if (queue.empty()) return false;
    fault = queue.front();
    queue.pop_front();
    return true;
}

size_t ThermalHal::callbackCount() const {
    threadsafety::MutexLock lock(mutex_);
    return registrations_.size();
}

void ThermalHal::deliverThrottling(const Temperature& temperature) {
    threadsafety::MutexLock lock(mutex_);
    for (const auto& r : registrations_) {
        if (r.filterType && r.type != temperature.type) continue;
        hostplatform::postOnewayTransaction([callback = r.callback, temperature] {
            callback->notifyThrottling(temperature).isOk();
        });
    }
}

Return<void> ThermalHal::getTemperatures(getTemperatures_cb _hidl_cb) {
    const HostSideWork hal;
    _hidl_cb(failure("not supported"), hidl_vec<V1_0::Temperature>());
    return Void();
}

Return<void> ThermalHal::getCpuUsages(getCpuUsages_cb _hidl_cb) {
    const HostSideWork hal;
    _hidl_cb(failure("not supported"), hidl_vec<V1_0::CpuUsage>());
    return Void();
}

Return<void> ThermalHal::getCoolingDevices(getCoolingDevices_cb _hidl_cb) {
    const HostSideWork hal;
    _hidl_cb(failure("not supported"), hidl_vec<V1_0::CoolingDevice>());
    return Void();
}

Return<void> ThermalHal::getCurrentTemperatures(bool filterType, TemperatureType type,
                                                getCurrentTemperatures_cb _hidl_cb) {
    const HostSideWork hal;
    Fault fault{};
    const bool faulted = takeFault(Call::Temperatures, fault);
    if (faulted && fault == Fault::Transport) return transportFailure();
    std::vector<Temperature> temperatures;
    const ThermalStatus status = readTemperatures(temperatures);
    filter(temperatures, filterType, type);
    return answer(faulted, fault, status, temperatures, _hidl_cb);
}

Return<void> ThermalHal::getTemperatureThresholds(bool filterType, TemperatureType type,
                                                  getTemperatureThresholds_cb _hidl_cb) {
    const HostSideWork hal;
    std::vector<TemperatureThreshold> thresholds;
    const ThermalStatus status = readThresholds(thresholds);
    filter(thresholds, filterType, type);
    _hidl_cb(status, hidl_vec<TemperatureThreshold>(thresholds));
    return Void();
}

Return<void> ThermalHal::getCurrentCoolingDevices(bool filterType, CoolingType type,
                                                  getCurrentCoolingDevices_cb _hidl_cb) {
    const HostSideWork hal;
    Fault fault{};
    const bool faulted = takeFault(Call::CoolingDevices, fault);
    if (faulted && fault == Fault::Transport) return transportFailure();
    std::vector<CoolingDevice> devices;
    const ThermalStatus status = readCoolingDevices(devices);
    filter(devices, filterType, type);
    return answer(faulted, fault, status, devices, _hidl_cb);
}

Return<void> ThermalHal::registerThermalChangedCallback(const sp<Callback>& callback,
                                                        bool filterType, TemperatureType type,
                                                        registerThermalChangedCallback_cb _hidl_cb) {
    const HostSideWork hal;
    Fault fault{};
    if (takeFault(Call::Register, fault) && fault != Fault::Empty) {
        if (fault == Fault::Transport) return transportFailure();
        _hidl_cb(failure("injected failure"));
        return Void();
    }
    ThermalStatus status = success();
    {
        threadsafety::MutexLock lock(mutex_);
        const bool known = std::any_of(registrations_.begin(), registrations_.end(),
                                       [&](const auto& r) { return r.callback == callback; });
        if (callback == nullptr) {
            status = failure("Invalid nullptr callback");
        } else if (known) {
            status = failure("Callback already registered");
        } else {
            registrations_.push_back({callback, filterType, type});
        }
    }
    _hidl_cb(status);
    return Void();
}

Return<void> ThermalHal::unregisterThermalChangedCallback(
        const sp<Callback>& callback, unregisterThermalChangedCallback_cb _hidl_cb) {
    const HostSideWork hal;
    ThermalStatus status = success();
    {
        threadsafety::MutexLock lock(mutex_);
        const auto it = std::find_if(registrations_.begin(), registrations_.end(),
                                     [&](const auto& r) { return r.callback == callback; });
        if (callback == nullptr) {
            status = failure("Invalid nullptr callback");
        } else if (it == registrations_.end()) {
            status = failure("Callback not registered");
        } else {
            registrations_.erase(it);
        }
    }
    _hidl_cb(status);
    return Void();
}

}  // namespace sim
