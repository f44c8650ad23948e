#include <gtest/gtest.h>

#include "app/plan/YesNoTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using namespace fpt::plan::testing;

Outcome const kFailed{UnitTest::RunFinished, UnitTest::Failed, "FAILED: User Reported Failure"};
Outcome notDone(int code) {
    return {code, UnitTest::NotRun, "Test Not Completed"};
}

// Only "y", "n", "m", "d", exactly as typed, answer the question; the
// offered "(Q)uit" is not one of them.
TEST(YesNoTest, AnswersTheQuestion) {
    struct Case {
        char const* keys;
        Outcome outcome;
    };
    for (Case const& c :
         {Case{"y", kPassed}, Case{"n", kFailed}, Case{"m", notDone(2)}, Case{"d", notDone(3)},
          Case{"qy", kPassed}, Case{"YNMDQn", kFailed}, Case{"x \rm", notDone(2)}}) {
        SCOPED_TRACE(c.keys);
        PlanRig p;
        YesNoTest test(QStringLiteral("Confirm the LED behaviour"),
                       QStringLiteral("1. Did the LED's light up as expected?"),
                       QStringLiteral("(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: "));
        p.snap().term().keys(c.keys);
        p.expectRun(test, c.outcome);
        ASSERT_EQ(p.shots.size(), 1u);
        EXPECT_EQ(p.shots[0], testScreen("Confirm the LED behaviour",
                                         {"1. Did the LED's light up as expected?"},
                                         "(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: ", ""));
    }
}

// An earlier verdict does not survive a menu visit.
TEST(YesNoTest, MenuAfterAnEarlierPassClearsTheVerdict) {
    PlanRig p;
    YesNoTest test(QStringLiteral("Q"), QStringLiteral("d"), QStringLiteral("p"));
    p.term().keys("ym");
    ASSERT_EQ(test.run(p.mgr()), UnitTest::RunFinished);
    ASSERT_EQ(test.state, UnitTest::Passed);
    EXPECT_EQ(test.run(p.mgr()), UnitTest::RunMenu);
    EXPECT_EQ(test.state, UnitTest::NotRun);
    EXPECT_EQ(test.result.toStdString(), "Test Not Completed");
}

} // namespace
