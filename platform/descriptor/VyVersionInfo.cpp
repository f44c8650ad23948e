#include "platform/descriptor/VyVersionInfo.h"

#include "platform/descriptor/VyPlatformAbstraction.h"

namespace Calvento {

VersionInfo const& getVersionInfo(PlatformPaths const& paths) {
    // Built once, on first use, and kept until exit; the straps and the FPGA
    // build do not change while the program runs. The abstraction is only
    // needed while the table is filled.
    static VersionInfo const info = [&paths] {
        VyPlatformAbstraction platform(paths);
        return VersionInfo(platform);
    }();
    return info;
}

} // namespace Calvento
