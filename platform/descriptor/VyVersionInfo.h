#pragma once

// The process's VersionInfo, built on first use over the instrument's
// VyPlatformAbstraction and kept until exit. One object per set of kernel
// interfaces: the program only uses the real ones, so there is exactly one.

#include "platform/axi/PlatformPaths.h"
#include "version/VersionInfo.h"

namespace Calvento {
VersionInfo const& getVersionInfo(PlatformPaths const& paths = PlatformPaths());
} // namespace Calvento
