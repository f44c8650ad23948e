#include <gtest/gtest.h>

#include "app/plan/ShaftEncTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using namespace fpt::plan::testing;

char const* const kNames[] = {"WHITE",   "YELLOW", "CYAN", "GREEN",
                              "MAGENTA", "RED",    "BLUE", "BLACK"};
char const* const kRgb[] = {"ffffff", "ffff00", "00ffff", "00ff00",
                            "ff00ff", "ff0000", "0000ff", "000000"};

std::string stepLine(char const* direction, int from, int to) {
    return std::string("1. Turn the Shaft Encoder One Step *") + direction + "* from *" +
           kNames[from] + "* to *" + kNames[to] + "*";
}

std::string const kQuestion1 = "Do all of the LEDs light up and do the colours change uniformly?";
std::string const kQuestion2 = " (Y)es (N)o : ";
std::vector<int> const kWalk{1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1};

struct WalkStep {
    char const* direction; // of the instruction shown
    int from;
    int to;
    int colour; // the LED colour reached by the turn
};

// What a walk of kWalk shows: the instruction for each step and the colour
// the turn reached, clockwise to black and back to white. `extra` steps go
// in at `at`.
std::vector<WalkStep> walkShown(std::size_t at = 0, std::vector<WalkStep> const& extra = {}) {
    std::vector<WalkStep> out;
    for (int i = 0; i < 7; ++i)
        out.push_back({"Clockwise", i, i + 1, i + 1});
    for (int i = 7; i > 0; --i)
        out.push_back({"Anticlockwise", i, i - 1, i - 1});
    out.insert(out.begin() + static_cast<std::ptrdiff_t>(at), extra.begin(), extra.end());
    return out;
}

// The walk through the colours; a turn past the target (including the wrap
// from black to white) leaves the instruction where it is until the operator
// comes back to the target. Two polls per turn: the encoder moves while the
// first reads its key, the second hands the new value to the LED colour and
// redraws; the screen is taken then, before the test compares the colour
// with its target.
TEST(ShaftEncTest, WalksThroughEveryColour) {
    struct Case {
        char const* name;
        std::vector<int> turns;
        std::vector<WalkStep> shown; // one per turn
    };
    Case const cases[] = {
        {"OneStepAtATime", kWalk, walkShown()},
        // At black, the first anticlockwise target is blue; a clockwise step
        // wraps to white and the test keeps asking for blue until the
        // operator turns back through black.
        {"WrapsSevenToZero",
         {1, 1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1, -1},
         walkShown(7, {{"Anticlockwise", 7, 6, 0}, {"Anticlockwise", 7, 6, 7}})},
        // Anticlockwise from white wraps to black and back up to it.
        {"WrapsZeroToSevenAndTwoStepsAtOnce",
         {-1, 1, 2, -1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1},
         walkShown(0, {{"Clockwise", 0, 1, 7}, {"Clockwise", 0, 1, 0}, {"Clockwise", 0, 1, 2}})}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        PlanRig p;
        p.mgr().setShaftEncoderMode(FrontPanelTestManager::ShaftEncoderVolume);
        p.mgr().setLEDColour(4);
        ShaftEncTest test;
        for (int turn : c.turns)
            p.turnUp(turn).snap().term().noKey();
        p.snap().term().key('y');

        p.expectRun(test, kPassed);
        EXPECT_EQ(test.name.toStdString(), "Shaft Encoder Tests");
        EXPECT_EQ(p.mgr().getShaftEncoderMode(), FrontPanelTestManager::ShaftEncoderColours);
        ASSERT_EQ(p.shots.size(), c.shown.size() + 1);
        // White (reset) on the first poll, before the first turn is seen.
        std::vector<std::string> expectedLeds{"Lffffffff\n"};
        for (std::size_t i = 0; i < c.shown.size(); ++i) {
            WalkStep const& s = c.shown[i];
            EXPECT_EQ(
                p.shots[i],
                testScreen("Shaft Encoder Tests",
                           {"   This test is to ensure that you have smooth accurate control of",
                            "   the Shaft Encoder, and to ensure that the LED colors change as ",
                            "   expected.", "", stepLine(s.direction, s.from, s.to)},
                           "", " (M)enu, (D)ebug, (Q)uit: "))
                << "after turn " << i + 1;
            expectedLeds.push_back(std::string("Lff") + kRgb[s.colour] + "\n");
        }
        p.expectPrompt(c.shown.size(), kQuestion1, kQuestion2);
        // No button was pressed, so the colour goes to every LED (number ff).
        EXPECT_EQ(p.linesOf('L'), expectedLeds);
    }
}

