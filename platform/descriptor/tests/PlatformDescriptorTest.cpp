#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/descriptor/BoardId.h"
#include "platform/descriptor/PlatformDescriptorFactory.h"
#include "platform/descriptor/VyPlatformAbstraction.h"
#include "platform/descriptor/testing/GpioTree.h"

using Calvento::read_board_id;
using Calvento::testing::GpioTree;

TEST(ReadBoardId, GroupsReadMostSignificantLineFirstOnceEach) {
    for (auto const& [group, value] : std::vector<std::pair<int, unsigned int>>{
             {0, 0x55}, {0, 64}, {1, 0x12}, {2, 0x2A}, {3, 0x9}, {3, 0x6}}) {
        GpioTree tree; // a tree of its own: nothing read yet
        tree.setGroup(group, value);
        EXPECT_EQ(read_board_id(group, tree.paths().gpioRoot), static_cast<int>(value)) << group;
    }
    GpioTree tree;
    std::string const root = tree.paths().gpioRoot;
    tree.setLine(113, "1\n"); // the power share group's top bit
    for (unsigned int line : {116, 115, 114}) {
        tree.setLine(line, "0\n");
    }
    tree.setGroup(2, 5);
    tree.removeLine(499);
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_board_id(2, root), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              tree.valuePath(499) + ": No such file or directory\n");
    tree.setLine(499, "17"); // any non-zero number is a high line
    EXPECT_EQ(read_board_id(2, root), 5 | 8);
    EXPECT_EQ(read_board_id(3, root), 8);
    tree.setGroup(2, 3);
    EXPECT_EQ(read_board_id(2, root), 5 | 8); // read once, then kept
    EXPECT_EQ(read_board_id(4, root), -1);
}

TEST(PlatformDescriptorFactory, BoardsFromTheStraps) {
    constexpr int kMissing = -1;
    struct Case {
        int baseboard, mezzanine, frontPanel, powerShare;
        std::vector<int> boards;
    };
    for (Case const& c : std::vector<Case>{{63, 0, 4, 0, {1, 3, 4, 6}},
                                           {64, kMissing, 5, kMissing, {2, 5}},
                                           {kMissing, 31, kMissing, 15, {3, 6}}}) {
        GpioTree tree;
        int const values[4] = {c.baseboard, c.mezzanine, c.frontPanel, c.powerShare};
        for (int group = 0; group < 4; ++group) {
            if (values[group] != kMissing) {
                tree.setGroup(group, static_cast<unsigned int>(values[group]));
            }
        }
        testing::internal::CaptureStderr();
        auto const descriptor = PlatformDescriptorFactory::createPlatformDescriptor(tree.paths());
        testing::internal::GetCapturedStderr();
        std::vector<int> boards;
        for (unsigned int i = 0; i < descriptor->getNumBoards(); ++i) {
            boards.push_back(descriptor->getBoardIdByIdx(i));
        }
        EXPECT_EQ(boards, c.boards) << c.baseboard << "/" << c.frontPanel;
    }
}

TEST(PlatformDescriptorFactoryDeathTest, DeviceKindFromTheMainBoardReadOncePerProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a fresh process each
    for (auto const& [first, later, kinds] :
         std::vector<std::tuple<int, int, int>>{{63, 64, 0}, {64, 63, 11}}) {
        EXPECT_EXIT(
            {
                GpioTree one;
                GpioTree two;
                one.setGroup(0, static_cast<unsigned int>(first));
                two.setGroup(0, static_cast<unsigned int>(later));
                auto const a = PlatformDescriptorFactory::createPlatformDescriptor(one.paths());
                auto const b = PlatformDescriptorFactory::createPlatformDescriptor(two.paths());
                std::exit(a->getDevice() * 10 + b->getDevice());
            },
            testing::ExitedWithCode(kinds), "");
    }
}

TEST(VyPlatformAbstraction, TheFpgaBuildRecord) {
    GpioTree tree;
    tree.setFpgaBuild("7 1 2");
    VyPlatformAbstraction platform(tree.paths());
    unsigned int f[5] = {};
    EXPECT_FALSE(platform.getFPGABuildInfo(f[0], f[1], f[2], f[3], f[4]));
    tree.setFpgaBuild("26 6 1 2 4000000000\n"); // the open file is read again on every call
    EXPECT_TRUE(platform.getFPGABuildInfo(f[0], f[1], f[2], f[3], f[4]));
    EXPECT_EQ(std::vector<unsigned int>(f, f + 5),
              std::vector<unsigned int>({26, 6, 1, 2, 4000000000U}));
}
