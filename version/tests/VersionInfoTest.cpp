#include <array>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "version/BuildInfo.h"
#include "version/PlatformAbstraction.h"
#include "version/VersionInfo.h"

using ::testing::ElementsAre;

namespace {

// Answers from fixed ids (-1: absent) and records the questions asked.
class FakePlatform : public PlatformAbstraction {
public:
    std::array<int, 4> ids = {-1, -1, -1, -1};
    bool fpgaOk = false;
    std::array<unsigned int, 5> fpga = {};
    bool powerShare = false;
    std::vector<std::string> calls;

    int getBoardId(boardIdentity i) override {
        calls.push_back("id" + std::to_string(i));
        return i >= 0 && i < 4 ? ids[i] : -1;
    }
    bool hasBoard(boardIdentity i) override {
        calls.push_back("has" + std::to_string(i));
        return i >= 0 && i < 4 && ids[i] >= 0;
    }
    bool getFPGABuildInfo(unsigned int& a, unsigned int& b, unsigned int& c, unsigned int& d,
                          unsigned int& e) override {
        calls.push_back("fpga");
        if (fpgaOk) {
            std::tie(a, b, c, d, e) = std::tie(fpga[0], fpga[1], fpga[2], fpga[3], fpga[4]);
        }
        return fpgaOk;
    }
    bool isPowerShareFitted() override {
        calls.push_back("power");
        return powerShare;
    }
};

std::vector<std::string> values(VersionInfo const& info) {
    std::vector<std::string> out;
    for (auto const& entry : info.getEntries()) {
        out.push_back(entry.first + "=" + entry.second);
    }
    return out;
}

} // namespace

TEST(VersionInfo, NothingFound) {
    FakePlatform platform;
    VersionInfo const info(platform);
    std::string const sha = BuildInfo::getBuildMetadata(BuildInfo::SOURCE_REVISION);
    std::string const branch = BuildInfo::getBuildMetadata(BuildInfo::BRANCH);
    std::string const id = BuildInfo::getBuildMetadata(BuildInfo::BUILD_ID);
    std::string const toolchain = BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN);
    EXPECT_THAT(values(info),
                ElementsAre("Software=6.1.2", "SHA1=" + sha, "Branch=" + branch, "Build ID=" + id,
                            "Toolchain=" + toolchain, "Image=" + toolchain, "Main=Unknown",
                            "Main ECN=Unknown", "Mezzanine=-1", "Frontpanel=Unknown",
                            "FPGA ID=Unknown", "FPGA=Unknown", "PowerShareFitted=No"));
    EXPECT_EQ(info.device(), 0);
}

TEST(VersionInfo, BoardsInOrderAndFpgaBuild) {
    FakePlatform platform;
    platform.ids = {64, 0, 5, 11};
    platform.fpgaOk = true;
    platform.fpga = {77, 3, 14, 0, 1234};
    platform.powerShare = true;
    VersionInfo const info(platform);

    EXPECT_THAT(platform.calls, ElementsAre("has0", "id0", "has3", "id3", "has1", "id1", "has2",
                                            "id2", "fpga", "power"));
    EXPECT_EQ(info.getValue("Main"), "64");
    EXPECT_EQ(info.getValue("Main ECN"), "11");
    EXPECT_EQ(info.getValue("Mezzanine"), "0");
    EXPECT_EQ(info.getValue("Frontpanel"), "5");
    EXPECT_EQ(info.getValue("FPGA ID"), "77");
    EXPECT_EQ(info.getValue("FPGA"), "3.14.0+1234");
    EXPECT_EQ(info.getValue("PowerShareFitted"), "Yes");
    EXPECT_EQ(info.getValue("No such entry"), "");
    EXPECT_EQ(info.device(), 64);
}
