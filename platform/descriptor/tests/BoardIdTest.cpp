#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/descriptor/BoardId.h"
#include "platform/descriptor/testing/GpioTree.h"

using Calvento::read_board_id;
using Calvento::testing::GpioTree;

TEST(ReadBoardId, GroupsReadMostSignificantLineFirst) {
    std::vector<std::pair<int, unsigned int>> const cases = {
        {0, 0}, {0, 1}, {0, 63},  {0, 64},   {0, 127}, {0, 0x55}, {1, 0},   {1, 31}, {1, 0x12},
        {2, 4}, {2, 5}, {2, 127}, {2, 0x2A}, {3, 0},   {3, 15},   {3, 0x9}, {3, 0x6}};
    for (auto const& [group, value] : cases) {
        SCOPED_TRACE(testing::Message() << "group " << group << " value " << value);
        GpioTree tree; // fresh tree: fresh cache
        tree.setGroup(group, value);
        EXPECT_EQ(read_board_id(group, tree.root()), static_cast<int>(value));
    }
}

TEST(ReadBoardId, PowerShareGroupTakesLine113AsItsTopBit) {
    struct Case {
        int l113, l116, l115, l114;
        int expected;
    };
    std::vector<Case> const cases = {
        {1, 0, 0, 0, 8}, {0, 1, 0, 0, 4}, {0, 0, 1, 0, 2}, {0, 0, 0, 1, 1}, {1, 0, 0, 1, 9},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.expected);
        GpioTree tree;
        tree.setLine(113, c.l113);
        tree.setLine(116, c.l116);
        tree.setLine(115, c.l115);
        tree.setLine(114, c.l114);
        EXPECT_EQ(read_board_id(3, tree.root()), c.expected);
    }
}

TEST(ReadBoardId, AnyNonZeroNumberIsAHighLine) {
    GpioTree tree;
    tree.setGroup(1, 0);
    std::ofstream(tree.root() + "508/value") << "17\n";
    std::ofstream(tree.root() + "504/value") << "x";
    EXPECT_EQ(read_board_id(1, tree.root()), 0x10);
}

TEST(ReadBoardId, ReadOnceThenCached) {
    GpioTree tree;
    tree.setGroup(0, 100);
    EXPECT_EQ(read_board_id(0, tree.root()), 100);
    tree.setGroup(0, 3);
    EXPECT_EQ(read_board_id(0, tree.root()), 100);
    // Other groups of the same tree have their own cells.
    tree.setGroup(2, 3);
    EXPECT_EQ(read_board_id(2, tree.root()), 3);
}

TEST(ReadBoardId, MissingLineFailsAndIsRetried) {
    GpioTree tree;
    tree.setGroup(2, 5);
    tree.removeLine(499);
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_board_id(2, tree.root()), -1);
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, tree.root() + "499/value: No such file or directory\n");

    tree.setLine(499, 1);
    EXPECT_EQ(read_board_id(2, tree.root()), 5 | 8);
}

TEST(ReadBoardId, GroupsOutsideZeroToThree) {
    GpioTree tree;
    for (int group : {-1, 4, 100}) {
        EXPECT_EQ(read_board_id(group, tree.root()), -1) << group;
    }
}

TEST(BoardVariants, BaseboardAndFrontPanel) {
    // Baseboard id -1: lines missing.
    for (auto const& [baseboard, variant] :
         std::vector<std::pair<int, int>>{{0, 0}, {63, 0}, {64, 1}, {127, 1}, {-1, 2}}) {
        SCOPED_TRACE(baseboard);
        GpioTree tree;
        if (baseboard >= 0) {
            tree.setGroup(0, static_cast<unsigned int>(baseboard));
        }
        testing::internal::CaptureStderr();
        EXPECT_EQ(Calvento::get_baseboard_variant(tree.root()), variant);
        testing::internal::GetCapturedStderr();
    }
    for (auto const& [frontPanel, variant] :
         std::vector<std::pair<int, int>>{{-1, 1}, {4, 1}, {5, 2}, {127, 2}}) {
        EXPECT_EQ(Calvento::get_front_panel_variant(frontPanel), variant) << frontPanel;
    }
}
