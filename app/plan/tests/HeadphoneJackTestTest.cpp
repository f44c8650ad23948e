#include <gtest/gtest.h>

#include "app/plan/HeadphoneJackTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using fpt::plan::testing::atCol;
using fpt::plan::testing::PlanRig;
using fpt::plan::testing::putDescription;
using fpt::plan::testing::putPrompt;
using fpt::plan::testing::screenOf;
using fpt::testing::ScriptExhausted;

std::string const kName = "Headphone Jack Detection Test";
constexpr char const* kPlug = "1. Plug the Headphones into the Headphone Jack";
constexpr char const* kUnplug = "1. Unplug the Headphones from the Headphone Jack";
std::string const kGoAhead1 = "Press (Y) to continue";
std::string const kGoAhead2 = "(M)enu, (D)ebug, (Q)uit - (Y)es: ";

std::string stepScreen(std::string const& instruction) {
    std::map<int, std::string> rows;
    rows[0] = kName;
    putDescription(rows, {"   This test is to ensure that the headphone presence can be correctly",
                          "   identifed.", "", instruction});
    putPrompt(rows, kGoAhead1, kGoAhead2);
    return screenOf(rows);
}

// The panel reports the jack as a line "H0" or "H1"; a test's scripted
// action delivers it as if the serial link had just been serviced.
void report(PlanRig& p, char const* line) {
    p.rig.panel->processReceivedLine(QString::fromLatin1(line));
}

struct PassCase {
    char const* name;
    int start;
    char goAhead; // "y" or "n": both only mean "continue"
    char const* firstInstruction;
    char const* firstReport;
    char const* secondInstruction;
    char const* secondReport;
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(PassCase const& c, std::ostream* os) {
    *os << c.name;
}

class HeadphoneJackPass : public ::testing::TestWithParam<PassCase> {};

// One plugging and one unplugging, first whichever the jack's state allows.
TEST_P(HeadphoneJackPass, FollowsThePanelReports) {
    PassCase const& c = GetParam();
    PlanRig p;
    report(p, c.start == 1 ? "H1" : "H0");
    HeadphoneJackTest test(QString::fromStdString(kName));

    p.snap().term().action([&] { report(p, c.firstReport); }).key(c.goAhead);
    p.snap().term().action([&] { report(p, c.secondReport); }).key(c.goAhead);

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.state, UnitTest::Passed);
    EXPECT_EQ(test.result.toStdString(), "PASSED: Test Completed");
    EXPECT_TRUE(p.term().scriptDone());
    ASSERT_EQ(p.shots.size(), 2u);
    EXPECT_EQ(p.shots[0], stepScreen(c.firstInstruction));
    EXPECT_EQ(p.shots[1], stepScreen(c.secondInstruction));
}

INSTANTIATE_TEST_SUITE_P(
    HeadphoneJack, HeadphoneJackPass,
    ::testing::Values(PassCase{"StartsOut", 0, 'y', kPlug, "H1", kUnplug, "H0"},
                      PassCase{"StartsIn", 1, 'y', kUnplug, "H0", kPlug, "H1"},
                      PassCase{"StartsOutNoMeansGoOn", 0, 'n', kPlug, "H1", kUnplug, "H0"}),
    fpt::plan::testing::CaseName{});

// Never reported: the test cannot be done and ends the program on any key.
TEST(HeadphoneJackTest, UnknownStateEndsTheRunOnAnyKey) {
    PlanRig p;
    ASSERT_EQ(p.mgr().headphoneState(), -1);
    HeadphoneJackTest test(QString::fromStdString(kName));
    p.snap().term().key('r');

    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunQuit);
    EXPECT_EQ(test.state, UnitTest::Failed);
    EXPECT_EQ(test.result.toStdString(), "FAILED The Headphone State cannot be detected");
    std::map<int, std::string> rows;
    rows[0] = kName;
    putPrompt(rows, "ERROR: The Headphone State cannot be detected!", " Any key to Quit : ");
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shots[0], screenOf(rows));
}

struct LeaveCase {
    char const* name;
    std::string keys; // at the first go-ahead prompt
    int code;
};

void PrintTo(LeaveCase const& c, std::ostream* os) {
    *os << c.name;
}

class HeadphoneJackLeave : public ::testing::TestWithParam<LeaveCase> {};

// The go-ahead prompt takes only "m", "d", "q", "y", "n", exactly as typed.
TEST_P(HeadphoneJackLeave, GoAheadPromptKeys) {
    LeaveCase const& c = GetParam();
    PlanRig p;
    report(p, "H0");
    HeadphoneJackTest test(QString::fromStdString(kName));
    p.term().keys(c.keys);

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, UnitTest::NotRun);
    EXPECT_EQ(test.result.toStdString(), "Test Not Run");
    EXPECT_TRUE(p.term().scriptDone());
}

