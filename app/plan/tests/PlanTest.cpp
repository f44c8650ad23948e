// Each test of the plan, driven through its answers: the run code that tells
// the loop what to do, and the state and result text left for the summary
// and the results file, including the station's deliberate oddities.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "app/plan/AudioOutputTest.h"
#include "app/plan/ButtonTest.h"
#include "app/plan/HeadphoneJackTest.h"
#include "app/plan/ShaftEncTest.h"
#include "app/plan/YesNoTest.h"
#include "app/testing/ManagerRig.h"

using fpt::testing::ManagerRig;

namespace {

using Script = std::function<void(ManagerRig&)>;

Script keys(char const* k) {
    return [k](ManagerRig& r) { r.terminal->keys(k); };
}
// The knob turned one step per poll through every colour and back.
Script walk(char const* k) {
    return [k](ManagerRig& r) {
        for (int c : {1, 2, 3, 4, 5, 6, 7, 6, 5, 4, 3, 2, 1, 0})
            r.terminal->then([&r, c] { r.encoder->encoderValue = c; });
        r.terminal->then([] {}).keys(k); // the poll that takes the last step in
    };
}
// Two steps at once from yellow skip cyan: the test waits for cyan to come
// round (through black and white) before it asks for the next colour.
Script skip(char const* k) {
    return [k](ManagerRig& r) {
        for (int c : {1, 3, 4, 5, 6, 7, 0})
            r.terminal->then([&r, c] { r.encoder->encoderValue = c; });
        r.terminal->then([&r] {
            EXPECT_NE(r.terminal->shown.find("*Clockwise* from *YELLOW* to *CYAN*"),
                      std::string::npos)
                << r.terminal->shown;
        });
        for (int c : {1, 2, 3, 4, 5, 6, 7, 6, 5, 4, 3, 2, 1, 0})
            r.terminal->then([&r, c] { r.encoder->encoderValue = c; });
        r.terminal->then([] {}).keys(k);
    };
}
Script buttons(std::vector<int> codes, char const* k) {
    return [=](ManagerRig& r) {
        for (int code : codes)
            r.terminal->then([&r, code] { r.keyboard->key(code < 0 ? -code : code, code > 0); });
        r.terminal->keys(k);
    };
}

struct Case {
    char const* what;
    std::function<std::shared_ptr<UnitTest>()> make;
    int jackAtStart;
    std::vector<Script> script;
    int code;
    UnitTest::State state;
    char const* result;
};

std::shared_ptr<UnitTest> yesNo() {
    return std::make_shared<YesNoTest>(QStringLiteral("Q"), QStringLiteral("d"),
                                       QStringLiteral("p"));
}
std::shared_ptr<UnitTest> audio() {
    return std::make_shared<AudioOutputTest>(QStringLiteral("A"), QStringLiteral("d"), 2);
}
std::shared_ptr<UnitTest> jackTest() {
    return std::make_shared<HeadphoneJackTest>(QStringLiteral("J"));
}
std::shared_ptr<UnitTest> f1() {
    return std::make_shared<ButtonTest>(QStringLiteral("F1"), 1);
}
std::shared_ptr<UnitTest> encoder() {
    return std::make_shared<ShaftEncTest>();
}

constexpr auto P = UnitTest::Passed;
constexpr auto F = UnitTest::Failed;
constexpr auto N = UnitTest::NotRun;
constexpr char kPass[] = "PASSED: Test Completed";
constexpr char kUser[] = "FAILED User Reported Failure";
constexpr char kUnknownJack[] = "FAILED The Headphone State cannot be detected";
constexpr char kDetection[] = "FAILED Headphone detection error";

} // namespace

TEST(Plan, AnswersGiveRunCodeStateAndResult) {
    Case const cases[] = {
        {"yes/no: q is not a key", yesNo, 0, {keys("qy")}, 1, P, kPass},
        {"yes/no: no", yesNo, 0, {keys("n")}, 1, F, "FAILED: User Reported Failure"},
        {"yes/no: debug", yesNo, 0, {keys("d")}, 3, N, "Test Not Completed"},
        {"audio: menu", audio, 0, {keys("m")}, 2, N, "Test Not Run"},
        {"jack: unknown", jackTest, -1, {keys("k")}, 0, F, kUnknownJack},
        {"jack: not plugged, quit", jackTest, 0, {keys("yryq")}, 0, F, kDetection},
        {"jack: quit at the go-ahead", jackTest, 0, {keys("q")}, 0, N, "Test Not Run"},
        {"button: held at the start",
         f1,
         0,
         {[](ManagerRig& r) { r.keyboard->key(KEY_F2, 1); },
          buttons({-KEY_F2, KEY_F1, -KEY_F1}, "")},
         1,
         P,
         kPass},
        {"button: retry keeps the failure",
         f1,
         0,
         {buttons({KEY_F1, KEY_F2}, "r"), buttons({-KEY_F1, -KEY_F2}, "d")},
         3,
         F,
         kUser},
        {"encoder: no, next test", encoder, 0, {walk("nn")}, 1, F, kUser},
        {"encoder: no, retry, yes", encoder, 0, {walk("nry")}, 1, P, kPass},
        {"encoder: no, unlisted key passes", encoder, 0, {walk("nx")}, 1, P, kPass},
        {"encoder: no, quit", encoder, 0, {walk("nq")}, 0, F, kUser},
        {"encoder: a double step", encoder, 0, {skip("y")}, 1, P, kPass},
    };
    for (auto const& c : cases) {
        ManagerRig r;
        r.panel->headphoneState = c.jackAtStart;
        for (auto const& step : c.script)
            step(r);
        auto const test = c.make();
        int code = -1;
        EXPECT_NO_THROW(code = test->run(r.mgr())) << c.what; // asked for more keys than given
        EXPECT_EQ(code, c.code) << c.what;
        EXPECT_EQ(test->state, c.state) << c.what;
        EXPECT_EQ(test->result.toStdString(), c.result) << c.what;
    }
}

TEST(Plan, UnknownJackIsExplainedBeforeTheRunEnds) {
    ManagerRig r;
    r.panel->headphoneState = -1;
    r.terminal->keys("k");
    jackTest()->run(r.mgr());
    for (char const* text : {"ERROR: The Headphone State cannot be detected!", "Any key to Quit :"})
        EXPECT_NE(r.terminal->shown.find(text), std::string::npos) << r.terminal->shown;
}

TEST(Plan, AudioTestSwitchesBothOutputsOffBeforeAndAfter) {
    ManagerRig r;
    r.terminal->keys("y");
    r.panel->lines.clear();
    audio()->run(r.mgr());
    auto& lines = r.panel->lines;
    lines.erase(
        std::remove_if(lines.begin(), lines.end(), [](auto const& l) { return l[0] != 'A'; }),
        lines.end());
    EXPECT_EQ(r.panel->lines, (std::vector<std::string>{"A0\n", "A1\n", "A1\n", "A0\n"}));
}
