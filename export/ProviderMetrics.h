// Each provider's record, as the host reads it after a successful snapshot, rendered as metric
// families: one table per provider in ProviderMetrics.cc maps record fields to families in base
// units (bytes, seconds, volts, amperes, coulombs, degrees Celsius, 0-1 ratios). export/README.md
// lists every family. Rendering reads the record only; call it where reading the record is
// allowed (the host holds the provider's lock).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "BatteryStats.h"
#include "BatteryStatsStates.h"
#include "CpuStats.h"
#include "MetricFamilies.h"
#include "ProcessMemoryStats.h"
#include "StorageStats.h"
#include "SwapWriteStats.h"
#include "SystemMemoryStats.h"
#include "ThermalStats.h"
#include "VrFocusProviderStats.h"
#include "ZramStats.h"

namespace metrics {

struct RenderOptions {
    // A family with one series per process, thread, feature or application keeps the `top`
    // entries with the highest value it charts (ties by name); a count of all sits beside it.
    int top = 20;
};

// The last completed batch of SystemStateStats' don states as the host fetched it (its
// getDonStates() logs every word, so the record is read once, by the host), with the provider's
// packing.
struct DonBatch {
    std::vector<int64_t> words;
    uint32_t bitsPerState = 1;
    int32_t statesPerBatch = 60;
};

Families render(const Vistrel::BatteryStats& battery, const RenderOptions& options);
Families render(const Vistrel::BatteryStatsStates& states, const RenderOptions& options);
Families render(const DonBatch& batch, const RenderOptions& options);
Families render(const Vistrel::ProcessMemoryStats& processes, const RenderOptions& options);
Families render(const Vistrel::SystemMemoryStats& memory, const RenderOptions& options);
Families render(const Vistrel::ZramStats& zram, const RenderOptions& options);
Families render(const Vistrel::SwapWriteStats& swap, const RenderOptions& options);
Families render(const Vistrel::StorageStats& storage, const RenderOptions& options);
Families render(const Vistrel::ThermalStats& thermal, const RenderOptions& options);
Families render(const Vistrel::VrFocusProviderStats& focus, const RenderOptions& options);
// Empty when the snapshot reduced no readings (any snapshot between two heartbeats): the
// families of the last heartbeat stay the current ones.
std::optional<Families> render(const Vistrel::CpuStats& cpu, const RenderOptions& options);

}  // namespace metrics
