#include "version/BuildInfo.h"

#include "version/BuildMetadata.h"

std::string BuildInfo::getBuildMetadata(metadata_index_t index) {
    switch (index) {
    case SOURCE_REVISION:
        return FPT_BUILD_REVISION;
    case BRANCH:
        return FPT_BUILD_BRANCH;
    case BUILD_ID:
        return FPT_BUILD_NUMBER;
    case TOOLCHAIN:
    case IMAGE:
        // The image has always been reported as the toolchain it was built
        // with; tools that read the version table rely on both entries.
        return FPT_BUILD_TOOLCHAIN;
    case SOFTWARE_VERSION:
        return FPT_BUILD_VERSION;
    }
    return std::string();
}
