#include "ProcessTable.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "BootProcesses.h"
#include "Seed.h"

namespace sim {
namespace {

constexpr int64_t kMinuteNs = INT64_C(60000000000);
constexpr double kTicksPerSecond = 100;  // USER_HZ
constexpr double kUserShare = 0.8;       // of a user process's CPU time
// A cached application is compacted after this long, until this share of its anonymous memory
// is in swap.
constexpr int64_t kCompactionDelayNs = 2 * kMinuteNs;
constexpr double kCompactedShare = 0.7;
constexpr int32_t kFirstAppPid = 2000;
constexpr int32_t kPidMax = 32768;
constexpr int32_t kDormantFirstPid = 20000;
// oom_score_adj of applications by their place.
constexpr int32_t kForegroundAdj = 0;
constexpr int32_t kVisibleAdj = 100;
constexpr int32_t kPreviousAdj = 700;
constexpr int32_t kCachedAdj = 900;
constexpr int32_t kCachedAdjMax = 999;

int32_t highestTid(const SimProcess& p) {
    int32_t tid = p.pid;
    for (const auto& t : p.threads) tid = std::max(tid, t.tid);
    return tid;
}

// CPU use of an application's thread for its place: in front, behind the top, paused (the
// headset is not in use) or cached (frozen).
double appLoadFactor(int rank, bool inUse) {
    if (rank < 0) return 0;
    if (!inUse) return 0.02;
    return rank == 0 ? 1.0 : 0.3;
}

// Where the pids of applications start: later on a headset whose boot started more.
int32_t firstAppPid(uint64_t seed) {
    if (seed == 0) return kFirstAppPid;
    return kFirstAppPid + static_cast<int32_t>(SeededNumbers(seed, "app pids").next() % 1500);
}

}  // namespace

double SimProcess::busy() const {
    double sum = 0;
    for (const auto& t : threads) sum += t.busy;
    return sum;
}

ProcessTable::ProcessTable(uint64_t seed, size_t minimumProcesses)
    : seed_(seed), nextPid_(firstAppPid(seed)) {
    for (SimProcess& p : bootProcesses(seed)) processes_.emplace(p.pid, std::move(p));
    for (const auto& [pid, p] : processes_) {
        if (p.comm == "zygote64") zygotePid_ = pid;
    }
    for (auto& [pid, p] : processes_) {
        if (p.kind == ProcessKind::App) p.ppid = zygotePid_;
    }
    if (processes_.size() < minimumProcesses) {
        for (SimProcess& p :
             dormantProcesses(minimumProcesses - processes_.size(), kDormantFirstPid))
            processes_.emplace(p.pid, std::move(p));
    }
}

int32_t ProcessTable::freePid(int32_t span) {
    for (int32_t tries = 0; tries < kPidMax; ++tries) {
        if (nextPid_ + span >= kPidMax) nextPid_ = kFirstAppPid;
        const int32_t candidate = nextPid_;
        // A process below the candidate may own tids up to 20 past its pid.
        auto it = processes_.lower_bound(candidate - 20);
        bool taken = false;
        for (; it != processes_.end() && it->first < candidate + span; ++it) {
            taken |= highestTid(it->second) >= candidate;
        }
        if (!taken) {
            // Gaps stand for the short-lived processes started meanwhile.
            nextPid_ = candidate + span + static_cast<int32_t>((launches_ * 7919 + seed_) % 23);
            return candidate;
        }
        nextPid_ = candidate + 1;
    }
    return 0;
}

void ProcessTable::start(const std::string& app, int64_t nowNs) {
    const int32_t pid = freePid(kAppThreadSpan);
    if (pid == 0) return;  // every pid taken: the application cannot start
    SimProcess p = appProcess(app, pid, seed_, nowNs);
    p.ppid = zygotePid_;
    flows_.launchReadKb += p.app->profile.workingSetKb * 0.6;
    ++flows_.launches;
    ++launches_;
    processes_.emplace(pid, std::move(p));
}

void ProcessTable::end(std::map<int32_t, SimProcess>::iterator process) {
    flows_.freedSwapKb += process->second.swapKb;
    ++flows_.kills;
    processes_.erase(process);
}

void ProcessTable::placeApps(const std::vector<std::string>& front, int64_t nowNs) {
    for (const std::string& name : front) {
        const bool running = std::any_of(processes_.begin(), processes_.end(), [&](const auto& e) {
            return e.second.app && e.second.app->name == name;
        });
        if (!running) start(name, nowNs);
    }
    for (auto& [pid, p] : processes_) {
        if (!p.app) continue;
        const auto at = std::find(front.begin(), front.end(), p.app->name);
        const int rank = at == front.end() ? -1 : static_cast<int>(at - front.begin());
        if (rank < 0 && p.app->rank >= 0) p.app->backgroundSinceNs = nowNs;
        p.app->rank = rank;
    }
}

void ProcessTable::rankCached(int64_t nowNs) {
    for (auto it = processes_.begin(); it != processes_.end();) {
        const auto& app = it->second.app;
        const bool expired = app && app->rank < 0 && app->profile.cachedLifetimeNs > 0 &&
                             nowNs - app->backgroundSinceNs >= app->profile.cachedLifetimeNs;
        if (expired) {
            end(it++);
        } else {
            ++it;
        }
    }
    // Out of front: the most recently left is the previous application, the others cached in
    // the order they left.
    std::vector<SimProcess*> background;
    for (auto& [pid, p] : processes_) {
        if (!p.app) continue;
        p.oomScoreAdj = p.app->rank == 0 ? kForegroundAdj : kVisibleAdj;
        if (p.app->rank < 0) background.push_back(&p);
    }
    std::stable_sort(background.begin(), background.end(), [](const auto* a, const auto* b) {
        return a->app->backgroundSinceNs > b->app->backgroundSinceNs;
    });
    for (size_t i = 0; i < background.size(); ++i) {
        background[i]->oomScoreAdj =
                i == 0 ? kPreviousAdj
                       : std::min<int32_t>(kCachedAdjMax,
                                           kCachedAdj + 5 * static_cast<int32_t>(i - 1));
    }
}

void ProcessTable::setBusy(SimProcess& p, bool inUse, bool passthrough) {
    for (SimThread& t : p.threads) {
        switch (t.load) {
            case ThreadLoad::Fixed:
                t.busy = inUse ? t.busyInUse : t.busyIdle;
                break;
            case ThreadLoad::App:
                t.busy = t.busyInUse * appLoadFactor(p.app ? p.app->rank : -1, inUse);
                break;
            case ThreadLoad::Reclaim:
                t.busy = reclaimBusy_;
                break;
            case ThreadLoad::Passthrough:
                t.busy = passthrough ? t.busyInUse : 0;
                break;
        }
    }
}

void ProcessTable::setScene(const std::vector<std::string>& front, bool inUse, int64_t nowNs) {
    nowNs_ = nowNs;
    inUse_ = inUse;
    placeApps(front, nowNs);
    rankCached(nowNs);
    const bool passthrough = inUse && std::any_of(front.begin(), front.end(), [](const auto& app) {
                                 return app.find("passthrough") != std::string::npos;
                             });
    for (auto& [pid, p] : processes_) setBusy(p, inUse, passthrough);
}

void ProcessTable::setReclaimBusy(double busy) {
    reclaimBusy_ = busy;
    for (auto& [pid, p] : processes_) {
        for (SimThread& t : p.threads) {
            if (t.load == ThreadLoad::Reclaim) t.busy = busy;
        }
    }
}

void ProcessTable::advanceApp(SimProcess& p, double minutes) {
    const SimApp& app = *p.app;
    const AppProfile& profile = app.profile;
    if (app.rank == 0 && inUse_) {
        p.anonKb = std::min(profile.capAnonKb, p.anonKb + profile.growthKbPerMin * minutes);
        flows_.dataWriteKb += profile.writesKbPerMin * minutes;
    }
    if (app.rank >= 0) {
        p.fileKb += (profile.workingSetKb - p.fileKb) * std::min(1.0, 0.6 * minutes);
        const double in =
                std::min(p.swapKb, p.swapKb * std::min(1.0, 0.5 * minutes) + 2048 * minutes);
        p.swapKb -= in;
        p.anonKb += in;
        p.majorFaults += in / 4;
        flows_.swapInKb += in;
    } else if (nowNs_ - app.backgroundSinceNs >= kCompactionDelayNs) {
        const double room = kCompactedShare * (p.anonKb + p.swapKb) - p.swapKb;
        const double out = std::max(0.0, std::min(room, p.anonKb * std::min(1.0, 0.25 * minutes)));
        p.anonKb -= out;
        p.swapKb += out;
        flows_.swapOutKb += out;
        const double floorKb = 0.15 * profile.workingSetKb;
        if (p.fileKb > floorKb) p.fileKb -= (p.fileKb - floorKb) * std::min(1.0, 0.25 * minutes);
    }
}

void ProcessTable::advance(int64_t lengthNs) {
    const double seconds = static_cast<double>(lengthNs) / 1e9;
    for (auto& [pid, p] : processes_) {
        const double ticks = p.busy() * seconds * kTicksPerSecond;
        const double user = p.kind == ProcessKind::Kernel ? 0 : kUserShare * ticks;
        p.userTicks += user;
        p.systemTicks += ticks - user;
        if (p.app) advanceApp(p, seconds / 60);
        p.peakRssKb = std::max(p.peakRssKb, p.rssKb());
    }
    nowNs_ += lengthNs;
}

double ProcessTable::swapOut(double kb, int32_t minOomScoreAdj) {
    std::vector<SimProcess*> candidates;
    for (auto& [pid, p] : processes_) {
        if (p.kind != ProcessKind::Kernel && p.oomScoreAdj >= minOomScoreAdj && p.anonKb > 0)
            candidates.push_back(&p);
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const auto* a, const auto* b) { return a->oomScoreAdj > b->oomScoreAdj; });
    double moved = 0;
    for (SimProcess* p : candidates) {
        const double out = std::min(kb - moved, p->anonKb * 0.5);
        if (out <= 0) break;
        p->anonKb -= out;
        p->swapKb += out;
        moved += out;
    }
    flows_.swapOutKb += moved;
    return moved;
}

bool ProcessTable::killHighest(int32_t minOomScoreAdj) {
    auto victim = processes_.end();
    for (auto it = processes_.begin(); it != processes_.end(); ++it) {
        const SimProcess& p = it->second;
        if (p.kind == ProcessKind::Kernel || p.oomScoreAdj < minOomScoreAdj) continue;
        if (victim == processes_.end() || p.oomScoreAdj >= victim->second.oomScoreAdj) victim = it;
    }
    if (victim == processes_.end()) return false;
    end(victim);
    return true;
}

ProcessFlows ProcessTable::takeFlows() {
    return std::exchange(flows_, ProcessFlows{});
}

double ProcessTable::sum(double SimProcess::*figure) const {
    double total = 0;
    for (const auto& [pid, p] : processes_) total += p.*figure;
    return total;
}

size_t ProcessTable::threadCount() const {
    size_t count = 0;
    for (const auto& [pid, p] : processes_) count += p.threads.size();
    return count;
}

}  // namespace sim