INSTANTIATE_TEST_SUITE_P(HeadphoneJack, HeadphoneJackLeave,
                         ::testing::Values(LeaveCase{"Menu", "m", 2}, LeaveCase{"Quit", "q", 0},
                                           LeaveCase{"Debug", "d", 3},
                                           LeaveCase{"OthersIgnored", "xYMQr d", 3}),
                         fpt::plan::testing::CaseName{});

struct PlugErrorCase {
    char const* name;
    std::string errorKey;
    int code;
    int32_t state;
    char const* result;
};

void PrintTo(PlugErrorCase const& c, std::ostream* os) {
    *os << c.name;
}

class HeadphoneJackPlugError : public ::testing::TestWithParam<PlugErrorCase> {};

// Asked to plug in, the operator goes on while the panel still says "out":
// the error prompt takes any key; "m", "q", "d" leave with the detection
// failure, anything else asks for the go-ahead again.
TEST_P(HeadphoneJackPlugError, PlugInNotDetected) {
    PlugErrorCase const& c = GetParam();
    PlanRig p;
    report(p, "H0");
    HeadphoneJackTest test(QString::fromStdString(kName));
    p.term().key('y');
    p.snap().term().keys(c.errorKey);
    bool const retry = c.code == UnitTest::RunFinished;
    if (retry) {
        p.snap().term().action([&] { report(p, "H1"); }).key('y');
        p.term().action([&] { report(p, "H0"); }).key('y');
    }

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, c.state);
    EXPECT_EQ(test.result.toStdString(), c.result);
    EXPECT_TRUE(p.term().scriptDone());

    ASSERT_EQ(p.shots.size(), retry ? 2u : 1u);
    EXPECT_EQ(p.shotRow(0, 5), atCol(2, kPlug));
    EXPECT_EQ(p.shotRow(0, 19), atCol(4, "ERROR: Headphones appear to be connected?"));
    EXPECT_EQ(p.shotRow(0, 21), atCol(4, "(M)enu, (D)ebug, (Q)uit (R)etry : "));
    if (retry) {
        EXPECT_EQ(p.shots[1], stepScreen(kPlug));
    }
}

INSTANTIATE_TEST_SUITE_P(
    HeadphoneJack, HeadphoneJackPlugError,
    ::testing::Values(
        PlugErrorCase{"Menu", "m", 2, UnitTest::Failed, "FAILED Headphone detection error"},
        PlugErrorCase{"Quit", "q", 0, UnitTest::Failed, "FAILED Headphone detection error"},
        PlugErrorCase{"Debug", "d", 3, UnitTest::Failed, "FAILED Headphone detection error"},
        PlugErrorCase{"UpperDebug", "D", 3, UnitTest::Failed, "FAILED Headphone detection error"},
        PlugErrorCase{"Retry", "r", 1, UnitTest::Passed, "PASSED: Test Completed"},
        PlugErrorCase{"AnyOtherKeyRetries", "x", 1, UnitTest::Passed, "PASSED: Test Completed"}),
    fpt::plan::testing::CaseName{});

// Asked to unplug, the operator goes on while the panel still says "in": the
// error prompt takes no key at all, even after the headphones come out; only
// the manager's own keys still act there ("h" switches the headphone output
// on). The station stays on that prompt until the program is ended.
TEST(HeadphoneJackTest, UnplugErrorPromptCannotBeAnswered) {
    PlanRig p;
    report(p, "H1");
    HeadphoneJackTest test(QString::fromStdString(kName));
    std::size_t callsAtError = 0;
    p.term().key('y');
    p.snap().term().action([&] { callsAtError = p.rig.panel->calls.size(); });
    p.term().keys("rmqdynRMQDY\r");
    p.term().action([&] { report(p, "H0"); }).keys("rmqdy");
    p.term().key('h');
    p.term().idleLimit = 5;

    EXPECT_THROW(test.run(p.mgr()), ScriptExhausted);
    EXPECT_TRUE(p.term().scriptDone());
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shotRow(0, 5), atCol(2, kUnplug));
    EXPECT_EQ(p.shotRow(0, 19), atCol(4, "ERROR: No Headphones appear to be connected?"));
    EXPECT_EQ(p.shotRow(0, 21), atCol(4, "(M)enu, (D)ebug, (Q)uit (R)etry : "));
    // Still on the same prompt at the end.
    EXPECT_EQ(p.term().row(19), p.shotRow(0, 19));
    std::vector<std::string> const after(p.rig.panel->calls.begin() +
                                             static_cast<std::ptrdiff_t>(callsAtError),
                                         p.rig.panel->calls.end());
    std::vector<std::string> routing;
    for (auto const& call : after)
        if (call.rfind("setLed", 0) != 0)
            routing.push_back(call);
    EXPECT_EQ(routing, std::vector<std::string>{"setHeadphones(true)"});
}

} // namespace
