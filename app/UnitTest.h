#pragma once

// The test model: every check the operator runs is a UnitTest with a name, a
// state and a one-line result text. run() tells the manager's loop what to
// do next through its run code.

#include <QString>
#include <cstdint>
#include <memory>
#include <vector>

class FrontPanelTestManager;

// The one-line result texts the tests leave for the summary screen.
namespace ResultText {
inline constexpr char kPassed[] = "PASSED: Test Completed";
inline constexpr char kNotRun[] = "Test Not Run";
inline constexpr char kNotCompleted[] = "Test Not Completed";
inline constexpr char kUserFailure[] = "FAILED: User Reported Failure";
// The encoder, button and audio tests' own spelling, without the colon.
inline constexpr char kUserFailureNoColon[] = "FAILED User Reported Failure";
} // namespace ResultText

class UnitTest {
public:
    // Values of `state`.
    enum State : int32_t { Passed = 0, Failed = 1, NotRun = 2 };

    // Values returned by run().
    enum RunCode : int32_t {
        RunQuit = 0,     // leave the program at once, no results written
        RunFinished = 1, // passed or failed: go on to the next incomplete test
        RunMenu = 2,     // the operator asked for the test menu
        RunDebug = 3,    // the operator asked for the debug display, then rerun
    };

    explicit UnitTest(QString testName);
    virtual ~UnitTest();
    UnitTest(UnitTest const&) = delete;
    UnitTest& operator=(UnitTest const&) = delete;

    virtual int run(FrontPanelTestManager& manager) = 0;
    // Kept as a hook; no test draws anything of its own.
    virtual void show(FrontPanelTestManager& manager);

    // Seven characters whatever the state so that the menu and the results
    // file line up: "PASSED ", "FAIL!! ", "Not Run", "*ERROR*".
    char const* getTestStateStr() const;
    // Sets state and result together.
    void setOutcome(State newState, char const* resultText);
    // setOutcome, then hands code back: the last step of a run.
    int finish(State newState, char const* resultText, int code);

    QString name;
    int32_t state = NotRun;
    QString result = QString::fromLatin1(ResultText::kNotRun);
};

// Runs its members in order as one test. Stops at the first member that does
// not finish (quit, menu, debug) and hands that code up unchanged.
class UnitTestGroup : public UnitTest {
public:
    explicit UnitTestGroup(QString testName);

    void addUnitTest(std::shared_ptr<UnitTest> test);
    std::vector<std::shared_ptr<UnitTest>> const& unitTests() const { return m_tests; }

    int run(FrontPanelTestManager& manager) override;

private:
    std::vector<std::shared_ptr<UnitTest>> m_tests;
};

// Stands in for a test that cannot run on this set-up (the audio tests without
// the FPGA self-test image): writes "FAIL!! - <name>" to the results file and
// finishes without touching its state, so the board can never pass it.
class FailTest : public UnitTest {
public:
    explicit FailTest(QString testName);

    int run(FrontPanelTestManager& manager) override;
};
