#include "ProviderMetrics.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>

namespace metrics {
namespace {

using Vistrel::BatteryState;

constexpr double kBytesPerKib = 1024;
constexpr double kCoulombsPerMah = 3.6;
constexpr double kMsPerSecond = 1000;
constexpr double kAbsent = NAN;  // a value that leaves its series out

// One row of a provider's table: a family and how the record fills it. A plain row reads one
// record field into one unlabelled series (`value`; kAbsent leaves it out); a labelled row
// appends its series itself (`fill`). A family without series is left out.
template <class Record>
struct Row {
    const char* name;
    const char* help;
    Kind kind;
    double (*value)(const Record&);
    void (*fill)(const Record&, const RenderOptions&, std::vector<Series>&) = nullptr;
};

template <class Record, size_t N>
Families renderTable(const Row<Record> (&table)[N], const Record& record,
                     const RenderOptions& options) {
    Families families;
    for (const Row<Record>& row : table) {
        Family family{row.name, row.help, row.kind, {}};
        if (row.fill != nullptr) {
            row.fill(record, options, family.series);
        } else if (const double value = row.value(record); !std::isnan(value)) {
            family.series.push_back({{}, value});
        }
        if (!family.series.empty()) families.push_back(std::move(family));
    }
    return families;
}

double ratioOfPercent(double percent) {
    return percent < 0 ? kAbsent : percent / 100;
}

// The `top` entries of a name-keyed map with the highest `value` (ties by name), in that order.
template <class Map, class Value>
std::vector<std::pair<double, const std::string*>> topOf(const Map& entries, Value value, int top) {
    std::vector<std::pair<double, const std::string*>> ranked;
    for (const auto& [name, entry] : entries) {
        if (const double v = value(entry); !std::isnan(v)) ranked.emplace_back(v, &name);
    }
    const size_t kept = std::min(ranked.size(), static_cast<size_t>(std::max(top, 0)));
    std::partial_sort(ranked.begin(), ranked.begin() + kept, ranked.end(),
                      [](const auto& a, const auto& b) {
                          return a.first > b.first || (a.first == b.first && *a.second < *b.second);
                      });
    ranked.resize(kept);
    return ranked;
}

// One series labelled `label` per top entry.
template <class Map, class Value>
void appendTop(const Map& entries, Value value, const char* label, const RenderOptions& options,
               std::vector<Series>& out) {
    for (const auto& [v, name] : topOf(entries, value, options.top)) {
        out.push_back({{{label, labelValue(*name)}}, v});
    }
}

}  // namespace

// Each provider's table, then its render(). Namespace-scope constants: internal linkage.

// ---- BatteryStats: the health record; current and voltage also as the average of their rings
// (the last 200 samples, about 33 minutes). Health HAL units: percent, mV, mA, mAh.

const Row<Vistrel::BatteryStats> kBattery[] = {
        {"vistrel_battery_level_ratio", "Battery level, 0 to 1.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) { return ratioOfPercent(b.level); }},
        {"vistrel_battery_charging", "1 while the battery charges or is full on a charger.",
         Kind::Gauge, [](const Vistrel::BatteryStats& b) { return b.isCharging ? 1.0 : 0.0; }},
        {"vistrel_battery_voltage_volts", "Battery voltage, latest reading.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) { return b.voltageLastMv / 1000.0; }},
        {"vistrel_battery_voltage_average_volts", "Battery voltage, average of recent readings.",
         Kind::Gauge, [](const Vistrel::BatteryStats& b) { return b.voltageAvgMv / 1000.0; }},
        {"vistrel_battery_current_amperes",
         "Battery current, latest reading; negative while discharging.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) { return b.currentLastMa / 1000.0; }},
        {"vistrel_battery_current_average_amperes",
         "Battery current, average of recent readings; negative while discharging.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) { return b.currentAvgMa / 1000.0; }},
        {"vistrel_battery_charge_coulombs", "Charge left in the battery.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) { return b.chargeCounterMah * kCoulombsPerMah; }},
        {"vistrel_battery_full_charge_coulombs", "Charge of the battery when full.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) { return b.fullChargeMah * kCoulombsPerMah; }},
        {"vistrel_battery_charge_time_to_full_seconds",
         "Time until the battery is full; absent while not charging.", Kind::Gauge,
         [](const Vistrel::BatteryStats& b) {
             return b.chargeTimeToFullSeconds < 0 ? kAbsent : b.chargeTimeToFullSeconds;
         }},
        {"vistrel_battery_charge_cycles_total", "Charge cycles of the battery.", Kind::Counter,
         [](const Vistrel::BatteryStats& b) { return static_cast<double>(b.cycleCount); }},
        {"vistrel_battery_info", "Battery status, health and power source, as text labels.",
         Kind::Gauge, nullptr,
         [](const Vistrel::BatteryStats& b, const RenderOptions&, std::vector<Series>& out) {
             out.push_back({{{"status", labelValue(b.statusText)},
                             {"health", labelValue(b.healthText)},
                             {"power_source", labelValue(b.powerSource)}},
                            1});
         }},
};

Families render(const Vistrel::BatteryStats& battery, const RenderOptions& options) {
    return renderTable(kBattery, battery, options);
}

// ---- BatteryStatsStates: the state machine's state (screen on or off, charging or not).

const std::pair<BatteryState, const char*> kBatteryStates[] = {
        {BatteryState::ActiveDischarging, "ActiveDischarging"},
        {BatteryState::ActiveCharging, "ActiveCharging"},
        {BatteryState::InactiveDischarging, "InactiveDischarging"},
        {BatteryState::InactiveCharging, "InactiveCharging"},
};

const Row<Vistrel::BatteryStatsStates> kBatteryStatesTable[] = {
        {"vistrel_battery_state",
         "1 on the battery state machine's current state, 0 on the others.", Kind::Gauge, nullptr,
         [](const Vistrel::BatteryStatsStates& s, const RenderOptions&, std::vector<Series>& out) {
             for (const auto& [state, name] : kBatteryStates) {
                 out.push_back({{{"state", name}}, s.currentState == state ? 1.0 : 0.0});
             }
         }},
        {"vistrel_headset_interactive", "1 while the headset is in use (screen on).", Kind::Gauge,
         [](const Vistrel::BatteryStatsStates& s) {
             return Vistrel::BatteryStatsStates::isActive(s.currentState) ? 1.0 : 0.0;
         }},
        {"vistrel_battery_state_entry_level_ratio",
         "Battery level, 0 to 1, when the current state began.", Kind::Gauge,
         [](const Vistrel::BatteryStatsStates& s) { return ratioOfPercent(s.levelAtEvent); }},
};

Families render(const Vistrel::BatteryStatsStates& states, const RenderOptions& options) {
    return renderTable(kBatteryStatesTable, states, options);
}

// ---- SystemStateStats: the don states of the last completed batch.

namespace {

// Worn states over all states of the batch; kAbsent for packings whose slots are ambiguous
// (widths that do not divide 32).
double wornRatio(const DonBatch& batch) {
    const uint32_t width = batch.bitsPerState;
    if (width == 0 || 32 % width != 0 || batch.statesPerBatch <= 0) return kAbsent;
    const uint32_t slotsPerWord = 32 / width;
    const uint32_t mask = width == 32 ? UINT32_MAX : (UINT32_C(1) << width) - 1;
    int64_t states = 0, worn = 0;
    for (const int64_t word : batch.words) {
        for (uint32_t slot = 0; slot < slotsPerWord && states < batch.statesPerBatch; ++slot) {
            worn += ((static_cast<uint32_t>(word) >> (width * slot)) & mask) != 0;
            ++states;
        }
    }
    return states == 0 ? kAbsent : static_cast<double>(worn) / static_cast<double>(states);
}

}  // namespace

const Row<DonBatch> kDon[] = {
        {"vistrel_don_worn_ratio",
         "Share of the last completed batch of don samples with the headset worn, 0 to 1.",
         Kind::Gauge, wornRatio},
};

Families render(const DonBatch& batch, const RenderOptions& options) {
    return renderTable(kDon, batch, options);
}

// ---- ProcessMemoryStats: per process (argv[0]) from its status and stat files; KiB figures.

namespace {

template <uint32_t Vistrel::ProcessMemorySnapshot::*field>
void fillProcessKib(const Vistrel::ProcessMemoryStats& p, const RenderOptions& options,
                    std::vector<Series>& out) {
    appendTop(
            p.snapshots,
            [](const Vistrel::ProcessMemorySnapshot& s) { return (s.*field) * kBytesPerKib; },
            "process", options, out);
}

double cpuSeconds(const Vistrel::ProcessMemorySnapshot& s) {
    return s.timeStatsValid ? static_cast<double>(s.userTimeSec) + s.systemTimeSec : kAbsent;
}

}  // namespace

const Row<Vistrel::ProcessMemoryStats> kProcessMemory[] = {
        {"vistrel_processes", "Processes (distinct argv[0]) in the last memory scan.", Kind::Gauge,
         [](const Vistrel::ProcessMemoryStats& p) {
             return static_cast<double>(p.snapshots.size());
         }},
        {"vistrel_process_resident_memory_bytes",
         "Resident memory (VmRSS) of the heaviest processes.", Kind::Gauge, nullptr,
         fillProcessKib<&Vistrel::ProcessMemorySnapshot::vmRssKb>},
        {"vistrel_process_anonymous_memory_bytes",
         "Resident anonymous memory (RssAnon) of the heaviest processes.", Kind::Gauge, nullptr,
         fillProcessKib<&Vistrel::ProcessMemorySnapshot::rssAnonKb>},
        {"vistrel_process_swap_bytes", "Swapped-out memory (VmSwap) of the processes using most.",
         Kind::Gauge, nullptr, fillProcessKib<&Vistrel::ProcessMemorySnapshot::vmSwapKb>},
        {"vistrel_process_memtrack_pss_bytes",
         "Graphics memory (memtrack PSS) of the processes using most; absent unless the "
         "extended collector is on.",
         Kind::Gauge, nullptr,
         [](const Vistrel::ProcessMemoryStats& p, const RenderOptions& options,
            std::vector<Series>& out) {
             appendTop(
                     p.snapshots,
                     [](const Vistrel::ProcessMemorySnapshot& s) {
                         return s.memtrackPssKb < 0 ? kAbsent : s.memtrackPssKb * kBytesPerKib;
                     },
                     "process", options, out);
         }},
        {"vistrel_process_cpu_seconds_total",
         "CPU time of the processes that used most, in user and system mode.", Kind::Counter,
         nullptr,
         [](const Vistrel::ProcessMemoryStats& p, const RenderOptions& options,
            std::vector<Series>& out) {
             for (const auto& [total, name] : topOf(p.snapshots, cpuSeconds, options.top)) {
                 const Vistrel::ProcessMemorySnapshot& s = p.snapshots.at(*name);
                 out.push_back({{{"process", labelValue(*name)}, {"mode", "user"}}, s.userTimeSec});
                 out.push_back(
                         {{{"process", labelValue(*name)}, {"mode", "system"}}, s.systemTimeSec});
             }
         }},
        {"vistrel_process_memory_scan_duration_seconds", "Time the last memory scan took.",
         Kind::Gauge,
         [](const Vistrel::ProcessMemoryStats& p) { return p.sampleDurationMs / kMsPerSecond; }},
};

Families render(const Vistrel::ProcessMemoryStats& processes, const RenderOptions& options) {
    return renderTable(kProcessMemory, processes, options);
}

// ---- SystemMemoryStats: /proc/meminfo (KiB) and the pressure-stall averages (percent).

const std::pair<const char*, const char*> kPressureLabels[] = {
        {"some", "10s"}, {"some", "60s"}, {"some", "300s"},
        {"full", "10s"}, {"full", "60s"}, {"full", "300s"},
};

const Row<Vistrel::SystemMemoryStats> kSystemMemory[] = {
        {"vistrel_memory_available_bytes", "Memory available to start applications (MemAvailable).",
         Kind::Gauge,
         [](const Vistrel::SystemMemoryStats& m) { return m.memAvailableKb * kBytesPerKib; }},
        {"vistrel_memory_used_bytes", "Memory in use: total less available.", Kind::Gauge,
         [](const Vistrel::SystemMemoryStats& m) { return m.memUsedKb * kBytesPerKib; }},
        {"vistrel_memory_pressure_ratio",
         "Share of time tasks stalled on memory (some: at least one, full: all), averaged over "
         "the window, 0 to 1.",
         Kind::Gauge, nullptr,
         [](const Vistrel::SystemMemoryStats& m, const RenderOptions&, std::vector<Series>& out) {
             const float percents[] = {m.psiSomeAvg10, m.psiSomeAvg60, m.psiSomeAvg300,
                                       m.psiFullAvg10, m.psiFullAvg60, m.psiFullAvg300};
             for (size_t i = 0; i < std::size(percents); ++i) {
                 if (percents[i] < 0) continue;  // no pressure file
                 out.push_back({{{"kind", kPressureLabels[i].first},
                                 {"window", kPressureLabels[i].second}},
                                percents[i] / 100.0});
             }
         }},
        {"vistrel_memory_read_duration_seconds", "Time the last meminfo and pressure read took.",
         Kind::Gauge,
         [](const Vistrel::SystemMemoryStats& m) { return m.readDurationMs / kMsPerSecond; }},
};

Families render(const Vistrel::SystemMemoryStats& memory, const RenderOptions& options) {
    return renderTable(kSystemMemory, memory, options);
}

// ---- ZramStats: /sys/block/zram0/mm_stat (bytes and pages as the kernel counts them).

const Row<Vistrel::ZramStats> kZram[] = {
        {"vistrel_zram_original_data_bytes", "Uncompressed size of the data stored in zram0.",
         Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.origDataSize); }},
        {"vistrel_zram_compressed_data_bytes", "Compressed size of the data stored in zram0.",
         Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.comprDataSize); }},
        {"vistrel_zram_memory_used_bytes", "Memory zram0 uses, allocator overhead included.",
         Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.memUsedTotal); }},
        {"vistrel_zram_memory_limit_bytes", "Memory limit of zram0; 0 when unlimited.", Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.memLimit); }},
        {"vistrel_zram_memory_used_max_bytes", "Peak memory zram0 used.", Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.memUsedMax); }},
        {"vistrel_zram_same_pages", "Pages stored as a repeated pattern.", Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.samePages); }},
        {"vistrel_zram_huge_pages", "Incompressible pages stored whole.", Kind::Gauge,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.hugePages); }},
        {"vistrel_zram_huge_pages_stored_total",
         "Incompressible pages stored since zram0 was set up.", Kind::Counter,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.hugePagesSince); }},
        {"vistrel_zram_compacted_pages_total", "Pages freed by compaction.", Kind::Counter,
         [](const Vistrel::ZramStats& z) { return static_cast<double>(z.pagesCompacted); }},
};

