// Host-only control of the file-system root seam (seams/FsRoot.h).
#pragma once

#include <string>

namespace hostplatform {

// Name of the environment variable read once when the platform library loads.
inline constexpr const char kFsRootEnv[] = "VISTREL_FS_ROOT";

// Sets the directory every absolute library path is resolved under; "" removes the root.
// Not synchronised with path resolution: set it before providers run.
void setFsRoot(const std::string& root);
std::string fsRoot();

}  // namespace hostplatform
