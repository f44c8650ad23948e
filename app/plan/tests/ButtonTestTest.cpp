#include <gtest/gtest.h>

#include "app/plan/ButtonTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using fpt::plan::testing::atCol;
using fpt::plan::testing::PlanRig;
using fpt::plan::testing::putDescription;
using fpt::plan::testing::putPrompt;
using fpt::plan::testing::screenOf;

std::string const kWaitPrompt = " (M)enu, (D)ebug, (Q)uit: ";

struct PassCase {
    char const* label;
    uint32_t index;
    char const* instruction; // the description's last line
    char const* ledLine;     // the line that lights the button's LED
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(PassCase const& c, std::ostream* os) {
    *os << c.label;
}

class ButtonTestPass : public ::testing::TestWithParam<PassCase> {};

// Press and release of the right button alone passes; the screen shows the
// button's own instructions and its LED is lit in white, even when the
// encoder had left the colour elsewhere.
TEST_P(ButtonTestPass, PressAndReleasePasses) {
    PassCase const& c = GetParam();
    PlanRig p;
    p.mgr().setLEDColour(5); // red, left behind by an earlier test
    ButtonTest test(QString::fromLatin1(c.label), c.index);
    std::size_t linesAtPress = 0;

    p.snap();
    p.term().action([&] {
        p.rig.keyboard->pressNow(static_cast<int>(c.index));
        linesAtPress = p.rig.panel->lines.size();
    });
    p.term().noKey();
    p.term().action([&] { p.rig.keyboard->releaseNow(static_cast<int>(c.index)); }).noKey();

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.state, UnitTest::Passed);
    EXPECT_EQ(test.result.toStdString(), "PASSED: Test Completed");
    std::string const name = std::string("\"") + c.label + "\" Button Test";
    EXPECT_EQ(test.name.toStdString(), name);
    EXPECT_TRUE(p.term().scriptDone());

    std::map<int, std::string> rows;
    rows[0] = name;
    putDescription(rows, {"   This test is to ensure Front Panel buttons presses are correctly",
                          "   identified and to ensure that LEDs can be individually controlled.",
                          "", std::string("1. Press and release \"*") + c.label + "*\" button",
                          c.instruction});
    putPrompt(rows, "", kWaitPrompt);
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shots[0], screenOf(rows));
    EXPECT_EQ(p.term().attrAt(0, 0), Terminal::Attr::Bold);

    // Before the press every LED shows the (reset) white; then the previous
    // LED goes off and the button's own lights.
    std::vector<std::string> const beforePress(p.rig.panel->lines.begin(),
                                               p.rig.panel->lines.begin() +
                                                   static_cast<std::ptrdiff_t>(linesAtPress));
    EXPECT_EQ(beforePress, std::vector<std::string>{"Lffffffff\n"});
    EXPECT_EQ(p.linesOf('L', linesAtPress), (std::vector<std::string>{"Lff000000\n", c.ledLine}));
    EXPECT_EQ(p.mgr().getLEDColour(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Buttons, ButtonTestPass,
    ::testing::Values(PassCase{"Calvento", 0, "3. Check that it's LED lights up", "L00ffffff\n"},
                      PassCase{"F3", 3, "3. Check that it's LED lights up", "L03ffffff\n"},
                      PassCase{"F10", 10, "3. Check that it's LED lights up", "L0affffff\n"},
                      PassCase{"OK", 15, "3. Check that it's LED lights up", "L0fffffff\n"},
                      // The knob's LED number addresses the whole ring.
                      PassCase{"Shaft Encoder", 16, "3. Check that all LEDs light up",
                               "Lffffffff\n"}));

struct FailCase {
    char const* name;
    bool holdExpectedFirst; // F3 held when F4 goes down, or F4 alone
    int errorKey;
    int code;
    int32_t state;
    char const* result;
};

void PrintTo(FailCase const& c, std::ostream* os) {
    *os << c.name;
}

class ButtonTestFail : public ::testing::TestWithParam<FailCase> {};

// F3 is expected. A second button pressed while F3 is held, or another
// button alone, fails the test and puts up the error prompt; any key other
// than "m", "q", "d" there tries F3 again with the failure on record.
TEST_P(ButtonTestFail, AnotherButtonFails) {
    FailCase const& c = GetParam();
    PlanRig p;
    ButtonTest test(QStringLiteral("F3"), 3);
    int32_t stateWhileRetrying = -1;

    if (c.holdExpectedFirst)
        p.term().action([&] { p.rig.keyboard->pressNow(3); }).noKey();
    p.term().action([&] { p.rig.keyboard->pressNow(4); }).noKey();
    p.snap();
    p.term().action([&] {
        p.rig.keyboard->releaseNow(4);
        p.rig.keyboard->releaseNow(3);
    });
    p.term().key(c.errorKey);
    if (c.code == UnitTest::RunFinished) {
        p.snap();
        p.term().action([&] {
            stateWhileRetrying = test.state;
            p.rig.keyboard->pressNow(3);
        });
        p.term().noKey();
        p.term().action([&] { p.rig.keyboard->releaseNow(3); }).noKey();
    }

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, c.state);
    EXPECT_EQ(test.result.toStdString(), c.result);
    EXPECT_TRUE(p.term().scriptDone());

    ASSERT_GE(p.shots.size(), 1u);
    EXPECT_EQ(p.shotRow(0, 19), atCol(4, "ERROR: \"F3\" was not the last button pressed"));
    EXPECT_EQ(p.shotRow(0, 21), atCol(4, " (M)enu, (D)ebug, (R)etry or (Q)uit : "));
    if (c.code == UnitTest::RunFinished) {
        ASSERT_EQ(p.shots.size(), 2u);
        EXPECT_EQ(p.shotRow(1, 19), "");
        EXPECT_EQ(p.shotRow(1, 21), atCol(4, kWaitPrompt));
        EXPECT_EQ(stateWhileRetrying, UnitTest::Failed);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Buttons, ButtonTestFail,
    ::testing::Values(FailCase{"SecondHeldThenRetry", true, 'r', 1, UnitTest::Passed,
                               "PASSED: Test Completed"},
                      FailCase{"SecondHeldThenOtherKey", true, 'x', 1, UnitTest::Passed,
                               "PASSED: Test Completed"},
                      FailCase{"SecondHeldThenMenu", true, 'm', 2, UnitTest::Failed,
                               "FAILED User Reported Failure"},
                      FailCase{"SecondHeldThenQuit", true, 'q', 0, UnitTest::Failed,
                               "FAILED User Reported Failure"},
                      FailCase{"SecondHeldThenDebug", true, 'd', 3, UnitTest::Failed,
                               "FAILED User Reported Failure"},
                      FailCase{"WrongButtonThenUpperCaseMenu", false, 'M', 2, UnitTest::Failed,
                               "FAILED User Reported Failure"},
                      FailCase{"WrongButtonThenRetry", false, 'r', 1, UnitTest::Passed,
                               "PASSED: Test Completed"}),
    fpt::plan::testing::CaseName{});

struct HeldCase {
    char const* name;
    int held;
    bool autoRepeat;
};

void PrintTo(HeldCase const& c, std::ostream* os) {
    *os << c.name;
}

class ButtonTestHeldAtStart : public ::testing::TestWithParam<HeldCase> {};

// A button already down when the test starts (auto-repeating or not) is not
// the press: the test waits for it to be released, then for a fresh press of
// F3.
TEST_P(ButtonTestHeldAtStart, MustBeReleasedFirst) {
    HeldCase const& c = GetParam();
    PlanRig p;
    if (c.autoRepeat)
        p.rig.keyboard->repeatNow(c.held);
    else
        p.rig.keyboard->pressNow(c.held);
    ButtonTest test(QStringLiteral("F3"), 3);
    std::vector<int32_t> states;
    auto const record = [&] { states.push_back(test.state); };

    p.term().noKey(3);
    p.term().action([&] { p.rig.keyboard->releaseNow(c.held); }).noKey();
    p.term().action(record).noKey(2); // released, nothing pressed yet
    p.term().action([&] { p.rig.keyboard->pressNow(3); }).noKey();
    p.term().action([&] {
        record();
        p.rig.keyboard->releaseNow(3);
    });
    p.term().noKey();

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.state, UnitTest::Passed);
    // Every poll scripted was needed: the release of the held button did not
    // end the test.
    EXPECT_TRUE(p.term().scriptDone());
    EXPECT_EQ(states, (std::vector<int32_t>{UnitTest::NotRun, UnitTest::NotRun}));
}