Families render(const Vistrel::ZramStats& zram, const RenderOptions& options) {
    return renderTable(kZram, zram, options);
}

// ---- SwapWriteStats

const Row<Vistrel::SwapWriteStats> kSwapWrite[] = {
        {"vistrel_swap_written_bytes_total",
         "Bytes swapped out to storage (swap devices other than zram0) since boot.", Kind::Counter,
         [](const Vistrel::SwapWriteStats& s) { return static_cast<double>(s.swapWriteBytes); }},
};

Families render(const Vistrel::SwapWriteStats& swap, const RenderOptions& options) {
    return renderTable(kSwapWrite, swap, options);
}

// ---- StorageStats: statvfs("/data").

const Row<Vistrel::StorageStats> kStorage[] = {
        {"vistrel_storage_size_bytes", "Size of the data partition.", Kind::Gauge,
         [](const Vistrel::StorageStats& s) { return static_cast<double>(s.totalBytes); }},
        {"vistrel_storage_available_bytes",
         "Space available to applications on the data partition.", Kind::Gauge,
         [](const Vistrel::StorageStats& s) { return static_cast<double>(s.availableBytes); }},
        {"vistrel_storage_free_bytes",
         "Free space on the data partition, reserved blocks included.", Kind::Gauge,
         [](const Vistrel::StorageStats& s) { return static_cast<double>(s.freeBytes); }},
        {"vistrel_storage_low", "1 while less than 10 % of the data partition is available.",
         Kind::Gauge, [](const Vistrel::StorageStats& s) { return s.lowStorage ? 1.0 : 0.0; }},
};

