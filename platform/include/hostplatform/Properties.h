// Host-only system property store behind the SharedOsServicesProperties accessors.
// Properties are keyed by the accessor's name (e.g. "mobile_vistrel_zram_idle_collector") and
// hold raw text, parsed by the accessor as the generated sysprop code does on the device:
// unset, empty or unparsable text reads as an empty optional. Thread-safe.
#pragma once

#include <optional>
#include <string>

namespace hostplatform {

void setProperty(const std::string& name, const std::string& value);
void clearProperties();
std::optional<std::string> getProperty(const std::string& name);

// Checks that `name` is a known property and `value` parses as its type; returns the reason
// when it does not (used by the reference host to reject bad command lines).
std::optional<std::string> checkProperty(const std::string& name, const std::string& value);

}  // namespace hostplatform