INSTANTIATE_TEST_SUITE_P(Buttons, ButtonTestHeldAtStart,
                         ::testing::Values(HeldCase{"SameButton", 3, false},
                                           HeldCase{"OtherButton", 5, false},
                                           HeldCase{"SameButtonAutoRepeat", 3, true}),
                         fpt::plan::testing::CaseName{});

struct LeaveCase {
    char const* name;
    bool whileHeld; // the key comes while F3 is down
    int key;
    int code;
};

void PrintTo(LeaveCase const& c, std::ostream* os) {
    *os << c.name;
}

class ButtonTestLeave : public ::testing::TestWithParam<LeaveCase> {};

// "m", "q", "d" (in either case: these polls take any key, lowered) leave the
// test while it waits for the press or for the release; other keys do not.
TEST_P(ButtonTestLeave, KeysLeaveTheTest) {
    LeaveCase const& c = GetParam();
    PlanRig p;
    ButtonTest test(QStringLiteral("F3"), 3);
    if (c.whileHeld)
        p.term().action([&] { p.rig.keyboard->pressNow(3); }).noKey();
    p.term().keys("x1");
    p.term().key(c.key);

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, UnitTest::NotRun);
    EXPECT_EQ(test.result.toStdString(), "Test Not Run");
    EXPECT_TRUE(p.term().scriptDone());
}

INSTANTIATE_TEST_SUITE_P(Buttons, ButtonTestLeave,
                         ::testing::Values(LeaveCase{"MenuWaiting", false, 'm', 2},
                                           LeaveCase{"QuitWaiting", false, 'q', 0},
                                           LeaveCase{"DebugWaiting", false, 'd', 3},
                                           LeaveCase{"UpperQuitWaiting", false, 'Q', 0},
                                           LeaveCase{"MenuHeld", true, 'm', 2},
                                           LeaveCase{"QuitHeld", true, 'q', 0},
                                           LeaveCase{"DebugHeld", true, 'd', 3}),
                         fpt::plan::testing::CaseName{});

} // namespace