Families render(const Vistrel::StorageStats& storage, const RenderOptions& options) {
    return renderTable(kStorage, storage, options);
}

// ---- ThermalStats: each sensor (°C) and cooling device over the last two minutes.

namespace {

std::map<std::string, std::string> sensorTypes(const Vistrel::ThermalStats& t) {
    std::map<std::string, std::string> typeOf;
    for (const auto& [type, sensors] : t.sensorsByType) {
        for (const auto& sensor : sensors) typeOf[sensor] = type;
    }
    return typeOf;
}

void appendSensor(const std::map<std::string, std::string>& typeOf, const std::string& sensor,
                  double value, std::vector<Series>& out) {
    if (std::isnan(value)) return;
    const auto type = typeOf.find(sensor);
    out.push_back({{{"sensor", labelValue(sensor)},
                    {"sensor_type", type == typeOf.end() ? "" : labelValue(type->second)}},
                   value});
}

template <float Vistrel::SampledData::*statistic>
void fillTemperature(const Vistrel::ThermalStats& t, const RenderOptions&,
                     std::vector<Series>& out) {
    const auto typeOf = sensorTypes(t);
    for (const auto& [sensor, data] : t.temperatureStats) {
        appendSensor(typeOf, sensor, data.*statistic, out);
    }
}

}  // namespace

