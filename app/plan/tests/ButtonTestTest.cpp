#include <gtest/gtest.h>

#include "app/plan/ButtonTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using namespace fpt::plan::testing;

std::string const kWaitPrompt = " (M)enu, (D)ebug, (Q)uit: ";
Outcome userFailed(int code) {
    return {code, UnitTest::Failed, "FAILED User Reported Failure"};
}

// Press and release of the right button alone passes; the screen shows the
// button's own instructions and its LED is lit in white, even when the
// encoder had left the colour elsewhere.
TEST(ButtonTest, PressAndReleasePasses) {
    struct Case {
        char const* label;
        int index;
        char const* ledLine; // the line that lights the button's LED
    };
    // The knob's LED number (16) addresses the whole ring.
    for (Case const& c : {Case{"Calvento", 0, "L00ffffff\n"}, Case{"F3", 3, "L03ffffff\n"},
                          Case{"F10", 10, "L0affffff\n"}, Case{"OK", 15, "L0fffffff\n"},
                          Case{"Shaft Encoder", 16, "Lffffffff\n"}}) {
        SCOPED_TRACE(c.label);
        PlanRig p;
        p.mgr().setLEDColour(5); // red, left behind by an earlier test
        ButtonTest test(QString::fromLatin1(c.label), static_cast<uint32_t>(c.index));
        std::size_t linesAtPress = 0;
        p.snap();
        p.press(c.index).action([&] { linesAtPress = p.rig.panel->lines.size(); }).noKey();
        p.release(c.index).noKey();

        p.expectRun(test, kPassed);
        std::string const name = std::string("\"") + c.label + "\" Button Test";
        EXPECT_EQ(test.name.toStdString(), name);
        ASSERT_EQ(p.shots.size(), 1u);
        EXPECT_EQ(
            p.shots[0],
            testScreen(name,
                       {"   This test is to ensure Front Panel buttons presses are correctly",
                        "   identified and to ensure that LEDs can be individually controlled.", "",
                        std::string("1. Press and release \"*") + c.label + "*\" button",
                        c.index == 16 ? "3. Check that all LEDs light up"
                                      : "3. Check that it's LED lights up"},
                       "", kWaitPrompt));
        EXPECT_EQ(p.term().attrAt(0, 0), Terminal::Attr::Bold);
        // Before the press every LED shows the (reset) white; then the
        // previous LED goes off and the button's own lights.
        ASSERT_EQ(linesAtPress, 1u);
        EXPECT_EQ(p.rig.panel->lines[0], "Lffffffff\n");
        EXPECT_EQ(p.linesOf('L', 1), (std::vector<std::string>{"Lff000000\n", c.ledLine}));
        EXPECT_EQ(p.mgr().getLEDColour(), 0);
    }
}

// F3 is expected. A second button pressed while F3 is held, or another
// button alone, fails the test and puts up the error prompt; any key other
// than "m", "q", "d" there tries F3 again with the failure on record.
TEST(ButtonTest, AnotherButtonFails) {
    struct Case {
        bool holdExpectedFirst; // F3 held when F4 goes down, or F4 alone
        char errorKey;
        Outcome outcome;
    };
    for (Case const& c :
         {Case{true, 'r', kPassed}, Case{true, 'x', kPassed}, Case{true, 'm', userFailed(2)},
          Case{true, 'q', userFailed(0)}, Case{true, 'd', userFailed(3)},
          Case{false, 'M', userFailed(2)}, Case{false, 'r', kPassed}}) {
        SCOPED_TRACE(std::string(c.holdExpectedFirst ? "F3 held, key " : "F4 alone, key ") +
                     c.errorKey);
        PlanRig p;
        ButtonTest test(QStringLiteral("F3"), 3);
        int32_t stateWhileRetrying = -1;
        bool const retry = c.outcome.code == UnitTest::RunFinished;
        if (c.holdExpectedFirst)
            p.press(3).noKey();
        p.press(4).noKey();
        p.snap().release(4);
        p.release(3).key(c.errorKey);
        if (retry) {
            p.snap().term().action([&] { stateWhileRetrying = test.state; });
            p.press(3).noKey();
            p.release(3).noKey();
        }

        p.expectRun(test, c.outcome);
        ASSERT_EQ(p.shots.size(), retry ? 2u : 1u);
        p.expectPrompt(0, "ERROR: \"F3\" was not the last button pressed",
                       " (M)enu, (D)ebug, (R)etry or (Q)uit : ");
        if (retry) {
            p.expectPrompt(1, "", kWaitPrompt);
            EXPECT_EQ(stateWhileRetrying, UnitTest::Failed);
        }
    }
}

// A button already down when the test starts (auto-repeating or not) is not
// the press: the test waits for it to be released, then for a fresh press of
// F3. Every poll scripted is needed: the release of the held button does not
// end the test.
TEST(ButtonTest, HeldAtStartMustBeReleasedFirst) {
    for (auto const& [held, autoRepeat] :
         {std::pair{3, false}, std::pair{5, false}, std::pair{3, true}}) {
        SCOPED_TRACE(::testing::Message() << "held " << held << (autoRepeat ? " repeating" : ""));
        PlanRig p;
        if (autoRepeat)
            p.rig.keyboard->repeatNow(held);
        else
            p.rig.keyboard->pressNow(held);
        ButtonTest test(QStringLiteral("F3"), 3);
        std::vector<int32_t> states;
        auto const record = [&] { states.push_back(test.state); };

        p.term().noKey(3);
        p.release(held).noKey();
        p.term().action(record).noKey(2); // released, nothing pressed yet
        p.press(3).noKey();
        p.term().action(record);
        p.release(3).noKey();

        p.expectRun(test, kPassed);
        EXPECT_EQ(states, (std::vector<int32_t>{UnitTest::NotRun, UnitTest::NotRun}));
    }
}

// "m", "q", "d" (in either case: these polls take any key, lowered) leave the
// test while it waits for the press or for the release; other keys do not.
TEST(ButtonTest, KeysLeaveTheTest) {
    struct Case {
        bool whileHeld; // the key comes while F3 is down
        char key;
        int code;
    };
    for (Case const& c :
         {Case{false, 'm', 2}, Case{false, 'q', 0}, Case{false, 'd', 3}, Case{false, 'Q', 0},
          Case{true, 'm', 2}, Case{true, 'q', 0}, Case{true, 'd', 3}}) {
        SCOPED_TRACE(std::string(c.whileHeld ? "held, key " : "waiting, key ") + c.key);
        PlanRig p;
        ButtonTest test(QStringLiteral("F3"), 3);
        if (c.whileHeld)
            p.press(3).noKey();
        p.term().keys("x1").key(c.key);
        p.expectRun(test, {c.code, UnitTest::NotRun, "Test Not Run"});
    }
}

} // namespace
