#pragma once

// Facts about this build of the software, fixed when it was built: source
// revision, branch, build id and toolchain come from the build system.

#include <string>

class BuildInfo {
public:
    enum metadata_index_t : int {
        SOURCE_REVISION = 0, // 40 hexadecimal digits
        BRANCH = 1,
        BUILD_ID = 2, // decimal number
        TOOLCHAIN = 3,
        IMAGE = 4, // same text as TOOLCHAIN
        SOFTWARE_VERSION = 5,
    };

    // The text for the index; empty for any other index.
    static std::string getBuildMetadata(metadata_index_t index);
};
