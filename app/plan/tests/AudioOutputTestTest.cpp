#include <QStringList>
#include <gtest/gtest.h>

#include "app/plan/AudioOutputTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using namespace fpt::plan::testing;

std::vector<std::string> const kSpeakerLines{
    "   This test is to ensure that audio can be heard from the front panel", "   in isolation", "",
    "1. The Test Application has enabled the *External Speaker* Only",
    "2. Turn the Volume up using the Shaft Encoder"};
std::vector<std::string> const kHeadphoneLines{
    "   This test is to ensure that audio can be heard from the headphones", "   in isolation", "",
    "1. The Test Application has enabled Enable the *Headphones* Only",
    "2. Turn the Volume up using the Shaft Encoder"};

// The description as the test is given it: the screen lines joined by "\n".
QString joined(std::vector<std::string> const& lines) {
    QStringList out;
    for (auto const& line : lines)
        out << QString::fromStdString(line);
    return out.join(QLatin1Char('\n'));
}

// The chosen output alone, silent at the top pitch; the encoder raises the
// volume while the question waits, "p" hands it to the pitch; afterwards
// both outputs are off and the tone is silent again. Routing lines: the
// output alone, then both off (A: 1 speaker, 2 headphones).
TEST(AudioOutputTest, PlaysThroughTheChosenOutputOnly) {
    struct Case {
        char const* title;
        std::vector<std::string> const& lines;
        int32_t route;
        std::vector<std::string> routing;
    };
    for (Case const& c :
         {Case{"Speaker Output Test", kSpeakerLines, 2, {"A0\n", "A1\n", "A1\n", "A0\n"}},
          Case{"Headphone Output Test", kHeadphoneLines, 1, {"A2\n", "A2\n", "A0\n", "A0\n"}}}) {
        SCOPED_TRACE(c.title);
        PlanRig p;
        AudioOutputTest test(QString::fromLatin1(c.title), joined(c.lines), c.route);
        std::vector<int> modes;
        auto const recordMode = [&] { modes.push_back(p.mgr().getShaftEncoderMode()); };

        p.snap().term().action(recordMode);
        p.turnUp(3);
        p.term().key('p');
        p.term().action(recordMode);
        p.turnUp(-2);
        p.term().noKey().key('y');

        p.expectRun(test, kPassed);
        ASSERT_EQ(p.shots.size(), 1u);
        EXPECT_EQ(p.shots[0], testScreen(c.title, c.lines, "Can you hear an audio output?",
                                         "(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: "));
        EXPECT_EQ(p.linesOf('A'), c.routing);
        EXPECT_EQ(p.rig.selfTest->distinctCalls(),
                  (std::vector<std::string>{"volume 0", "pitch 48", "volume 0", "volume 3",
                                            "pitch 48", "pitch 46", "volume 0", "pitch 48"}));
        EXPECT_EQ(modes, (std::vector<int>{FrontPanelTestManager::ShaftEncoderVolume,
                                           FrontPanelTestManager::ShaftEncoderPitch}));
        EXPECT_FALSE(p.rig.panel->speaker);
        EXPECT_FALSE(p.rig.panel->headphones);
    }
}

// "q", "m", "d", "y", "n" exactly as typed; "n" ends the whole run. Whatever
// the answer, both outputs are switched off before the test returns.
TEST(AudioOutputTest, AnswerAndOutputsOff) {
    struct Case {
        char const* keys;
        Outcome outcome;
    };
    auto const notRun = [](int code) { return Outcome{code, UnitTest::NotRun, "Test Not Run"}; };
    for (Case const& c :
         {Case{"y", kPassed},
          Case{"n", {UnitTest::RunQuit, UnitTest::Failed, "FAILED User Reported Failure"}},
          Case{"m", notRun(2)}, Case{"d", notRun(3)}, Case{"q", notRun(0)},
          Case{"YNQMDx\ry", kPassed}}) {
        SCOPED_TRACE(c.keys);
        PlanRig p;
        AudioOutputTest test(QStringLiteral("Speaker Output Test"), joined(kSpeakerLines), 2);
        std::vector<bool> speakerWhileAsking;
        p.term().action([&] { speakerWhileAsking.push_back(p.rig.panel->speaker); }).keys(c.keys);

        p.expectRun(test, c.outcome);
        EXPECT_EQ(speakerWhileAsking, std::vector<bool>{true});
        EXPECT_EQ(p.linesOf('A').back(), "A0\n");
        auto const& calls = p.rig.selfTest->calls;
        ASSERT_GE(calls.size(), 2u);
        EXPECT_EQ(calls[calls.size() - 2], "volume 0");
        EXPECT_EQ(calls.back(), "pitch 48");
    }
}

} // namespace
