// The run loop: run codes, summary, menu, wrap-around, results lines, upload,
// start-up failures, and the panel switched off however the run ends.

#include <gtest/gtest.h>

#include <QRegularExpression>
#include <csignal>

#include "app/Termination.h"
#include "app/testing/ManagerRig.h"
#include "app/testing/ScriptedUnitTest.h"
#include "app/tests/TestFiles.h"

using fpt::testing::ManagerRig;
using fpt::testing::ScriptedUnitTest;
using fpt::testing::TempResultsFile;
using Outcome = ScriptedUnitTest::Outcome;
using Lines = std::vector<std::string>;

namespace {

// What the manager sends as it is destroyed: LEDs off, then both audio outputs.
Lines const kPanelOff{"Lff000000\n", "A0\n", "A0\n"};

struct LoopRig {
    ManagerRig rig;
    TempResultsFile file;
    std::vector<std::string> order; // names of the tests in the order they ran

    explicit LoopRig(std::string serial = "SN42") {
        rig.terminal->word(serial).key('y');
        rig.mgr().enterBoardSerialNumber();
        rig.mgr().setLogFileLocation(file.path);
    }
    std::shared_ptr<ScriptedUnitTest> add(char const* name, std::vector<Outcome> outcomes) {
        auto t = std::make_shared<ScriptedUnitTest>(QString::fromLatin1(name), std::move(outcomes));
        t->onRun = [this, name](FrontPanelTestManager&) { order.push_back(name); };
        rig.mgr().addUnitTest(t);
        return t;
    }
    // The header, checked apart from its time stamp, and what follows it.
    std::string body() const {
        std::string const log = file.content();
        QRegularExpression const header(QStringLiteral(
            "^Front Panel Test Log\n~~~~~~~~~~~~~~~~~~~~\n\nTests Started: \\d\\d:\\d\\d "
            "\\d\\d/\\d\\d/\\d{4}\nSerial No: [^\n]*\n"));
        auto const match = header.match(QString::fromStdString(log));
        if (!match.hasMatch())
            return "<bad header>" + log;
        return log.substr(static_cast<std::size_t>(match.capturedLength()));
    }
    bool summaryShown(std::string const& name, std::string const& result) const {
        for (auto const& f : rig.terminal->frames())
            if (fpt::testing::ScriptedTerminal::frameRow(f, 0) == name &&
                fpt::testing::ScriptedTerminal::frameRow(f, 2) == "  " + result &&
                fpt::testing::ScriptedTerminal::frameRow(f, 21) ==
                    "    Press Any Key to continue :")
                return true;
        return false;
    }
};

} // namespace

TEST(RunLoop, AllPassThenQuitFromTheMenu) {
    LoopRig r;
    r.add("Shaft Encoder Tests", {{0, 1}});
    auto group = std::make_shared<UnitTestGroup>(QStringLiteral("Button Tests"));
    for (auto name : {"b1", "b2"})
        group->addUnitTest(std::make_shared<ScriptedUnitTest>(name, std::vector<Outcome>{{0, 1}}));
    r.rig.mgr().addUnitTest(group);
    r.add("Headphone Jack Detection Test", {{0, 1}});
    // A key for each summary, then the menu's quit.
    r.rig.terminal->keys("   q");

    EXPECT_EQ(r.rig.mgr().run(), 0);
    EXPECT_TRUE(r.rig.terminal->scriptDone());
    EXPECT_EQ(r.order, (Lines{"Shaft Encoder Tests", "Headphone Jack Detection Test"}));
    EXPECT_EQ(r.body(), "PASSED  - Shaft Encoder Tests\n"
                        "PASSED  - Button Tests\n"
                        "PASSED  - Headphone Jack Detection Test\n");
    EXPECT_TRUE(r.summaryShown("Button Tests", "PASSED: Test Completed"));
    EXPECT_TRUE(r.rig.terminal->everShown(21, "Selection, (Q)uit, (U)pload and quit :"));
    EXPECT_EQ(r.rig.mgr().currentTestIndex(), 3); // all passed: past the end, so the menu
    EXPECT_FALSE(r.rig.terminal->isStarted());
    EXPECT_TRUE(r.rig.uploads.empty());
    // Start-up: all LEDs off, full brightness, then half a second to settle.
    EXPECT_EQ(r.rig.panel->calls.at(0), "setLed(255,0)");
    EXPECT_EQ(r.rig.panel->calls.at(1), "setBrightness(255)");
    EXPECT_EQ(r.rig.panel->lines.at(0), "Lff000000\n");
    EXPECT_EQ(r.rig.panel->lines.at(1), "Bff\n");
    EXPECT_EQ(r.rig.sleeps.at(0), 500);
    EXPECT_EQ(r.rig.keyboard->initializeCalls, 1);
    EXPECT_EQ(r.rig.encoder->initializeCalls, 1);
}

