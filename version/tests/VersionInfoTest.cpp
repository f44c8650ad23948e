#include <regex>
#include <vector>

#include <gtest/gtest.h>

#include "version/BuildInfo.h"
#include "version/PlatformAbstraction.h"
#include "version/VersionInfo.h"

// Board ids of 64 (main), none (mezzanine), 5 (front panel), 11 (main ECN),
// and the FPGA build record when fpgaOk.
struct FakePlatform : PlatformAbstraction {
    int getBoardId(boardIdentity i) override { return i == 0 ? 64 : i == 2 ? 5 : i == 3 ? 11 : -1; }
    bool hasBoard(boardIdentity i) override { return getBoardId(i) >= 0 && i != mainMissing; }
    bool getFPGABuildInfo(unsigned int& id, unsigned int& a, unsigned int& b, unsigned int& c,
                          unsigned int& d) override {
        id = 77, a = 3, b = 14, c = 0, d = 1234;
        return fpgaOk;
    }
    bool isPowerShareFitted() override { return fpgaOk; }
    bool fpgaOk = true;
    int mainMissing = -1;
};

TEST(VersionInfo, TableInOrderFromBuildAndPlatform) {
    auto build = [](BuildInfo::metadata_index_t i) { return BuildInfo::getBuildMetadata(i); };
    EXPECT_TRUE(std::regex_match(build(BuildInfo::SOURCE_REVISION), std::regex("[0-9a-f]{40}")));
    EXPECT_TRUE(std::regex_match(build(BuildInfo::BUILD_ID), std::regex("[0-9]+")));
    EXPECT_EQ(build(BuildInfo::metadata_index_t(6)), "");
    FakePlatform found;
    FakePlatform missing;
    missing.fpgaOk = false;
    missing.mainMissing = 0;
    for (FakePlatform* platform : {&found, &missing}) {
        bool const ok = platform->fpgaOk;
        // The build's own entries come first; the station reads none of them.
        // clang-format off
        std::vector<VersionInfo::Entry> const expected = {
            {"Main", ok ? "64" : "Unknown"}, {"Main ECN", "11"}, {"Mezzanine", "-1"},
            {"Frontpanel", "5"}, {"FPGA ID", ok ? "77" : "Unknown"},
            {"FPGA", ok ? "3.14.0+1234" : "Unknown"}, {"PowerShareFitted", ok ? "Yes" : "No"}};
        // clang-format on
        VersionInfo const info(*platform);
        EXPECT_EQ(std::vector(info.getEntries().begin() + 6, info.getEntries().end()), expected);
        EXPECT_EQ(info.device(), ok ? 64 : 0);
    }
}