const Row<Vistrel::ThermalStats> kThermal[] = {
        {"vistrel_thermal_temperature_celsius", "Temperature of each sensor, latest reading.",
         Kind::Gauge, nullptr, fillTemperature<&Vistrel::SampledData::current>},
        {"vistrel_thermal_temperature_max_celsius",
         "Highest temperature of each sensor over the last two minutes.", Kind::Gauge, nullptr,
         fillTemperature<&Vistrel::SampledData::max>},
        {"vistrel_thermal_throttling_severity",
         "Throttling severity of each sensor: 0 none, 1 light, 2 moderate, 3 severe, 4 critical, "
         "5 emergency, 6 shutdown.",
         Kind::Gauge, nullptr,
         [](const Vistrel::ThermalStats& t, const RenderOptions&, std::vector<Series>& out) {
             const auto typeOf = sensorTypes(t);
             for (const auto& [sensor, severity] : t.throttlingStatus) {
                 appendSensor(typeOf, sensor, severity, out);
             }
         }},
        {"vistrel_thermal_cooling_device_state",
         "Throttle state of each cooling device (fan step, frequency-limit step), latest reading.",
         Kind::Gauge, nullptr,
         [](const Vistrel::ThermalStats& t, const RenderOptions&, std::vector<Series>& out) {
             for (const auto& [device, data] : t.coolingDeviceStats) {
                 if (!std::isnan(data.current))
                     out.push_back({{{"device", labelValue(device)}}, data.current});
             }
         }},
};