namespace {
// Result lines for tests A and B: 'P' passed, 'F' failed, 'N' not run; "" none.
std::string linesFor(std::string const& states) {
    std::string out;
    char name = 'A';
    for (char st : states) {
        char const* text = st == 'P' ? "PASSED " : st == 'F' ? "FAIL!! " : "Not Run";
        out += std::string(text) + " - " + name++ + "\n";
    }
    return out;
}
} // namespace

TEST(RunLoop, RunCodes) {
    struct Case {
        char const* what;
        std::vector<Outcome> a, b;
        char const* keys; // summaries, menu, debug display
        int expectedRun;
        char const* order; // the tests in the order they ran
        char const* results;
    } const cases[] = {
        {"quit code ends at once, no result lines", {{2, 0}}, {{0, 1}}, "", -1, "A", ""},
        {"quit from a later test", {{0, 1}}, {{2, 0}}, " ", -1, "AB", ""},
        {"menu, choose B, A by wrap-around", {{2, 2}, {0, 1}}, {{0, 1}}, "2  q", 0, "ABA", "PP"},
        {"debug reruns the same test", {{2, 3}, {0, 1}}, {{1, 1}, {1, 2}}, "y  q", 0, "AABB", "PF"},
        {"unknown code reruns the test", {{2, 9}, {0, 1}}, {{0, 1}}, "  q", 0, "AAB", "PP"},
        {"failed test found after the last", {{1, 1}, {0, 1}}, {{0, 1}}, "   q", 0, "ABA", "PP"},
        {"a failure comes back", {{1, 1}, {1, 1}, {1, 2}}, {{0, 1}}, "   q", 0, "ABAA", "FP"},
        {"menu: key beyond the list shows it again", {{2, 2}}, {{0, 1}}, "pZq", 0, "A", "NN"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        LoopRig r;
        r.add("A", c.a);
        r.add("B", c.b);
        r.rig.terminal->keys(c.keys);
        int result = -100;
        try {
            result = r.rig.mgr().run();
        } catch (fpt::testing::ScriptExhausted const& e) {
            ADD_FAILURE() << e.what();
        }
        EXPECT_EQ(result, c.expectedRun);
        std::string order;
        for (auto const& n : r.order)
            order += n;
        EXPECT_EQ(order, c.order);
        EXPECT_EQ(r.body(), linesFor(c.results));
        EXPECT_FALSE(r.rig.terminal->isStarted());
    }
}

TEST(RunLoop, DebugDisplayIsShownBetweenTheRuns) {
    LoopRig r;
    r.add("A", {{2, 3}, {2, 0}});
    r.rig.terminal->noKey(2).key('y');
    EXPECT_EQ(r.rig.mgr().run(), -1);
    EXPECT_TRUE(r.rig.terminal->everShown(21, "    Press (Y) to return to tests :"));
    EXPECT_TRUE(r.rig.mgr().showingTestDisplay());
}

TEST(RunLoop, EmptyPlanGoesStraightToTheMenu) {
    LoopRig r;
    r.rig.terminal->key('q');
    EXPECT_EQ(r.rig.mgr().run(), 0);
    EXPECT_EQ(r.body(), "");
    EXPECT_EQ(r.rig.mgr().nextIncompleteTest(), 0);
}

TEST(RunLoop, NextIncompleteTestSearchesOnThenWrapsRound) {
    struct Case {
        std::vector<int32_t> states;
        int32_t current;
        int expected;
    } const cases[] = {
        {{2, 2, 2}, -1, 0}, {{0, 2, 2}, 0, 1},  {{1, 0, 0}, 2, 0},  {{0, 0, 1}, 2, 2},
        {{0, 0, 0}, 1, 3},  {{0, 0, 0}, -1, 3}, {{1, 0, 0}, -1, 0}, {{0, 1, 0}, 1, 1},
        {{0, 0, 2}, 0, 2},  {{}, -1, 0},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        for (int32_t st : c.states) {
            auto t = std::make_shared<ScriptedUnitTest>(QStringLiteral("t"));
            t->state = st;
            rig.mgr().addUnitTest(t);
        }
        rig.mgr().setCurrentTestIndex(c.current);
        EXPECT_EQ(rig.mgr().nextIncompleteTest(), c.expected) << "current " << c.current;
    }
}

TEST(RunLoop, UploadAndQuit) {
    for (bool succeeds : {true, false}) {
        LoopRig r("CV084-0042");
        r.rig.uploadResult = succeeds;
        r.add("A", {{1, 1}});
        r.add("B", {{0, 2}});
        r.rig.terminal->key(' ').key('U');
        testing::internal::CaptureStderr();
        int const result = r.rig.mgr().run();
        std::string const err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(result, 0);
        ASSERT_EQ(r.rig.uploads.size(), 1u);
        EXPECT_EQ(r.rig.uploads[0].first, r.file.path);
        EXPECT_EQ(r.rig.uploads[0].second, QStringLiteral("/CV084/CV084-0042/front_panel_test/"));
        EXPECT_EQ(err, succeeds ? "" : "Nexus Upload Failed, are you connected to the network?\n");
        EXPECT_EQ(r.body(), "FAIL!!  - A\nPASSED  - B\n");
        EXPECT_FALSE(r.rig.terminal->isStarted());
    }
}

TEST(RunLoop, StartUpFailures) {
    struct Case {
        char const* what;
        bool badFile, panelOk, keyboardOk, encoderOk;
        int keyboardInits, encoderInits;
        bool panelSwitchedOff; // at destruction
    } const cases[] = {
        {"results file cannot be opened", true, true, true, true, 0, 0, false},
        {"panel link fails", false, false, true, true, 0, 0, false},
        {"keyboard fails", false, true, false, true, 1, 0, true},
        {"encoder fails", false, true, true, false, 1, 1, true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        Lines atDestruction;
        {
            LoopRig r;
            if (c.badFile)
                r.rig.mgr().setLogFileLocation(QStringLiteral("/nonexistent-dir/results.txt"));
            r.rig.panel->initializeResult = c.panelOk;
            r.rig.keyboard->initializeResult = c.keyboardOk;
            r.rig.encoder->initializeResult = c.encoderOk;
            r.add("A", {{0, 1}});
            testing::internal::CaptureStderr();
            EXPECT_EQ(r.rig.mgr().run(), -1);
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      c.badFile ? "Couldn't open the log file /nonexistent-dir/results.txt" : "");
            EXPECT_TRUE(r.order.empty());
            EXPECT_EQ(r.rig.panel->initializeCalls, c.badFile ? 0 : 1);
            EXPECT_EQ(r.rig.keyboard->initializeCalls, c.keyboardInits);
            EXPECT_EQ(r.rig.encoder->initializeCalls, c.encoderInits);
            EXPECT_TRUE(r.rig.panel->lines.empty());
            r.rig.panel->onLine = [&](std::string const& l) { atDestruction.push_back(l); };
        }
        EXPECT_EQ(atDestruction, c.panelSwitchedOff ? kPanelOff : Lines{});
    }
}

TEST(RunLoop, DestructorSwitchesThePanelOffAndGivesTheTerminalBack) {
    Lines atDestruction;
    bool stoppedAfterPanelOff = false;
    {
        LoopRig r;
        r.add("A", {{0, 1}});
        // Leave the run with the speaker and headphones on and the terminal
        // still up, as an exception would.
        r.rig.terminal->keys("hs").action([] { throw std::runtime_error("boom"); });
        r.add("B", {});
        auto& tests = r.rig.mgr().unitTests();
        static_cast<ScriptedUnitTest&>(*tests[0]).onRun = [](FrontPanelTestManager& m) {
            m.nonBlockingGetLowerCh();
            m.nonBlockingGetLowerCh();
            m.nonBlockingGetLowerCh();
        };
        EXPECT_THROW(r.rig.mgr().run(), std::runtime_error);
        EXPECT_TRUE(r.rig.terminal->isStarted());
        r.rig.panel->onLine = [&](std::string const& l) { atDestruction.push_back(l); };
        r.rig.terminal->onStop = [&] { stoppedAfterPanelOff = atDestruction.size() == 3; };
    }
    EXPECT_EQ(atDestruction, (Lines{"Lff000000\n", "A1\n", "A0\n"}));
    EXPECT_TRUE(stoppedAfterPanelOff);
}

TEST(RunLoop, TerminationSignalUnwindsFromAKeyPoll) {
    fpt::installTerminationHandlers();
    Lines atDestruction;
    bool terminalGivenBack = false;
    {
        LoopRig r;
        r.add("A", {{0, 1}});
        static_cast<ScriptedUnitTest&>(*r.rig.mgr().unitTests()[0]).onRun =
            [](FrontPanelTestManager& m) { m.getLowerCh("y"); };
        r.rig.terminal->noKey(2).action([] { std::raise(SIGTERM); }).noKey(100);
        try {
            r.rig.mgr().run();
            ADD_FAILURE() << "run() returned";
        } catch (fpt::TerminationRequested const& t) {
            EXPECT_EQ(t.signalNumber(), SIGTERM);
        }
        EXPECT_EQ(r.rig.terminal->scriptLeft(), 99u); // noticed on the poll it came in
        EXPECT_EQ(r.body(), "");
        r.rig.panel->onLine = [&](std::string const& l) { atDestruction.push_back(l); };
        r.rig.terminal->onStop = [&] { terminalGivenBack = true; };
    }
    fpt::clearTerminationRequest();
    std::signal(SIGTERM, SIG_DFL);
    EXPECT_EQ(atDestruction, kPanelOff);
    EXPECT_TRUE(terminalGivenBack);
}

TEST(RunLoop, ResultsFileIsCompleteAfterEveryWrite) {
    LoopRig r;
    auto t = r.add("A", {{0, 0}});
    std::string seenDuringRun;
    t->onRun = [&](FrontPanelTestManager& m) {
        m.log(QStringLiteral("FAIL!! - X\npartial"));
        seenDuringRun = r.body();
    };
    EXPECT_EQ(r.rig.mgr().run(), -1);
    EXPECT_EQ(seenDuringRun, "FAIL!! - X\npartial");
}
