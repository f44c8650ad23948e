#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "version/BuildInfo.h"

TEST(BuildInfo, MetadataForms) {
    EXPECT_TRUE(std::regex_match(BuildInfo::getBuildMetadata(BuildInfo::SOURCE_REVISION),
                                 std::regex("[0-9a-f]{40}")))
        << BuildInfo::getBuildMetadata(BuildInfo::SOURCE_REVISION);
    EXPECT_FALSE(BuildInfo::getBuildMetadata(BuildInfo::BRANCH).empty());
    EXPECT_TRUE(
        std::regex_match(BuildInfo::getBuildMetadata(BuildInfo::BUILD_ID), std::regex("[0-9]+")))
        << BuildInfo::getBuildMetadata(BuildInfo::BUILD_ID);
    EXPECT_FALSE(BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN).empty());
    EXPECT_EQ(BuildInfo::getBuildMetadata(BuildInfo::IMAGE),
              BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN));
    EXPECT_EQ(BuildInfo::getBuildMetadata(BuildInfo::SOFTWARE_VERSION), "6.1.2");
    for (int index : {6, 7, 100, -1}) {
        EXPECT_EQ(BuildInfo::getBuildMetadata(BuildInfo::metadata_index_t(index)), "") << index;
    }
}

TEST(BuildInfo, ToolchainNamesTheCompilerThatBuiltIt) {
    std::string const toolchain = BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN);
#if defined(__clang__)
    EXPECT_EQ(toolchain.rfind("Clang ", 0), 0U) << toolchain;
#elif defined(__GNUC__)
    std::string const version = std::to_string(__GNUC__) + "." + std::to_string(__GNUC_MINOR__) +
                                "." + std::to_string(__GNUC_PATCHLEVEL__);
    EXPECT_EQ(toolchain.rfind("GNU " + version, 0), 0U) << toolchain;
#endif
}