Families render(const Vistrel::ThermalStats& thermal, const RenderOptions& options) {
    return renderTable(kThermal, thermal, options);
}

// ---- VrFocusProviderStats: "a,b," lists the applications in front, top first.

namespace {

std::vector<std::string> foregroundApps(const Vistrel::VrFocusProviderStats& f) {
    std::vector<std::string> apps;
    for (size_t start = 0, end; start < f.foregroundApps.size(); start = end + 1) {
        end = f.foregroundApps.find(',', start);
        if (end == std::string::npos) end = f.foregroundApps.size();
        if (end > start) apps.push_back(f.foregroundApps.substr(start, end - start));
    }
    return apps;
}

bool focusEnabled(const Vistrel::VrFocusProviderStats& f) {
    return f.foregroundApps != "NOT_ENABLED";
}

}  // namespace

const Row<Vistrel::VrFocusProviderStats> kFocus[] = {
        {"vistrel_foreground_apps", "Applications in front.", Kind::Gauge,
         [](const Vistrel::VrFocusProviderStats& f) {
             return focusEnabled(f) ? static_cast<double>(foregroundApps(f).size()) : kAbsent;
         }},
        {"vistrel_foreground_app_info", "Each application in front; position 1 is the top one.",
         Kind::Gauge, nullptr,
         [](const Vistrel::VrFocusProviderStats& f, const RenderOptions& options,
            std::vector<Series>& out) {
             if (!focusEnabled(f)) return;
             const auto apps = foregroundApps(f);
             for (size_t i = 0; i < apps.size() && i < static_cast<size_t>(options.top); ++i) {
                 out.push_back(
                         {{{"app", labelValue(apps[i])}, {"position", std::to_string(i + 1)}}, 1});
             }
         }},
};

