#include "KernelModel.h"

#include <algorithm>

namespace sim {
namespace {

constexpr int64_t kMinuteNs = INT64_C(60000000000);

}  // namespace

KernelModel::KernelModel(sdk::FocusScript focus, InteractiveScript interactive, uint64_t seed,
                         size_t minimumProcesses)
    : focus_(std::move(focus)),
      interactive_(std::move(interactive)),
      table_(seed, minimumProcesses),
      memory_(seed) {
    threadsafety::MutexLock lock(mutex_);
    const bool inUse = interactive_.at(0);
    table_.setScene(focus_.appsAt(0), inUse, 0);
    memory_.step(table_, 0, inUse);
}

int64_t KernelModel::stepEndAfter(int64_t fromNs) const {
    int64_t end = (fromNs / kMinuteNs + 1) * kMinuteNs;
    if (const auto change = focus_.nextChangeAfter(fromNs)) end = std::min(end, *change);
    if (const auto change = interactive_.nextChangeAfter(fromNs)) end = std::min(end, *change);
    return end;
}

void KernelModel::stepLocked(int64_t endNs) {
    const bool inUse = interactive_.at(nowNs_);
    table_.advance(endNs - nowNs_);
    memory_.step(table_, endNs - nowNs_, inUse);
    nowNs_ = endNs;
    table_.setScene(focus_.appsAt(nowNs_), interactive_.at(nowNs_), nowNs_);
}

void KernelModel::advanceTo(int64_t deviceNs) {
    threadsafety::MutexLock lock(mutex_);
    for (int64_t end = stepEndAfter(nowNs_); end <= deviceNs; end = stepEndAfter(nowNs_)) {
        stepLocked(end);
    }
}

std::vector<sdk::HeadsetThread> KernelModel::threads() const {
    threadsafety::MutexLock lock(mutex_);
    std::vector<sdk::HeadsetThread> threads;
    threads.reserve(table_.threadCount());
    for (const auto& [pid, p] : table_.processes()) {
        for (const SimThread& t : p.threads) {
            threads.push_back({pid, t.tid, t.name, t.busy, t.cpus, t.feature});
        }
    }
    return threads;
}

void KernelModel::read(
        const std::function<void(const ProcessTable&, const MemoryModel&, int64_t)>& read) const {
    threadsafety::MutexLock lock(mutex_);
    read(table_, memory_, nowNs_);
}

}  // namespace sim
