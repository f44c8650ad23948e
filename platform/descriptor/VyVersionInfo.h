#pragma once

// The process's VersionInfo, built on first use over the instrument's
// VyPlatformAbstraction and kept until exit. The kernel interfaces named by
// the first caller are the ones read; later callers share the same table.

#include "platform/axi/PlatformPaths.h"
#include "version/VersionInfo.h"

namespace Calvento {
VersionInfo const& getVersionInfo(PlatformPaths const& paths = PlatformPaths());
} // namespace Calvento