Families render(const Vistrel::VrFocusProviderStats& focus, const RenderOptions& options) {
    return renderTable(kFocus, focus, options);
}

// ---- CpuStats: rates of the last minute of the heartbeat, in samples per millisecond.

namespace {

enum FeatureValue { kMeanRate = 0, kTotalTimeMs = 3, kActiveTimeMs = 6 };

double featureValue(const Vistrel::FeatureCpuStats& values, FeatureValue which) {
    return static_cast<size_t>(which) < values.size() ? values[which] : kAbsent;
}

constexpr char kFeature[] = "feature";
constexpr char kFeatureId[] = "feature_id";

template <std::optional<Vistrel::FeatureStatsMap> Vistrel::CpuStats::*map, const char* label>
void fillFeatureRates(const Vistrel::CpuStats& c, const RenderOptions& options,
                      std::vector<Series>& out) {
    if (!(c.*map)) return;
    appendTop(
            *(c.*map),
            [](const Vistrel::FeatureCpuStats& v) {
                return featureValue(v, kMeanRate) * kMsPerSecond;
            },
            label, options, out);
}

}  // namespace

const Row<Vistrel::CpuStats> kCpu[] = {
        {"vistrel_cpu_threads", "Thread names with samples in the last heartbeat minute.",
         Kind::Gauge,
         [](const Vistrel::CpuStats& c) {
             return c.processStats ? static_cast<double>(c.processStats->size()) : kAbsent;
         }},
        {"vistrel_cpu_thread_samples_per_second",
         "Instruction samples per second of the busiest thread names over the last heartbeat "
         "minute.",
         Kind::Gauge, nullptr,
         [](const Vistrel::CpuStats& c, const RenderOptions& options, std::vector<Series>& out) {
             if (!c.processStats) return;
             appendTop(
                     *c.processStats,
                     [](const Vistrel::ProcessCpuStats& s) { return s.meanRate * kMsPerSecond; },
                     "thread", options, out);
         }},
        {"vistrel_cpu_feature_samples_per_second",
         "Instruction samples per second of each feature over the last heartbeat minute.",
         Kind::Gauge, nullptr, fillFeatureRates<&Vistrel::CpuStats::featureStats, kFeature>},
        {"vistrel_cpu_feature_active_ratio",
         "Share of the last heartbeat minute in which each feature had samples, 0 to 1.",
         Kind::Gauge, nullptr,
         [](const Vistrel::CpuStats& c, const RenderOptions& options, std::vector<Series>& out) {
             if (!c.featureStats) return;
             appendTop(
                     *c.featureStats,
                     [](const Vistrel::FeatureCpuStats& v) {
                         const double total = featureValue(v, kTotalTimeMs);
                         return total > 0 ? featureValue(v, kActiveTimeMs) / total : kAbsent;
                     },
                     kFeature, options, out);
         }},
        {"vistrel_cpu_feature_id_samples_per_second",
         "Instruction samples per second of each feature id over the last heartbeat minute.",
         Kind::Gauge, nullptr, fillFeatureRates<&Vistrel::CpuStats::featureIdStats, kFeatureId>},
};

std::optional<Families> render(const Vistrel::CpuStats& cpu, const RenderOptions& options) {
    if (!cpu.processStats && !cpu.featureStats && !cpu.featureIdStats) return std::nullopt;
    return renderTable(kCpu, cpu, options);
}

}  // namespace metrics
