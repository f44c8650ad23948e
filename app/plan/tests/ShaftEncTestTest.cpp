#include <gtest/gtest.h>

#include "app/plan/ShaftEncTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using fpt::plan::testing::atCol;
using fpt::plan::testing::PlanRig;
using fpt::plan::testing::putDescription;
using fpt::plan::testing::putPrompt;
using fpt::plan::testing::screenOf;

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
std::string const kError1 = "ERROR: Expected you to answer \"Yes\"?";
std::string const kError2 = " (R)etry, (N)ext Test or (Q)uit : ";

// Two polls per turn: the encoder moves while the first reads its key, the
// second hands the new value to the LED colour and redraws; the screen is
// taken then, before the test compares the colour with its target.
void scriptTurns(PlanRig& p, std::vector<int> const& turns) {
    for (int turn : turns) {
        p.term().action([&p, turn] { p.turnUpNow(turn); }).noKey();
        p.snap().term().noKey();
    }
}

std::vector<int> walk() {
    return {1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1};
}

struct WalkStep {
    char const* direction; // of the instruction shown
    int from;
    int to;
    int colour; // the LED colour reached by the turn
};

struct WalkCase {
    char const* name;
    std::vector<int> turns;
    std::vector<WalkStep> shown; // one per turn
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(WalkCase const& c, std::ostream* os) {
    *os << c.name;
}

class ShaftEncWalk : public ::testing::TestWithParam<WalkCase> {};

// The walk through the colours, clockwise to black and back to white; a turn
// past the target (including the wrap from black to white) leaves the
// instruction where it is until the operator comes back to the target.
TEST_P(ShaftEncWalk, WalksThroughEveryColour) {
    WalkCase const& c = GetParam();
    PlanRig p;
    p.mgr().setShaftEncoderMode(FrontPanelTestManager::ShaftEncoderVolume);
    p.mgr().setLEDColour(4);
    ShaftEncTest test;

    scriptTurns(p, c.turns);
    p.snap().term().key('y');

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.state, UnitTest::Passed);
    EXPECT_EQ(test.result.toStdString(), "PASSED: Test Completed");
    EXPECT_EQ(test.name.toStdString(), "Shaft Encoder Tests");
    EXPECT_TRUE(p.term().scriptDone());
    EXPECT_EQ(p.mgr().getShaftEncoderMode(), FrontPanelTestManager::ShaftEncoderColours);

    ASSERT_EQ(p.shots.size(), c.shown.size() + 1);
    // White (reset) on the first poll, before the first turn is seen.
    std::vector<std::string> expectedLeds{"Lffffffff\n"};
    for (std::size_t i = 0; i < c.shown.size(); ++i) {
        WalkStep const& s = c.shown[i];
        std::map<int, std::string> rows;
        rows[0] = "Shaft Encoder Tests";
        putDescription(rows, {"   This test is to ensure that you have smooth accurate control of",
                              "   the Shaft Encoder, and to ensure that the LED colors change as ",
                              "   expected.", "", stepLine(s.direction, s.from, s.to)});
        putPrompt(rows, "", " (M)enu, (D)ebug, (Q)uit: ");
        EXPECT_EQ(p.shots[i], screenOf(rows)) << "after turn " << i + 1;
        expectedLeds.push_back(std::string("Lff") + kRgb[s.colour] + "\n");
    }
    EXPECT_EQ(p.shotRow(c.shown.size(), 19), atCol(4, kQuestion1));
    EXPECT_EQ(p.shotRow(c.shown.size(), 21), atCol(4, kQuestion2));
    // No button was pressed, so the colour goes to every LED (number ff).
    EXPECT_EQ(p.linesOf('L'), expectedLeds);
}

