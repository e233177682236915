// Host-only control of what a default Vistrel::PowerManager answers.
#pragma once

#include <functional>

namespace hostplatform {

// getIsInteractive() of every default PowerManager calls `source`; without one it answers true.
// Thread-safe.
void setInteractiveSource(std::function<bool()> source);
void resetInteractiveSource();

}  // namespace hostplatform
