#include "version/VersionInfo.h"

#include <cstdlib>

#include "version/BuildInfo.h"
#include "version/PlatformAbstraction.h"

namespace {
char const* const kUnknown = "Unknown";
}

VersionInfo::VersionInfo(PlatformAbstraction& platform)
    : entries{
          {"Software", BuildInfo::getBuildMetadata(BuildInfo::SOFTWARE_VERSION)},
          {"SHA1", BuildInfo::getBuildMetadata(BuildInfo::SOURCE_REVISION)},
          {"Branch", BuildInfo::getBuildMetadata(BuildInfo::BRANCH)},
          {"Build ID", BuildInfo::getBuildMetadata(BuildInfo::BUILD_ID)},
          {"Toolchain", BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN)},
          {"Image", BuildInfo::getBuildMetadata(BuildInfo::IMAGE)},
          {"Main", kUnknown},
          {"Main ECN", kUnknown},
          {"Mezzanine", kUnknown},
          {"Frontpanel", kUnknown},
          {"FPGA ID", kUnknown},
          {"FPGA", kUnknown},
          {"PowerShareFitted", kUnknown},
      } {
    if (platform.hasBoard(0)) {
        set("Main", std::to_string(platform.getBoardId(0)));
    }
    if (platform.hasBoard(3)) {
        set("Main ECN", std::to_string(platform.getBoardId(3)));
    }
    // Many instruments have no mezzanine: say so rather than "Unknown".
    set("Mezzanine", platform.hasBoard(1) ? std::to_string(platform.getBoardId(1)) : "-1");
    if (platform.hasBoard(2)) {
        set("Frontpanel", std::to_string(platform.getBoardId(2)));
    }

    unsigned int fpgaId = 0;
    unsigned int major = 0;
    unsigned int minor = 0;
    unsigned int patch = 0;
    unsigned int build = 0;
    if (platform.getFPGABuildInfo(fpgaId, major, minor, patch, build)) {
        set("FPGA ID", std::to_string(fpgaId));
        set("FPGA", std::to_string(major) + "." + std::to_string(minor) + "." +
                        std::to_string(patch) + "+" + std::to_string(build));
    }
    set("PowerShareFitted", platform.isPowerShareFitted() ? "Yes" : "No");
}

void VersionInfo::set(std::string const& name, std::string value) {
    for (Entry& entry : entries) {
        if (entry.first == name) {
            entry.second = std::move(value);
            return;
        }
    }
}

std::string VersionInfo::getValue(std::string const& name) const {
    for (Entry const& entry : entries) {
        if (entry.first == name) {
            return entry.second;
        }
    }
    return std::string();
}

int VersionInfo::device() const {
    // Like strtol: "Unknown" (or anything else that is not a number) is 0.
    return static_cast<int>(std::strtol(getValue("Main").c_str(), nullptr, 10));
}
