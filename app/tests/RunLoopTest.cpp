// The manager's own decisions: the run loop's choice of the next test, the
// keys it serves itself, the panel state a key is judged against, the LED
// follow-up and the shaft encoder's modes. Screens and files as the operator
// sees them are checked end to end on the emulated instrument.

#include <gtest/gtest.h>

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <algorithm>

#include "app/testing/ManagerRig.h"

using fpt::testing::ManagerRig;
using Lines = std::vector<std::string>;

namespace {

// Takes the next (state, run code) pair on each run; the last one repeats.
class ScriptedTest : public UnitTest {
public:
    ScriptedTest(char const* testName, std::vector<std::pair<State, int>> outcomes, Lines& order)
        : UnitTest(QString::fromLatin1(testName)), m_outcomes(std::move(outcomes)), m_order(order) {
    }
    int run(FrontPanelTestManager&) override {
        m_order.push_back(name.toStdString());
        auto const [s, code] = m_outcomes[std::min(m_runs++, m_outcomes.size() - 1)];
        state = s;
        return code;
    }

private:
    std::vector<std::pair<State, int>> m_outcomes;
    Lines& m_order;
    std::size_t m_runs = 0;
};

struct LoopRig : ManagerRig {
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("results.txt"));
    Lines order;

    LoopRig() {
        QFile stale(path); // an earlier run's file of the same name: replaced, not appended to
        EXPECT_TRUE(stale.open(QIODevice::WriteOnly) && stale.write("stale\n") == 6);
        mgr().setLogFileLocation(path);
    }
    void add(char const* name, std::vector<std::pair<UnitTest::State, int>> outcomes) {
        mgr().addUnitTest(std::make_shared<ScriptedTest>(name, std::move(outcomes), order));
    }
    // The results file after its five header lines.
    std::string body() const {
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        QList<QByteArray> lines = f.readAll().split('\n');
        return lines.mid(5).join('\n').toStdString();
    }
};

constexpr auto P = UnitTest::Passed;
constexpr auto F = UnitTest::Failed;

} // namespace

TEST(RunLoop, NextIncompleteWrapsRoundAndTheMenuIgnoresWhatIsNotATest) {
    LoopRig r;
    r.add("A", {{P, 1}});
    r.add("B", {{F, 1}, {P, 1}});
    r.add("C", {{P, 1}});
    // Four summaries; at the menu a position past the end, a key that is no
    // position, then A and its summary; (Q)uit.
    r.terminal->keys("    5x1 q");
    EXPECT_EQ(r.mgr().run(), 0);
    EXPECT_EQ(r.order, (Lines{"A", "B", "C", "B", "A"}));
    EXPECT_EQ(r.body(), "PASSED  - A\nPASSED  - B\nPASSED  - C\n");
    EXPECT_FALSE(r.terminal->isStarted());
}

TEST(RunLoop, FailTestsAreOfferedOnceThenTheMenuRunsThemAgain) {
    LoopRig r;
    r.mgr().addUnitTest(std::make_shared<FailTest>(QStringLiteral("F1")));
    r.mgr().addUnitTest(std::make_shared<FailTest>(QStringLiteral("F2")));
    r.terminal->keys("  1 q"); // two summaries, F1 from the menu, its summary, quit
    EXPECT_EQ(r.mgr().run(), 0);
    EXPECT_EQ(r.body(), "FAIL!! - F1\nFAIL!! - F2\nFAIL!! - F1\nNot Run - F1\nNot Run - F2\n");
}

TEST(Keys, ListsAreExactAndThePanelKeysAreServedEverywhere) {
    ManagerRig r;
    auto& m = r.mgr();
    r.terminal->keys("Yy").keys("Q").keys("x").keys("vpc");
    EXPECT_EQ(m.nonBlockingGetLowerCh("ynmd"), -1); // compared as typed
    EXPECT_EQ(m.nonBlockingGetLowerCh("ynmd"), 'y');
    EXPECT_EQ(m.nonBlockingGetLowerCh(), 'q');
    EXPECT_EQ(m.nonBlockingGetLowerCh(""), -1);
    for (auto mode :
         {FrontPanelTestManager::ShaftEncoderVolume, FrontPanelTestManager::ShaftEncoderPitch,
          FrontPanelTestManager::ShaftEncoderColours}) {
        EXPECT_EQ(m.nonBlockingGetLowerCh("vpchs"), -1);
        EXPECT_EQ(m.getShaftEncoderMode(), mode);
    }
}

