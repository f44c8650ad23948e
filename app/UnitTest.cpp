#include "app/UnitTest.h"

#include "app/FrontPanelTestManager.h"

UnitTest::UnitTest(QString testName) : name(std::move(testName)) {}

UnitTest::~UnitTest() = default;

void UnitTest::show(FrontPanelTestManager& /*manager*/) {}

char const* UnitTest::getTestStateStr() const {
    switch (state) {
    case Passed:
        return "PASSED ";
    case Failed:
        return "FAIL!! ";
    case NotRun:
        return "Not Run";
    default:
        return "*ERROR*";
    }
}

void UnitTest::setOutcome(State newState, char const* resultText) {
    state = newState;
    result = QString::fromLatin1(resultText);
}

int UnitTest::finish(State newState, char const* resultText, int code) {
    setOutcome(newState, resultText);
    return code;
}

UnitTestGroup::UnitTestGroup(QString testName) : UnitTest(std::move(testName)) {}

void UnitTestGroup::addUnitTest(std::shared_ptr<UnitTest> test) {
    m_tests.push_back(std::move(test));
}

int UnitTestGroup::run(FrontPanelTestManager& manager) {
    state = NotRun;
    int32_t passed = 0;
    for (auto const& test : m_tests) {
        int const code = test->run(manager);
        if (code != RunFinished) {
            // Abandoned part-way: the group as a whole was not completed, and
            // the loop must act on the member's request.
            result = QString::fromLatin1(ResultText::kNotCompleted);
            return code;
        }
        if (test->state == Passed)
            ++passed;
    }
    auto const total = static_cast<int32_t>(m_tests.size());
    if (passed == total) {
        setOutcome(Passed, ResultText::kPassed);
    } else {
        state = Failed;
        result = QStringLiteral("FAILED: %1 failed out of %2").arg(total - passed).arg(total);
    }
    return RunFinished;
}

FailTest::FailTest(QString testName) : UnitTest(std::move(testName)) {}

int FailTest::run(FrontPanelTestManager& manager) {
    // State and result stay "Not Run" on purpose: the failure line in the
    // results file is what records that this board was not fully tested.
    manager.log(QStringLiteral("FAIL!! - %1\n").arg(name));
    return RunFinished;
}
