#include <gtest/gtest.h>

#include "app/plan/HeadphoneJackTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using namespace fpt::plan::testing;
using fpt::testing::ScriptExhausted;

std::string const kName = "Headphone Jack Detection Test";
constexpr char const* kPlug = "1. Plug the Headphones into the Headphone Jack";
constexpr char const* kUnplug = "1. Unplug the Headphones from the Headphone Jack";
std::string const kErrorPrompt = "(M)enu, (D)ebug, (Q)uit (R)etry : ";

std::string stepScreen(std::string const& instruction) {
    return testScreen(kName,
                      {"   This test is to ensure that the headphone presence can be correctly",
                       "   identifed.", "", instruction},
                      "Press (Y) to continue", "(M)enu, (D)ebug, (Q)uit - (Y)es: ");
}

// A rig whose panel has reported the jack as `line` (if any).
struct JackRig : PlanRig {
    explicit JackRig(char const* line = nullptr) {
        if (line)
            reportNow(line);
    }
    HeadphoneJackTest test{QString::fromStdString(kName)};
};

// One plugging and one unplugging, first whichever the jack's state allows;
// "n" at the go-ahead only means "continue", like "y".
TEST(HeadphoneJackTest, FollowsThePanelReports) {
    for (auto const& [start, goAhead] :
         {std::pair{"H0", 'y'}, std::pair{"H1", 'y'}, std::pair{"H0", 'n'}}) {
        SCOPED_TRACE(std::string(start) + goAhead);
        JackRig p(start);
        bool const in = start[1] == '1';
        p.snap().report(in ? "H0" : "H1").key(goAhead);
        p.snap().report(in ? "H1" : "H0").key(goAhead);

        p.expectRun(p.test, kPassed);
        ASSERT_EQ(p.shots.size(), 2u);
        EXPECT_EQ(p.shots[0], stepScreen(in ? kUnplug : kPlug));
        EXPECT_EQ(p.shots[1], stepScreen(in ? kPlug : kUnplug));
    }
}

// Never reported: the test cannot be done and ends the program on any key.
TEST(HeadphoneJackTest, UnknownStateEndsTheRunOnAnyKey) {
    JackRig p;
    ASSERT_EQ(p.mgr().headphoneState(), -1);
    p.snap().term().key('r');
    p.expectRun(p.test, {UnitTest::RunQuit, UnitTest::Failed,
                         "FAILED The Headphone State cannot be detected"});
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shots[0], testScreen(kName, {}, "ERROR: The Headphone State cannot be detected!",
                                     " Any key to Quit : "));
}

// The go-ahead prompt takes only "m", "d", "q", "y", "n", exactly as typed.
TEST(HeadphoneJackTest, GoAheadPromptKeys) {
    for (auto const& [keys, code] :
         {std::pair{"m", 2}, std::pair{"q", 0}, std::pair{"d", 3}, std::pair{"xYMQr d", 3}}) {
        SCOPED_TRACE(keys);
        JackRig p("H0");
        p.term().keys(keys);
        p.expectRun(p.test, {code, UnitTest::NotRun, "Test Not Run"});
    }
}

// Asked to plug in, the operator goes on while the panel still says "out":
// the error prompt takes any key; "m", "q", "d" leave with the detection
// failure, anything else asks for the go-ahead again.
TEST(HeadphoneJackTest, PlugInNotDetected) {
    for (auto const& [key, code] : {std::pair{"m", 2}, std::pair{"q", 0}, std::pair{"d", 3},
                                    std::pair{"D", 3}, std::pair{"r", 1}, std::pair{"x", 1}}) {
        SCOPED_TRACE(key);
        JackRig p("H0");
        bool const retry = code == UnitTest::RunFinished;
        p.term().key('y');
        p.snap().term().keys(key);
        if (retry) {
            p.snap().report("H1").key('y');
            p.report("H0").key('y');
        }

        p.expectRun(p.test,
                    retry ? kPassed
                          : Outcome{code, UnitTest::Failed, "FAILED Headphone detection error"});
        ASSERT_EQ(p.shots.size(), retry ? 2u : 1u);
        EXPECT_EQ(p.shotRow(0, 5), atCol(2, kPlug));
        p.expectPrompt(0, "ERROR: Headphones appear to be connected?", kErrorPrompt);
        if (retry) {
            EXPECT_EQ(p.shots[1], stepScreen(kPlug));
        }
    }
}

// Asked to unplug, the operator goes on while the panel still says "in": the
// error prompt takes no key at all, even after the headphones come out; only
// the manager's own keys still act there ("h" switches the headphone output
// on). The station stays on that prompt until the program is ended.
TEST(HeadphoneJackTest, UnplugErrorPromptCannotBeAnswered) {
    JackRig p("H1");
    std::size_t callsAtError = 0;
    p.term().key('y');
    p.snap().term().action([&] { callsAtError = p.rig.panel->calls.size(); });
    p.term().keys("rmqdynRMQDY\r");
    p.report("H0").keys("rmqdy");
    p.term().key('h');
    p.term().idleLimit = 5;

    EXPECT_THROW(p.test.run(p.mgr()), ScriptExhausted);
    EXPECT_TRUE(p.term().scriptDone());
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shotRow(0, 5), atCol(2, kUnplug));
    p.expectPrompt(0, "ERROR: No Headphones appear to be connected?", kErrorPrompt);
    // Still on the same prompt at the end.
    EXPECT_EQ(p.term().row(19), p.shotRow(0, 19));
    std::vector<std::string> routing;
    for (std::size_t i = callsAtError; i < p.rig.panel->calls.size(); ++i)
        if (p.rig.panel->calls[i].rfind("setLed", 0) != 0)
            routing.push_back(p.rig.panel->calls[i]);
    EXPECT_EQ(routing, std::vector<std::string>{"setHeadphones(true)"});
}

} // namespace
