#include "app/plan/YesNoTest.h"

#include <utility>

#include "app/FrontPanelTestManager.h"

YesNoTest::YesNoTest(QString testName, QString description, QString promptText)
    : UnitTest(std::move(testName)), m_description(std::move(description)),
      m_prompt(std::move(promptText)) {}

int YesNoTest::run(FrontPanelTestManager& manager) {
    manager.title(name);
    manager.detail(m_description);
    // "q" is not accepted even though the question's prompt may offer it.
    for (;;) {
        switch (manager.prompt(m_prompt, "ynmd")) {
        case 'y':
            state = Passed;
            result = QStringLiteral("PASSED: Test Completed");
            return RunFinished;
        case 'n':
            state = Failed;
            result = QStringLiteral("FAILED: User Reported Failure");
            return RunFinished;
        case 'm':
            state = NotRun;
            result = QStringLiteral("Test Not Completed");
            return RunMenu;
        case 'd':
            state = NotRun;
            result = QStringLiteral("Test Not Completed");
            return RunDebug;
        default:
            break;
        }
    }
}
