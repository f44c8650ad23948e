// The whole plan under the manager's run loop: scripted operator, fake panel,
// real results file.

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>

#include "app/TestPlan.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using namespace fpt::plan::testing;

constexpr int kButtons = 17;
char const* const kNames[] = {"Shaft Encoder Tests", "Button Tests",
                              "Headphone Jack Detection Test", "Speaker Output Test",
                              "Headphone Output Test"};

class PlanRun : public ::testing::Test {
public:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        path = dir.filePath(QStringLiteral("results.txt"));
        p.term().word("CV084-0042").key('y');
        ASSERT_EQ(p.mgr().enterBoardSerialNumber().toStdString(), "CV084-0042");
        p.mgr().setLogFileLocation(path);
        addFrontPanelTestPlan(p.mgr(), true);
        ASSERT_EQ(p.mgr().unitTests().size(), 5u);
    }

    UnitTest& test(std::size_t i) { return *p.mgr().unitTests().at(i); }
    UnitTest& member(std::size_t i) {
        auto const& group = dynamic_cast<UnitTestGroup&>(test(1));
        return *group.unitTests().at(i);
    }

    // The results file: five header lines (the start time checked for its
    // form only), then `results`.
    void expectResults(std::vector<std::string> const& results) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text));
        QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        if (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast(); // the end of the last line
        ASSERT_EQ(lines.size(), 5 + static_cast<int>(results.size()));
        EXPECT_EQ(lines[0].toStdString(), "Front Panel Test Log");
        EXPECT_EQ(lines[1].toStdString(), "~~~~~~~~~~~~~~~~~~~~");
        EXPECT_EQ(lines[2].toStdString(), "");
        EXPECT_TRUE(QRegularExpression(
                        QStringLiteral("^Tests Started: \\d\\d:\\d\\d \\d\\d/\\d\\d/\\d{4}$"))
                        .match(lines[3])
                        .hasMatch())
            << lines[3].toStdString();
        EXPECT_EQ(lines[4].toStdString(), "Serial No: CV084-0042");
        for (std::size_t i = 0; i < results.size(); ++i)
            EXPECT_EQ(lines[5 + static_cast<int>(i)].toStdString(), results[i]);
    }

    void scriptButtons(int count) {
        for (int b = 0; b < count; ++b) {
            p.press(b).noKey();
            p.release(b).noKey();
        }
    }
    // The summary after a finished test waits for any key.
    void summary() { p.snap().term().key(' '); }

    QTemporaryDir dir;
    QString path;
    PlanRig p;
};

TEST_F(PlanRun, FullPassingPlan) {
    p.reportNow("H0");
    for (int turn : {1, 1, 1, 1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1})
        p.turnUp(turn, 2);
    p.term().key('y');
    summary();
    scriptButtons(kButtons);
    p.term().key('y');
    summary();
    p.report("H1").key('y');
    p.report("H0").key('y');
    summary();
    p.turnUp(5).term().key('y');
    summary();
    p.term().key('y');
    summary();
    p.snap().term().key('q');

    EXPECT_EQ(p.mgr().run(), 0);
    EXPECT_TRUE(p.term().scriptDone());

    std::vector<std::string> passed;
    ASSERT_EQ(p.shots.size(), 6u);
    for (std::size_t i = 0; i < 5; ++i) {
        passed.push_back(std::string("PASSED  - ") + kNames[i]);
        EXPECT_EQ(p.shotRow(i, 0), kNames[i]);
        EXPECT_EQ(p.shotRow(i, 2), atCol(2, "PASSED: Test Completed"));
        EXPECT_EQ(p.shotRow(i, 21), atCol(4, "Press Any Key to continue : "));
    }
    expectResults(passed);
    EXPECT_EQ(p.shotRow(5, 2), atCol(2, "1) PASSED  - Shaft Encoder Tests"));
    EXPECT_EQ(p.shotRow(5, 3), atCol(2, "2) PASSED  - Button Tests"));
    EXPECT_EQ(p.shotRow(5, 6), atCol(2, "5) PASSED  - Headphone Output Test"));

    // Every button lit its own LED in white (the knob: all of them).
    auto const leds = p.linesOf('L');
    for (int b = 0; b < 16; ++b) {
        char expected[16];
        std::snprintf(expected, sizeof expected, "L%02xffffff\n", static_cast<unsigned>(b));
        EXPECT_NE(std::find(leds.begin(), leds.end(), expected), leds.end()) << expected;
    }
    // Audio routing: speaker alone, off, headphones alone, off.
    EXPECT_EQ(p.linesOf('A'), (std::vector<std::string>{"A0\n", "A1\n", "A1\n", "A0\n", "A2\n",
                                                        "A2\n", "A0\n", "A0\n"}));
    for (std::size_t i = 0; i < 18; ++i)
        EXPECT_EQ(member(i).state, UnitTest::Passed) << i;
}

