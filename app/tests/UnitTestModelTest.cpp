// The test model: state texts, groups and FailTest.

#include <gtest/gtest.h>

#include "app/testing/ManagerRig.h"
#include "app/testing/ScriptedUnitTest.h"
#include "app/tests/TestFiles.h"

using fpt::testing::ManagerRig;
using fpt::testing::ScriptedUnitTest;
using fpt::testing::TempResultsFile;
using Outcome = ScriptedUnitTest::Outcome;

namespace {

class NamedTest : public UnitTest {
public:
    using UnitTest::UnitTest;
    int run(FrontPanelTestManager&) override { return RunFinished; }
};

// Everything after the five header lines.
std::string bodyOf(std::string const& log) {
    std::size_t pos = 0;
    for (int i = 0; i < 5 && pos != std::string::npos; ++i)
        pos = log.find('\n', pos) + 1;
    return log.substr(pos);
}

} // namespace

TEST(UnitTestModel, NewTestIsNotRunAndStateTextsAreSevenWide) {
    NamedTest t(QStringLiteral("x"));
    EXPECT_EQ(t.state, UnitTest::NotRun);
    EXPECT_EQ(t.result, QStringLiteral("Test Not Run"));
    EXPECT_EQ(t.name, QStringLiteral("x"));

    struct Case {
        int32_t state;
        char const* text;
    } const cases[] = {{0, "PASSED "}, {1, "FAIL!! "},  {2, "Not Run"},
                       {3, "*ERROR*"}, {-1, "*ERROR*"}, {1000, "*ERROR*"}};
    for (auto const& c : cases) {
        t.state = c.state;
        EXPECT_STREQ(t.getTestStateStr(), c.text) << "state " << c.state;
        EXPECT_EQ(std::string(t.getTestStateStr()).size(), 7u);
    }
}

TEST(UnitTestModel, GroupOutcomes) {
    struct Case {
        char const* what;
        std::vector<Outcome> members; // one run each
        int code;
        int32_t state;
        char const* result;
        char const* runs; // each member's run count
    } const cases[] = {
        {"empty group passes", {}, 1, 0, "PASSED: Test Completed", ""},
        {"all pass", {{0, 1}, {0, 1}, {0, 1}}, 1, 0, "PASSED: Test Completed", "111"},
        {"1 of 3 failed", {{0, 1}, {1, 1}, {0, 1}}, 1, 1, "FAILED: 1 failed out of 3", "111"},
        {"not run is not passed", {{2, 1}, {0, 1}}, 1, 1, "FAILED: 1 failed out of 2", "11"},
        {"third asks for the menu",
         {{0, 1}, {0, 1}, {2, 2}, {0, 1}, {0, 1}},
         2,
         2,
         "Test Not Completed",
         "11100"},
        {"quit from the first", {{2, 0}, {0, 1}}, 0, 2, "Test Not Completed", "10"},
        {"debug from the second", {{0, 1}, {2, 3}, {0, 1}}, 3, 2, "Test Not Completed", "110"},
        {"an unknown code also stops it", {{0, 1}, {0, 7}}, 7, 2, "Test Not Completed", "11"},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        UnitTestGroup group(QStringLiteral("G"));
        group.state = UnitTest::Passed; // reset to "not run" when the group starts
        std::vector<std::shared_ptr<ScriptedUnitTest>> members;
        for (auto const& m : c.members) {
            members.push_back(
                std::make_shared<ScriptedUnitTest>(QStringLiteral("m"), std::vector<Outcome>{m}));
            group.addUnitTest(members.back());
        }
        EXPECT_EQ(group.run(rig.mgr()), c.code) << c.what;
        EXPECT_EQ(group.state, c.state) << c.what;
        EXPECT_EQ(group.result.toStdString(), c.result) << c.what;
        std::string runs;
        for (auto const& m : members)
            runs += std::to_string(m->runs);
        EXPECT_EQ(runs, c.runs) << c.what;
    }
}

TEST(UnitTestModel, GroupOfEighteenWithTwoFailures) {
    ManagerRig rig;
    UnitTestGroup group(QStringLiteral("Button Tests"));
    for (int i = 0; i < 18; ++i)
        group.addUnitTest(std::make_shared<ScriptedUnitTest>(
            QStringLiteral("b"), std::vector<Outcome>{{i == 4 || i == 17 ? 1 : 0, 1}}));
    EXPECT_EQ(group.run(rig.mgr()), 1);
    EXPECT_EQ(group.state, UnitTest::Failed);
    EXPECT_EQ(group.result, QStringLiteral("FAILED: 2 failed out of 18"));
}

TEST(UnitTestModel, GroupRunAgainStartsFromItsFirstMember) {
    ManagerRig rig;
    UnitTestGroup group(QStringLiteral("G"));
    auto first = std::make_shared<ScriptedUnitTest>(QStringLiteral("a"),
                                                    std::vector<Outcome>{{0, 1}, {0, 1}});
    auto second = std::make_shared<ScriptedUnitTest>(QStringLiteral("b"),
                                                     std::vector<Outcome>{{2, 2}, {0, 1}});
    group.addUnitTest(first);
    group.addUnitTest(second);
    EXPECT_EQ(group.run(rig.mgr()), 2);
    EXPECT_EQ(group.run(rig.mgr()), 1);
    EXPECT_EQ(first->runs, 2);
    EXPECT_EQ(second->runs, 2);
    EXPECT_EQ(group.state, UnitTest::Passed);
    EXPECT_EQ(group.result, QStringLiteral("PASSED: Test Completed"));
}

TEST(UnitTestModel, FailTestLogsItsNameAndStaysNotRun) {
    ManagerRig rig;
    TempResultsFile file;
    rig.mgr().setLogFileLocation(file.path);
    ASSERT_TRUE(rig.mgr().createLogFile());
    FailTest test(QStringLiteral("Speaker Output Test"));
    EXPECT_EQ(test.run(rig.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.run(rig.mgr()), UnitTest::RunFinished);
    EXPECT_EQ(test.state, UnitTest::NotRun);
    EXPECT_EQ(test.result, QStringLiteral("Test Not Run"));
    EXPECT_EQ(bodyOf(file.content()),
              "FAIL!! - Speaker Output Test\nFAIL!! - Speaker Output Test\n");
}
