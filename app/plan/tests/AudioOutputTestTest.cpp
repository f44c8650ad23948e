#include <gtest/gtest.h>

#include "app/plan/AudioOutputTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using fpt::plan::testing::PlanRig;
using fpt::plan::testing::putDescription;
using fpt::plan::testing::putPrompt;
using fpt::plan::testing::screenOf;

constexpr char const* kSpeakerDescription =
    "   This test is to ensure that audio can be heard from the front panel\n"
    "   in isolation\n\n"
    "1. The Test Application has enabled the *External Speaker* Only\n"
    "2. Turn the Volume up using the Shaft Encoder";
constexpr char const* kHeadphoneDescription =
    "   This test is to ensure that audio can be heard from the headphones\n"
    "   in isolation\n\n"
    "1. The Test Application has enabled Enable the *Headphones* Only\n"
    "2. Turn the Volume up using the Shaft Encoder";

struct RouteCase {
    char const* name;
    char const* title;
    char const* description;
    int32_t route;
    std::vector<std::string> descriptionRows;
    // Routing lines: the output alone, then both off (A: 1 speaker, 2
    // headphones).
    std::vector<std::string> routing;
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(RouteCase const& c, std::ostream* os) {
    *os << c.name;
}

class AudioOutputRoute : public ::testing::TestWithParam<RouteCase> {};

// The chosen output alone, silent at the top pitch; the encoder raises the
// volume while the question waits, "p" hands it to the pitch; afterwards
// both outputs are off and the tone is silent again.
TEST_P(AudioOutputRoute, PlaysThroughTheChosenOutputOnly) {
    RouteCase const& c = GetParam();
    PlanRig p;
    AudioOutputTest test(QString::fromLatin1(c.title), QString::fromLatin1(c.description), c.route);
    std::vector<int> modes;
    auto const recordMode = [&] { modes.push_back(p.mgr().getShaftEncoderMode()); };

    p.snap().term().action(recordMode);
    p.term().action([&p] { p.turnUpNow(3); }).noKey();
    p.term().key('p');
    p.term().action(recordMode);
    p.term().action([&p] { p.turnUpNow(-2); }).noKey();
    p.term().noKey().key('y');

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.state, UnitTest::Passed);
    EXPECT_EQ(test.result.toStdString(), "PASSED: Test Completed");
    EXPECT_TRUE(p.term().scriptDone());

    std::map<int, std::string> rows;
    rows[0] = c.title;
    putDescription(rows, c.descriptionRows);
    putPrompt(rows, "Can you hear an audio output?", "(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: ");
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shots[0], screenOf(rows));

    EXPECT_EQ(p.linesOf('A'), c.routing);
    EXPECT_EQ(p.rig.selfTest->distinctCalls(),
              (std::vector<std::string>{"volume 0", "pitch 48", "volume 0", "volume 3", "pitch 48",
                                        "pitch 46", "volume 0", "pitch 48"}));
    EXPECT_EQ(modes, (std::vector<int>{FrontPanelTestManager::ShaftEncoderVolume,
                                       FrontPanelTestManager::ShaftEncoderPitch}));
    EXPECT_FALSE(p.rig.panel->speaker);
    EXPECT_FALSE(p.rig.panel->headphones);
}

INSTANTIATE_TEST_SUITE_P(
    AudioOutput, AudioOutputRoute,
    ::testing::Values(
        RouteCase{"Speaker",
                  "Speaker Output Test",
                  kSpeakerDescription,
                  2,
                  {"   This test is to ensure that audio can be heard from the front panel",
                   "   in isolation", "",
                   "1. The Test Application has enabled the *External Speaker* Only",
                   "2. Turn the Volume up using the Shaft Encoder"},
                  {"A0\n", "A1\n", "A1\n", "A0\n"}},
        RouteCase{"Headphones",
                  "Headphone Output Test",
                  kHeadphoneDescription,
                  1,
                  {"   This test is to ensure that audio can be heard from the headphones",
                   "   in isolation", "",
                   "1. The Test Application has enabled Enable the *Headphones* Only",
                   "2. Turn the Volume up using the Shaft Encoder"},
                  {"A2\n", "A2\n", "A0\n", "A0\n"}}),
    fpt::plan::testing::CaseName{});

struct AnswerCase {
    char const* name;
    std::string keys;
    int code;
    int32_t state;
    char const* result;
};

void PrintTo(AnswerCase const& c, std::ostream* os) {
    *os << c.name;
}

class AudioOutputAnswer : public ::testing::TestWithParam<AnswerCase> {};

// "q", "m", "d", "y", "n" exactly as typed; "n" ends the whole run. Whatever
// the answer, both outputs are switched off before the test returns.
TEST_P(AudioOutputAnswer, AnswerAndOutputsOff) {
    AnswerCase const& c = GetParam();
    PlanRig p;
    AudioOutputTest test(QStringLiteral("Speaker Output Test"),
                         QString::fromLatin1(kSpeakerDescription), 2);
    std::vector<bool> speakerWhileAsking;
    p.term().action([&] { speakerWhileAsking.push_back(p.rig.panel->speaker); }).keys(c.keys);

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, c.state);
    EXPECT_EQ(test.result.toStdString(), c.result);
    EXPECT_TRUE(p.term().scriptDone());
    EXPECT_EQ(speakerWhileAsking, std::vector<bool>{true});
    EXPECT_EQ(p.linesOf('A').back(), "A0\n");
    auto const& calls = p.rig.selfTest->calls;
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[calls.size() - 2], "volume 0");
    EXPECT_EQ(calls.back(), "pitch 48");
}

INSTANTIATE_TEST_SUITE_P(
    AudioOutput, AudioOutputAnswer,
    ::testing::Values(AnswerCase{"Yes", "y", 1, UnitTest::Passed, "PASSED: Test Completed"},
                      AnswerCase{"NoEndsTheRun", "n", 0, UnitTest::Failed,
                                 "FAILED User Reported Failure"},
                      AnswerCase{"Menu", "m", 2, UnitTest::NotRun, "Test Not Run"},
                      AnswerCase{"Debug", "d", 3, UnitTest::NotRun, "Test Not Run"},
                      AnswerCase{"Quit", "q", 0, UnitTest::NotRun, "Test Not Run"},
                      AnswerCase{"UpperCaseAndOthersIgnored", "YNQMDx\ry", 1, UnitTest::Passed,
                                 "PASSED: Test Completed"}),
    fpt::plan::testing::CaseName{});

} // namespace