// Runs that end at once, from inside a test: no result line is written, the
// file keeps its header alone. Started at a plan entry, ended by one key.
class PlanRunEnds : public PlanRun, public ::testing::WithParamInterface<std::pair<int, char>> {};

TEST_P(PlanRunEnds, LeavesOnlyTheHeader) {
    p.mgr().setCurrentTestIndex(GetParam().first);
    p.term().key(GetParam().second);

    EXPECT_EQ(p.mgr().run(), -1);
    EXPECT_TRUE(p.term().scriptDone());
    expectResults({});
    EXPECT_FALSE(p.term().isStarted());
}

// Speaker or headphone output answered "no"; headphone state never reported.
INSTANTIATE_TEST_SUITE_P(Plan, PlanRunEnds,
                         ::testing::Values(std::pair{3, 'n'}, std::pair{4, 'n'}, std::pair{2, 'x'}),
                         [](auto const& i) { return "Entry" + std::to_string(i.param.first); });

// Quit from the third button: the group reports itself not completed, the
// members before it keep their pass and those after it were never started.
TEST_F(PlanRun, QuitInsideGroupLeavesLaterMembersUntouched) {
    p.mgr().setCurrentTestIndex(1);
    scriptButtons(2);
    p.term().key('q');

    EXPECT_EQ(p.mgr().run(), -1);
    expectResults({});
    EXPECT_EQ(test(1).state, UnitTest::NotRun);
    EXPECT_EQ(test(1).result.toStdString(), "Test Not Completed");
    EXPECT_EQ(member(0).state, UnitTest::Passed);
    EXPECT_EQ(member(1).state, UnitTest::Passed);
    EXPECT_EQ(member(2).state, UnitTest::NotRun);
    EXPECT_EQ(member(2).name.toStdString(), "\"F2\" Button Test");
    // Never started: its name is only set when it runs.
    EXPECT_EQ(member(3).name.toStdString(), "");
    EXPECT_EQ(member(3).result.toStdString(), "Test Not Run");
    EXPECT_EQ(member(17).result.toStdString(), "Test Not Run");
}

// "m" inside the group goes to the menu; choosing the group again starts it
// from its first member.
TEST_F(PlanRun, MenuInsideGroupRestartsTheGroupFromItsFirstMember) {
    p.mgr().setCurrentTestIndex(1);
    scriptButtons(1);
    p.term().key('m');
    p.snap().term().key('2');
    p.snap().term().key('m');
    p.term().key('q');

    EXPECT_EQ(p.mgr().run(), 0);
    EXPECT_TRUE(p.term().scriptDone());
    ASSERT_EQ(p.shots.size(), 2u);
    EXPECT_EQ(p.shotRow(0, 0), "Select Front Panel Test");
    EXPECT_EQ(p.shotRow(0, 3), atCol(2, "2) Not Run - Button Tests"));
    EXPECT_EQ(p.shotRow(1, 0), "\"Calvento\" Button Test");
    EXPECT_EQ(p.shotRow(1, 5), atCol(2, "1. Press and release \"*Calvento*\" button"));

    EXPECT_EQ(test(1).result.toStdString(), "Test Not Completed");
    EXPECT_EQ(member(0).state, UnitTest::NotRun);
    // The encoder test never ran, so it has no name yet.
    expectResults({"Not Run - ", "Not Run - Button Tests",
                   "Not Run - Headphone Jack Detection Test", "Not Run - Speaker Output Test",
                   "Not Run - Headphone Output Test"});
}

// "d" at the LED question opens the debug display; back from it, the group
// runs again from its first button, the other members keeping their passes.
TEST_F(PlanRun, DebugInsideGroupRerunsTheGroup) {
    p.mgr().setCurrentTestIndex(1);
    scriptButtons(kButtons);
    p.term().key('d');
    p.snap().term().keys("xq");
    p.term().key('y');
    p.snap().term().key('q');

    EXPECT_EQ(p.mgr().run(), -1);
    EXPECT_TRUE(p.term().scriptDone());
    ASSERT_EQ(p.shots.size(), 2u);
    EXPECT_EQ(p.shotRow(0, 0).rfind("Front Panel Test App - ARM Version : ", 0), 0u);
    EXPECT_EQ(p.shotRow(0, 21), atCol(4, "Press (Y) to return to tests : "));
    EXPECT_EQ(p.shotRow(1, 0), "\"Calvento\" Button Test");

    EXPECT_EQ(member(17).state, UnitTest::NotRun);
    EXPECT_EQ(member(17).result.toStdString(), "Test Not Completed");
    EXPECT_EQ(member(0).state, UnitTest::NotRun);
    EXPECT_EQ(member(1).state, UnitTest::Passed);
    EXPECT_EQ(member(16).state, UnitTest::Passed);
}

} // namespace