TEST(Keys, AKeyIsJudgedWithThePanelInputThatCameDuringItsPoll) {
    ManagerRig r;
    r.duringSleep = [&] {
        r.panel->incoming.push_back(QStringLiteral("H1"));
        r.keyboard->key(KEY_F3, 1);
    };
    r.terminal->keys("y");
    EXPECT_EQ(r.mgr().nonBlockingGetLowerCh("y"), 'y');
    EXPECT_EQ(r.mgr().headphoneState(), 1);
    EXPECT_EQ(r.mgr().buttonTestCheckForExpected(3), 1);
    EXPECT_EQ(r.panel->lines.back(), "L03ffffff\n"); // its LED in the same poll
}

// A knob detent (clockwise: colour +1 in colour mode, volume +1 in volume
// mode), the "v" key and the jack's "H1" line, waiting in every order: each
// is applied in the order it came, and what came after the key only once
// the key has been served.
TEST(Keys, InputIsAppliedInTheOrderItCame) {
    std::string order = "Hkv";
    do {
        ManagerRig r;
        int const volume = r.tone->volume;
        int64_t at = 10;
        for (char what : order) {
            if (what == 'k')
                r.encoder->recordAt(at, EV_REL, REL_WHEEL, -1);
            else if (what == 'H')
                r.panel->lineAt(at, QStringLiteral("H1"));
            else
                r.terminal->keyAt(at, what);
            at += 10;
        }
        auto const before = [&](char what) { return order.find(what) < order.find('v'); };
        EXPECT_EQ(r.mgr().nonBlockingGetLowerCh(), -1) << order;
        EXPECT_EQ(r.mgr().getLEDColour(), before('k') ? 1 : 0) << order;
        EXPECT_EQ(r.mgr().headphoneState(), before('H') ? 1 : -1) << order;
        r.mgr().nonBlockingGetLowerCh();
        EXPECT_EQ(r.tone->volume, before('k') ? volume : volume + 1) << order;
        EXPECT_EQ(r.mgr().headphoneState(), 1) << order;
    } while (std::next_permutation(order.begin(), order.end()));

    // Both came while a frame was being sent.
    ManagerRig drawn;
    drawn.terminal->duringRefresh = [&] {
        drawn.terminal->duringRefresh = nullptr;
        drawn.encoder->recordAt(10, EV_REL, REL_WHEEL, -1);
        drawn.terminal->keyAt(20, 'v');
    };
    EXPECT_EQ(drawn.mgr().nonBlockingGetLowerCh(), -1);
    EXPECT_EQ(drawn.mgr().getLEDColour(), 1);

    // Behind the summary, which waits for any key: what came before the key
    // is applied before the run goes on, what came after it waits.
    ManagerRig summary;
    summary.encoder->recordAt(10, EV_REL, REL_WHEEL, -1);
    summary.terminal->keyAt(20, ' ');
    summary.encoder->recordAt(30, EV_REL, REL_WHEEL, -1);
    summary.mgr().showTestSummary();
    EXPECT_EQ(summary.encoder->encoderValue, 1);
    EXPECT_EQ(summary.encoder->readQueue.size(), sizeof(input_event));
}

