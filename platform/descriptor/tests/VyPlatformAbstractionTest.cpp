#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/descriptor/VyPlatformAbstraction.h"
#include "platform/descriptor/VyVersionInfo.h"
#include "platform/descriptor/testing/GpioTree.h"
#include "version/BuildInfo.h"

using Calvento::testing::GpioTree;
using ::testing::ElementsAreArray;

namespace {

void writeProc(GpioTree const& tree, std::string const& text) {
    // In place, as the driver's file stays the same file.
    std::ofstream(tree.dir() + "/calv_pcie", std::ios::in | std::ios::out | std::ios::trunc)
        << text;
}

} // namespace

TEST(VyPlatformAbstraction, BoardIdentities) {
    GpioTree tree;
    tree.setGroup(0, 66);
    tree.setGroup(2, 5);
    VyPlatformAbstraction platform(tree.paths());
    testing::internal::CaptureStderr();
    EXPECT_EQ(platform.getBoardId(0), 66);
    EXPECT_EQ(platform.getBoardId(1), -1);
    EXPECT_EQ(platform.getBoardId(2), 5);
    EXPECT_EQ(platform.getBoardId(3), -1);
    EXPECT_EQ(platform.getBoardId(4), -1);
    EXPECT_EQ(platform.getBoardId(-1), -1);
    EXPECT_TRUE(platform.hasBoard(0));
    EXPECT_FALSE(platform.hasBoard(1));
    EXPECT_FALSE(platform.hasBoard(4));
    EXPECT_FALSE(platform.isPowerShareFitted());
    testing::internal::GetCapturedStderr();
    tree.setGroup(3, 0);
    EXPECT_TRUE(platform.isPowerShareFitted());
}

TEST(VyPlatformAbstraction, FpgaBuildRecord) {
    struct Case {
        char const* text;
        bool ok;
        std::vector<unsigned int> fields;
    };
    std::vector<Case> const cases = {
        {"7 1 2 3 45\n", true, {7, 1, 2, 3, 45}},
        {"0x1A\n6\n1\n2\n4000000000\n", true, {26, 6, 1, 2, 4000000000U}},
        {"7 1 2 3", false, {}},
        {"7 1 two 3 45", false, {}},
        {"7 1 -2 3 45", false, {}},
        {"7 1 2 3 4294967296", false, {}},
        {"", false, {}}};
    GpioTree tree;
    writeProc(tree, "");
    VyPlatformAbstraction platform(tree.paths());
    // The same open file is read again on every call.
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        writeProc(tree, c.text);
        unsigned int f[5] = {99, 99, 99, 99, 99};
        EXPECT_EQ(platform.getFPGABuildInfo(f[0], f[1], f[2], f[3], f[4]), c.ok);
        if (c.ok) {
            EXPECT_THAT(f, ElementsAreArray(c.fields));
        }
    }
}

TEST(VyPlatformAbstraction, NoDriverFile) {
    GpioTree tree;
    VyPlatformAbstraction platform(tree.paths());
    unsigned int a = 1, b = 2, c = 3, d = 4, e = 5;
    EXPECT_FALSE(platform.getFPGABuildInfo(a, b, c, d, e));
    EXPECT_EQ(a + b + c + d + e, 15U);
}

TEST(VersionInfo, FromTheInstrument) {
    GpioTree tree;
    tree.setGroup(0, 72);
    tree.setGroup(2, 5);
    tree.setGroup(3, 2);
    writeProc(tree, "4 2 7 1 310\n");
    testing::internal::CaptureStderr();
    VersionInfo const& info = Calvento::getVersionInfo(tree.paths());
    testing::internal::GetCapturedStderr();

    std::vector<VersionInfo::Entry> const expected = {
        {"Software", "6.1.2"},
        {"SHA1", BuildInfo::getBuildMetadata(BuildInfo::SOURCE_REVISION)},
        {"Branch", BuildInfo::getBuildMetadata(BuildInfo::BRANCH)},
        {"Build ID", BuildInfo::getBuildMetadata(BuildInfo::BUILD_ID)},
        {"Toolchain", BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN)},
        {"Image", BuildInfo::getBuildMetadata(BuildInfo::TOOLCHAIN)},
        {"Main", "72"},
        {"Main ECN", "2"},
        {"Mezzanine", "-1"},
        {"Frontpanel", "5"},
        {"FPGA ID", "4"},
        {"FPGA", "2.7.1+310"},
        {"PowerShareFitted", "Yes"}};
    EXPECT_THAT(info.getEntries(), ElementsAreArray(expected));
    EXPECT_EQ(info.device(), 72);

    // Built once: later changes to the hardware do not show.
    writeProc(tree, "5 3 0 0 1\n");
    EXPECT_EQ(&Calvento::getVersionInfo(tree.paths()), &info);
    EXPECT_EQ(info.getValue("FPGA"), "2.7.1+310");
}