// The verdict after the walk. A "no" brings up the error prompt, where
// "r" asks again without another walk, "n" moves on with the failure, and
// any key it does not list passes the test.
TEST(ShaftEncTest, VerdictAndErrorPrompt) {
    struct Case {
        char const* keys;    // at the question and the error prompt, in turn
        char const* prompts; // what each key answered: Q question, E error
        Outcome outcome;
    };
    auto const failed = [](int code) {
        return Outcome{code, UnitTest::Failed, "FAILED User Reported Failure"};
    };
    for (Case const& c :
         {Case{"y", "Q", kPassed}, Case{"Y", "Q", kPassed}, Case{"nn", "QE", failed(1)},
          Case{"xn", "QE", failed(1)}, Case{"nx", "QE", kPassed}, Case{"ny", "QE", kPassed},
          Case{"nry", "QEQ", kPassed}, Case{"nrnn", "QEQE", failed(1)}, Case{"nm", "QE", failed(2)},
          Case{"nq", "QE", failed(0)}, Case{"nd", "QE", failed(3)}, Case{"nRy", "QEQ", kPassed}}) {
        SCOPED_TRACE(c.keys);
        PlanRig p;
        ShaftEncTest test;
        for (int turn : kWalk)
            p.turnUp(turn, 2);
        for (char const* k = c.keys; *k; ++k)
            p.snap().term().key(static_cast<unsigned char>(*k));

        p.expectRun(test, c.outcome);
        ASSERT_EQ(p.shots.size(), std::string(c.prompts).size());
        for (std::size_t i = 0; c.prompts[i]; ++i) {
            if (c.prompts[i] == 'Q')
                p.expectPrompt(i, kQuestion1, kQuestion2);
            else
                p.expectPrompt(i, "ERROR: Expected you to answer \"Yes\"?",
                               " (R)etry, (N)ext Test or (Q)uit : ");
        }
    }
}

// The walk can be left half-way; a re-run starts again from white.
TEST(ShaftEncTest, LeftMidwayRestartsFromWhite) {
    for (auto const& [key, code] :
         {std::pair{'m', 2}, std::pair{'q', 0}, std::pair{'d', 3}, std::pair{'M', 2}}) {
        SCOPED_TRACE(std::string(1, key));
        PlanRig p;
        ShaftEncTest test;
        for (int i = 0; i < 3; ++i)
            p.turnUp(1, 2);
        p.term().key(key);
        ASSERT_EQ(test.run(p.mgr()), code);
        EXPECT_EQ(test.state, UnitTest::NotRun);
        ASSERT_EQ(p.mgr().getLEDColour(), 3);
        EXPECT_EQ(p.term().row(6), atCol(2, stepLine("Clockwise", 3, 4)));

        p.snap().term().key('q');
        EXPECT_EQ(test.run(p.mgr()), UnitTest::RunQuit);
        EXPECT_EQ(p.shotRow(0, 6), atCol(2, stepLine("Clockwise", 0, 1)));
        EXPECT_EQ(p.mgr().getLEDColour(), 0);
        EXPECT_EQ(p.rig.encoder->encoderValue, 0);
    }
}

// "v" hands the encoder to the volume: the colour stops changing (the test
// waits) until "c" gives it back.
TEST(ShaftEncTest, VolumeModeHoldsTheColourUntilColoursAgain) {
    PlanRig p;
    ShaftEncTest test;
    std::vector<int32_t> colours;
    auto const record = [&] { colours.push_back(p.mgr().getLEDColour()); };
    p.turnUp(1, 2);
    p.term().key('v');
    p.turnUp(2);
    p.term().action(record).noKey();
    p.term().key('c');
    p.turnUp(1);
    p.term().action(record).key('q');

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunQuit);
    EXPECT_EQ(colours, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(p.rig.selfTest->distinctCalls(), (std::vector<std::string>{"volume 0", "volume 2"}));
    EXPECT_EQ(p.mgr().getShaftEncoderMode(), FrontPanelTestManager::ShaftEncoderColours);
}

} // namespace
