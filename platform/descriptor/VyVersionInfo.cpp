#include "platform/descriptor/VyVersionInfo.h"

#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/descriptor/VyPlatformAbstraction.h"

namespace Calvento {

VersionInfo const& getVersionInfo(PlatformPaths const& paths) {
    // Built on first use, kept until exit; the abstraction is only needed
    // while the table is filled.
    static std::mutex mutex;
    static std::map<std::pair<std::string, std::string>, std::unique_ptr<VersionInfo const>> tables;

    std::lock_guard<std::mutex> lock(mutex);
    auto& slot = tables[{paths.gpioRoot, paths.pcieProcFile}];
    if (!slot) {
        VyPlatformAbstraction platform(paths);
        slot = std::make_unique<VersionInfo const>(platform);
    }
    return *slot;
}

} // namespace Calvento