// On a slow controller the operator, turning one step each time the LED
// changes, turns again while that frame is still being drawn: every colour
// the LED shows must be one the test sees, or a target of the walk is lost.
TEST(Keys, ADetentDuringAFrameIsTheNextPollsStep) {
    ManagerRig r;
    int64_t at = 10;
    r.terminal->duringRefresh = [&] { r.encoder->recordAt(at += 10, EV_REL, REL_WHEEL, -1); };
    for (int seen = 0; seen < 3; ++seen) {
        r.sleeps.clear();
        EXPECT_EQ(r.mgr().nonBlockingGetLowerCh(), -1);
        EXPECT_EQ(r.mgr().getLEDColour(), seen);
        // ... and is shown without waiting for more input.
        EXPECT_EQ(r.sleeps.front(), seen == 0 ? 100 : 0);
    }
}

TEST(Screens, ADescriptionShowsItsFirstFifteenLinesAndBlanksTheRest) {
    ManagerRig r;
    QStringList lines;
    for (int i = 0; i < 17; ++i)
        lines << QStringLiteral("line %1").arg(i);
    r.mgr().detail(lines.join(QLatin1Char('\n')));
    r.mgr().show();
    EXPECT_NE(r.terminal->shown.find("line 14\n"), std::string::npos) << r.terminal->shown;
    EXPECT_EQ(r.terminal->shown.find("line 15"), std::string::npos) << r.terminal->shown;
    r.mgr().detail(QStringLiteral("short"));
    r.mgr().show();
    EXPECT_EQ(r.terminal->shown.find("line"), std::string::npos) << r.terminal->shown;
}

// An empty group passes; a member that asks for the menu stops the group
// there, with the rest not run.
TEST(Group, EmptyPassesAndAnAbandonedMemberStopsIt) {
    ManagerRig r;
    UnitTestGroup empty(QStringLiteral("E"));
    EXPECT_EQ(empty.run(r.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(empty.state, UnitTest::Passed);
    EXPECT_EQ(empty.result.toStdString(), "PASSED: Test Completed");

    Lines order;
    UnitTestGroup group(QStringLiteral("G"));
    for (auto const& [name, outcome] :
         std::vector<std::pair<char const*, std::pair<UnitTest::State, int>>>{
             {"A", {P, 1}}, {"B", {F, 1}}, {"C", {UnitTest::NotRun, 2}}, {"D", {P, 1}}})
        group.addUnitTest(std::make_shared<ScriptedTest>(name, std::vector{outcome}, order));
    EXPECT_EQ(group.run(r.mgr()), UnitTest::RunMenu);
    EXPECT_EQ(order, (Lines{"A", "B", "C"}));
    EXPECT_EQ(group.state, UnitTest::NotRun);
    EXPECT_EQ(group.result.toStdString(), "Test Not Completed");
}

TEST(Panel, EncoderModesHandTheKnobItsRangeAndItsValueOn) {
    ManagerRig r;
    auto& m = r.mgr();
    auto range = [&] {
        auto const& e = *r.encoder;
        return std::vector<int>{e.encoderValue, e.encoderMin, e.encoderMax, e.encoderStep,
                                e.encoderWrap};
    };
    m.setLEDColour(10);
    EXPECT_EQ(m.getLEDColour(), 2);
    EXPECT_EQ(r.encoder->encoderValue, 2);

    m.setupForAudioOutputTests(2);
    EXPECT_EQ(range(), (std::vector<int>{0, 0, 100, -1, 0}));
    m.setShaftEncoderMode(FrontPanelTestManager::ShaftEncoderPitch);
    EXPECT_EQ(range(), (std::vector<int>{48, 0, 48, -1, 0}));
    m.setShaftEncoderMode(static_cast<FrontPanelTestManager::ShaftEncoderMode>(3));
    EXPECT_EQ(m.getShaftEncoderMode(), FrontPanelTestManager::ShaftEncoderPitch);

    m.setShaftEncoderMode(FrontPanelTestManager::ShaftEncoderColours);
    EXPECT_EQ(range(), (std::vector<int>{2, 0, 7, -1, 1}));
    int const volume = r.tone->volume;
    r.encoder->encoderValue = 9;
    m.processShaftEncoder();
    EXPECT_EQ(m.getLEDColour(), 1);
    EXPECT_EQ(r.tone->volume, volume);
}