INSTANTIATE_TEST_SUITE_P(
    ShaftEnc, ShaftEncWalk,
    ::testing::Values(WalkCase{"OneStepAtATime",
                               walk(),
                               {{"Clockwise", 0, 1, 1},
                                {"Clockwise", 1, 2, 2},
                                {"Clockwise", 2, 3, 3},
                                {"Clockwise", 3, 4, 4},
                                {"Clockwise", 4, 5, 5},
                                {"Clockwise", 5, 6, 6},
                                {"Clockwise", 6, 7, 7},
                                {"Anticlockwise", 7, 6, 6},
                                {"Anticlockwise", 6, 5, 5},
                                {"Anticlockwise", 5, 4, 4},
                                {"Anticlockwise", 4, 3, 3},
                                {"Anticlockwise", 3, 2, 2},
                                {"Anticlockwise", 2, 1, 1},
                                {"Anticlockwise", 1, 0, 0}}},
                      // At black, the first anticlockwise target is blue; a clockwise step
                      // wraps to white and the test keeps asking for blue until the
                      // operator turns back through black.
                      WalkCase{"WrapsSevenToZero",
                               {1, 1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1, -1},
                               {{"Clockwise", 0, 1, 1},
                                {"Clockwise", 1, 2, 2},
                                {"Clockwise", 2, 3, 3},
                                {"Clockwise", 3, 4, 4},
                                {"Clockwise", 4, 5, 5},
                                {"Clockwise", 5, 6, 6},
                                {"Clockwise", 6, 7, 7},
                                {"Anticlockwise", 7, 6, 0},
                                {"Anticlockwise", 7, 6, 7},
                                {"Anticlockwise", 7, 6, 6},
                                {"Anticlockwise", 6, 5, 5},
                                {"Anticlockwise", 5, 4, 4},
                                {"Anticlockwise", 4, 3, 3},
                                {"Anticlockwise", 3, 2, 2},
                                {"Anticlockwise", 2, 1, 1},
                                {"Anticlockwise", 1, 0, 0}}},
                      // Anticlockwise from white wraps to black and back up to it.
                      WalkCase{"WrapsZeroToSevenAndTwoStepsAtOnce",
                               {-1, 1, 2, -1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1},
                               {{"Clockwise", 0, 1, 7},
                                {"Clockwise", 0, 1, 0},
                                {"Clockwise", 0, 1, 2},
                                {"Clockwise", 0, 1, 1},
                                {"Clockwise", 1, 2, 2},
                                {"Clockwise", 2, 3, 3},
                                {"Clockwise", 3, 4, 4},
                                {"Clockwise", 4, 5, 5},
                                {"Clockwise", 5, 6, 6},
                                {"Clockwise", 6, 7, 7},
                                {"Anticlockwise", 7, 6, 6},
                                {"Anticlockwise", 6, 5, 5},
                                {"Anticlockwise", 5, 4, 4},
                                {"Anticlockwise", 4, 3, 3},
                                {"Anticlockwise", 3, 2, 2},
                                {"Anticlockwise", 2, 1, 1},
                                {"Anticlockwise", 1, 0, 0}}}),
    fpt::plan::testing::CaseName{});

struct AnswerCase {
    char const* name;
    std::string keys;    // at the question and the error prompt, in turn
    std::string prompts; // what each key answered: Q question, E error
    int code;
    int32_t state;
    char const* result;
};

void PrintTo(AnswerCase const& c, std::ostream* os) {
    *os << c.name;
}

class ShaftEncAnswer : public ::testing::TestWithParam<AnswerCase> {};

