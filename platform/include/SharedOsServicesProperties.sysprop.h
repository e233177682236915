// Generated-sysprop-shaped accessors for the properties the library reads. On the device these
// come from the sysprop library; on the host they read hostplatform's property store.
// Each returns an empty optional when the property is unset, empty or unparsable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halden::sysprop::SharedOsServicesProperties {

std::optional<std::uint32_t> vistrel_instruction_sampler_sampling_period_us();
std::optional<bool> mobile_vistrel_zram_idle_collector();
std::optional<std::int32_t> mobile_vistrel_zram_idle_threshold();
std::optional<std::int32_t> mobile_vistrel_zram_idle_histo_bucket();
std::optional<bool> mobile_vistrel_memory_extended_collector();
std::optional<bool> enable_fg_apps_cpu_events();

}  // namespace halden::sysprop::SharedOsServicesProperties
