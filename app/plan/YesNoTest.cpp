#include "app/plan/YesNoTest.h"

#include <utility>

#include "app/FrontPanelTestManager.h"
#include "app/plan/OperatorKeys.h"

YesNoTest::YesNoTest(QString testName, QString description, QString promptText)
    : UnitTest(std::move(testName)), m_description(std::move(description)),
      m_prompt(std::move(promptText)) {}

int YesNoTest::run(FrontPanelTestManager& manager) {
    manager.title(name);
    manager.detail(m_description);
    // "q" is not accepted even though the question's prompt may offer it.
    for (;;) {
        int const answer = manager.prompt(m_prompt, "ynmd");
        switch (answer) {
        case 'y':
            return finish(Passed, ResultText::kPassed, RunFinished);
        case 'n':
            return finish(Failed, ResultText::kUserFailure, RunFinished);
        case 'm':
        case 'd':
            return finish(NotRun, ResultText::kNotCompleted, fpt::plan::leaveCodeForKey(answer));
        default:
            break;
        }
    }
}