// The verdict after the walk. A "no" brings up the error prompt, where
// "r" asks again without another walk, "n" moves on with the failure, and
// any key it does not list passes the test.
TEST_P(ShaftEncAnswer, VerdictAndErrorPrompt) {
    AnswerCase const& c = GetParam();
    PlanRig p;
    ShaftEncTest test;
    for (int turn : walk())
        p.term().action([&p, turn] { p.turnUpNow(turn); }).noKey(2);
    for (char k : c.keys)
        p.snap().term().key(static_cast<unsigned char>(k));

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, c.state);
    EXPECT_EQ(test.result.toStdString(), c.result);
    EXPECT_TRUE(p.term().scriptDone());

    ASSERT_EQ(p.shots.size(), c.prompts.size());
    for (std::size_t i = 0; i < c.prompts.size(); ++i) {
        bool const question = c.prompts[i] == 'Q';
        EXPECT_EQ(p.shotRow(i, 19), atCol(4, question ? kQuestion1 : kError1)) << "key " << i;
        EXPECT_EQ(p.shotRow(i, 21), atCol(4, question ? kQuestion2 : kError2)) << "key " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    ShaftEnc, ShaftEncAnswer,
    ::testing::Values(
        AnswerCase{"Yes", "y", "Q", 1, UnitTest::Passed, "PASSED: Test Completed"},
        AnswerCase{"UpperYes", "Y", "Q", 1, UnitTest::Passed, "PASSED: Test Completed"},
        AnswerCase{"NoThenNext", "nn", "QE", 1, UnitTest::Failed, "FAILED User Reported Failure"},
        AnswerCase{"OtherThenNext", "xn", "QE", 1, UnitTest::Failed,
                   "FAILED User Reported Failure"},
        AnswerCase{"NoThenUnlistedKeyPasses", "nx", "QE", 1, UnitTest::Passed,
                   "PASSED: Test Completed"},
        AnswerCase{"NoThenYesAtErrorPasses", "ny", "QE", 1, UnitTest::Passed,
                   "PASSED: Test Completed"},
        AnswerCase{"NoRetryYes", "nry", "QEQ", 1, UnitTest::Passed, "PASSED: Test Completed"},
        AnswerCase{"NoRetryNoNext", "nrnn", "QEQE", 1, UnitTest::Failed,
                   "FAILED User Reported Failure"},
        AnswerCase{"NoThenMenu", "nm", "QE", 2, UnitTest::Failed, "FAILED User Reported Failure"},
        AnswerCase{"NoThenQuit", "nq", "QE", 0, UnitTest::Failed, "FAILED User Reported Failure"},
        AnswerCase{"NoThenDebug", "nd", "QE", 3, UnitTest::Failed, "FAILED User Reported Failure"},
        AnswerCase{"NoThenUpperRetry", "nRy", "QEQ", 1, UnitTest::Passed,
                   "PASSED: Test Completed"}),
    fpt::plan::testing::CaseName{});

struct LeaveCase {
    char const* name;
    int key;
    int code;
};

void PrintTo(LeaveCase const& c, std::ostream* os) {
    *os << c.name;
}

class ShaftEncLeave : public ::testing::TestWithParam<LeaveCase> {};

// The walk can be left half-way; a re-run starts again from white.
TEST_P(ShaftEncLeave, LeftMidwayRestartsFromWhite) {
    LeaveCase const& c = GetParam();
    PlanRig p;
    ShaftEncTest test;
    for (int i = 0; i < 3; ++i)
        p.term().action([&p] { p.turnUpNow(1); }).noKey(2);
    p.term().key(c.key);
    ASSERT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, UnitTest::NotRun);
    ASSERT_EQ(p.mgr().getLEDColour(), 3);
    EXPECT_EQ(p.term().row(6), atCol(2, stepLine("Clockwise", 3, 4)));

    p.snap().term().key('q');
    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunQuit);
    EXPECT_EQ(p.shotRow(0, 6), atCol(2, stepLine("Clockwise", 0, 1)));
    EXPECT_EQ(p.mgr().getLEDColour(), 0);
    EXPECT_EQ(p.rig.encoder->encoderValue, 0);
}

INSTANTIATE_TEST_SUITE_P(ShaftEnc, ShaftEncLeave,
                         ::testing::Values(LeaveCase{"Menu", 'm', 2}, LeaveCase{"Quit", 'q', 0},
                                           LeaveCase{"Debug", 'd', 3},
                                           LeaveCase{"UpperMenu", 'M', 2}),
                         fpt::plan::testing::CaseName{});

// "v" hands the encoder to the volume: the colour stops changing (the test
// waits) until "c" gives it back.
TEST(ShaftEncTest, VolumeModeHoldsTheColourUntilColoursAgain) {
    PlanRig p;
    ShaftEncTest test;
    std::vector<int32_t> colours;
    auto const record = [&] { colours.push_back(p.mgr().getLEDColour()); };
    p.term().action([&p] { p.turnUpNow(1); }).noKey(2);
    p.term().key('v');
    p.term().action([&p] { p.turnUpNow(2); }).noKey();
    p.term().action(record).noKey();
    p.term().key('c');
    p.term().action([&p] { p.turnUpNow(1); }).noKey();
    p.term().action(record).key('q');

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunQuit);
    EXPECT_EQ(colours, (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(p.rig.selfTest->distinctCalls(), (std::vector<std::string>{"volume 0", "volume 2"}));
    EXPECT_EQ(p.mgr().getShaftEncoderMode(), FrontPanelTestManager::ShaftEncoderColours);
}

} // namespace
