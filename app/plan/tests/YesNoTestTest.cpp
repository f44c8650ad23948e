#include <gtest/gtest.h>

#include "app/plan/YesNoTest.h"
#include "app/plan/tests/PlanRig.h"

namespace {

using fpt::plan::testing::PlanRig;
using fpt::plan::testing::putDescription;
using fpt::plan::testing::putPrompt;
using fpt::plan::testing::screenOf;

struct AnswerCase {
    char const* name;
    std::string keys;
    int code;
    int32_t state;
    char const* result;
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(AnswerCase const& c, std::ostream* os) {
    *os << c.name;
}

class YesNoAnswer : public ::testing::TestWithParam<AnswerCase> {};

// Only "y", "n", "m", "d", exactly as typed, answer the question; the
// offered "(Q)uit" is not one of them.
TEST_P(YesNoAnswer, AnswersTheQuestion) {
    AnswerCase const& c = GetParam();
    PlanRig p;
    YesNoTest test(QStringLiteral("Confirm the LED behaviour"),
                   QStringLiteral("1. Did the LED's light up as expected?"),
                   QStringLiteral("(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: "));
    p.snap().term().keys(c.keys);

    EXPECT_EQ(test.run(p.mgr()), c.code);
    EXPECT_EQ(test.state, c.state);
    EXPECT_EQ(test.result.toStdString(), c.result);
    EXPECT_TRUE(p.term().scriptDone());

    std::map<int, std::string> rows;
    rows[0] = "Confirm the LED behaviour";
    putDescription(rows, {"1. Did the LED's light up as expected?"});
    putPrompt(rows, "(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: ", "");
    ASSERT_EQ(p.shots.size(), 1u);
    EXPECT_EQ(p.shots[0], screenOf(rows));
}

INSTANTIATE_TEST_SUITE_P(
    YesNo, YesNoAnswer,
    ::testing::Values(
        AnswerCase{"Yes", "y", 1, UnitTest::Passed, "PASSED: Test Completed"},
        AnswerCase{"No", "n", 1, UnitTest::Failed, "FAILED: User Reported Failure"},
        AnswerCase{"Menu", "m", 2, UnitTest::NotRun, "Test Not Completed"},
        AnswerCase{"Debug", "d", 3, UnitTest::NotRun, "Test Not Completed"},
        AnswerCase{"QuitIgnored", "qy", 1, UnitTest::Passed, "PASSED: Test Completed"},
        AnswerCase{"UpperCaseIgnored", "YNMDQn", 1, UnitTest::Failed,
                   "FAILED: User Reported Failure"},
        AnswerCase{"OtherKeysIgnored", "x \rm", 2, UnitTest::NotRun, "Test Not Completed"}),
    fpt::plan::testing::CaseName{});

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
