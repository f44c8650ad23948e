#include <deque>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/descriptor/PlatformDescriptor.h"
#include "platform/descriptor/PlatformDescriptorFactory.h"
#include "platform/descriptor/testing/GpioTree.h"

using Calvento::testing::GpioTree;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

std::vector<int> boardIds(PlatformDescriptor const& descriptor) {
    std::vector<int> ids;
    for (unsigned int i = 0; i < descriptor.getNumBoards(); ++i) {
        ids.push_back(descriptor.getBoardIdByIdx(i));
    }
    return ids;
}

} // namespace

TEST(PlatformDescriptorFactory, BoardsFromTheStraps) {
    constexpr int kMissing = -1;
    struct Case {
        int baseboard, mezzanine, frontPanel, powerShare;
        Calvento::Vy::Device device;
        std::vector<int> boards;
    };
    std::vector<Case> const cases = {
        {63, 0, 4, 0, Calvento::Vy::DEVICE_VY, {1, 3, 4, 6}},
        {64, kMissing, 5, kMissing, Calvento::Vy::DEVICE_VYL_VYP, {2, 5}},
        {0, 31, 0, 15, Calvento::Vy::DEVICE_VY, {1, 3, 4, 6}},
        {127, 3, kMissing, 9, Calvento::Vy::DEVICE_VYL_VYP, {2, 3, 6}},
        {kMissing, kMissing, 5, kMissing, Calvento::Vy::DEVICE_VY, {5}},
        {kMissing, kMissing, kMissing, kMissing, Calvento::Vy::DEVICE_VY, {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.baseboard << "/" << c.mezzanine << "/" << c.frontPanel
                                        << "/" << c.powerShare);
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
        ASSERT_NE(descriptor, nullptr);
        EXPECT_EQ(descriptor->getDevice(), c.device);
        EXPECT_THAT(boardIds(*descriptor), ElementsAreArray(c.boards));
    }
}

TEST(PlatformDescriptorFactory, BoardWordsCarryVariantAndStrapId) {
    GpioTree tree;
    tree.setGroup(0, 70);
    tree.setGroup(1, 2);
    tree.setGroup(2, 6);
    tree.setGroup(3, 1);
    auto const descriptor = PlatformDescriptorFactory::createPlatformDescriptor(tree.paths());
    ASSERT_NE(descriptor, nullptr);
    std::deque<unsigned int> words;
    descriptor->serialize(words);
    EXPECT_THAT(words, ElementsAre(1U, 4U,           // VyL/VyP, four boards
                                   2U, 1U, 70U, 0U,  // CV079, variant 1
                                   3U, 0U, 2U, 0U,   // mezzanine
                                   5U, 2U, 6U, 0U,   // CV084, variant 2
                                   6U, 0U, 1U, 0U)); // power share
    EXPECT_EQ(
        descriptor->getBoardDescriptor(BoardDescriptor::CV084_VYP_FRONT_PANEL)->getBoardName(),
        "CV084 VyP Front Panel Board");
    EXPECT_EQ(descriptor->getBoardDescriptor(BoardDescriptor::CV072_VY_VYL_FRONT_PANEL), nullptr);
}

TEST(PlatformDescriptorFactory, MissingLineLeavesBoardOutUntilItReads) {
    GpioTree tree;
    tree.setGroup(0, 64);
    tree.setGroup(2, 5);
    tree.removeLine(500);
    testing::internal::CaptureStderr();
    auto const before = PlatformDescriptorFactory::createPlatformDescriptor(tree.paths());
    std::string const err = testing::internal::GetCapturedStderr();
    EXPECT_THAT(boardIds(*before), ElementsAre(2));
    EXPECT_NE(err.find(tree.root() + "500/value: No such file or directory\n"), std::string::npos);

    tree.setLine(500, 0);
    testing::internal::CaptureStderr();
    auto const after = PlatformDescriptorFactory::createPlatformDescriptor(tree.paths());
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(boardIds(*after), ElementsAre(2, 5));
    EXPECT_EQ(after->getBoardDescriptor(BoardDescriptor::CV084_VYP_FRONT_PANEL)->getStrapId(), 5U);
}

TEST(BoardDescriptor, Names) {
    std::vector<std::string> const names = {"Undefined/Unknown Board",
                                            "CV069 Vy Baseboard",
                                            "CV079 VyL/VyP Baseboard",
                                            "CV070 Vy/VyL/VyP Mezzanine Board",
                                            "CV072 Vy/VyL Front Panel Board",
                                            "CV084 VyP Front Panel Board",
                                            "CV098 VyP Power Share Board",
                                            "CV087 40KM CPU Carrier Board",
                                            "CV088 40KM FPGA Board",
                                            "CV089 40KM SDI I/O Board",
                                            "CV090 40KM Front Panel Board",
                                            "CV091 40KM Backplane",
                                            "CV094 40KM Miscellaneous I/O Board",
                                            "Undefined/Unknown Board"};
    for (int id = 0; id < static_cast<int>(names.size()); ++id) {
        EXPECT_EQ(BoardDescriptor(BoardDescriptor::BoardId(id)).getBoardName().toStdString(),
                  names[static_cast<std::size_t>(id)])
            << id;
    }
    EXPECT_EQ(BoardDescriptor::getBoardName(-1), "Undefined/Unknown Board");
}

TEST(PlatformDescriptor, MapOperations) {
    PlatformDescriptor descriptor(Calvento::Vy::DEVICE_VYL_VYP);
    EXPECT_TRUE(descriptor.addBoard(
        std::make_shared<BoardDescriptor const>(BoardDescriptor::CV084_VYP_FRONT_PANEL, 2, 5)));
    EXPECT_TRUE(descriptor.addBoard(
        std::make_shared<BoardDescriptor const>(BoardDescriptor::CV079_VYL_VYP_BASEBOARD, 1, 64)));
    // One descriptor per id: the first stays.
    EXPECT_FALSE(descriptor.addBoard(
        std::make_shared<BoardDescriptor const>(BoardDescriptor::CV084_VYP_FRONT_PANEL, 9, 9)));
    EXPECT_FALSE(descriptor.addBoard(nullptr));

    EXPECT_EQ(descriptor.getNumBoards(), 2U);
    EXPECT_EQ(descriptor.getBoardIdByIdx(0), BoardDescriptor::CV079_VYL_VYP_BASEBOARD);
    EXPECT_EQ(descriptor.getBoardIdByIdx(1), BoardDescriptor::CV084_VYP_FRONT_PANEL);
    EXPECT_EQ(descriptor.getBoardIdByIdx(2), BoardDescriptor::BoardId(0));
    EXPECT_TRUE(descriptor.hasBoard(BoardDescriptor::CV084_VYP_FRONT_PANEL));
    EXPECT_FALSE(descriptor.hasBoard(BoardDescriptor::CV070_MEZZANINE));
    EXPECT_EQ(descriptor.getBoardDescriptor(BoardDescriptor::CV084_VYP_FRONT_PANEL)->getVariant(),
              2U);
}

TEST(PlatformDescriptor, SerializeRoundTripAndRejects) {
    PlatformDescriptor original(Calvento::Vy::DEVICE_VYL_VYP);
    original.addBoard(
        std::make_shared<BoardDescriptor const>(BoardDescriptor::CV070_MEZZANINE, 0, 17, 3));
    original.addBoard(
        std::make_shared<BoardDescriptor const>(BoardDescriptor::CV069_VY_BASEBOARD, 0, 12));
    std::deque<unsigned int> words = {0xAAAA}; // something before it
    original.serialize(words);
    words.push_back(0xBBBB); // and after
    EXPECT_THAT(words, ElementsAre(0xAAAAU, 1U, 2U, 1U, 0U, 12U, 0U, 3U, 0U, 17U, 3U, 0xBBBBU));

    PlatformDescriptor copy;
    unsigned int position = 1;
    ASSERT_TRUE(copy.deserialize(words, position));
    EXPECT_EQ(position, 11U);
    EXPECT_EQ(copy.getDevice(), Calvento::Vy::DEVICE_VYL_VYP);
    std::deque<unsigned int> again;
    copy.serialize(again);
    EXPECT_THAT(again, ElementsAreArray(words.begin() + 1, words.end() - 1));

    std::vector<std::pair<char const*, std::deque<unsigned int>>> const bad = {
        {"empty", {}},
        {"no count", {1}},
        {"board cut short", {1, 1, 5, 2, 5}},
        {"count too high", {1, 2, 5, 2, 5, 0}},
        {"same board twice", {1, 2, 5, 2, 5, 0, 5, 2, 5, 0}}};
    for (auto const& [what, badWords] : bad) {
        SCOPED_TRACE(what);
        unsigned int at = 0;
        EXPECT_FALSE(copy.deserialize(badWords, at));
        EXPECT_EQ(at, 0U);
        EXPECT_EQ(copy.getNumBoards(), 2U);
    }
    unsigned int past = 20;
    EXPECT_FALSE(copy.deserialize(words, past));

    BoardDescriptor board;
    unsigned int at = 3;
    EXPECT_TRUE(board.deserialize(words, at));
    EXPECT_EQ(at, 7U);
    EXPECT_EQ(board.getBoardId(), BoardDescriptor::CV069_VY_BASEBOARD);
    EXPECT_EQ(board.getStrapId(), 12U);
    at = 9;
    EXPECT_FALSE(board.deserialize(words, at));
    EXPECT_EQ(at, 9U);
}
