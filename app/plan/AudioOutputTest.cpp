#include "app/plan/AudioOutputTest.h"

#include <utility>

#include "app/FrontPanelTestManager.h"
#include "app/plan/OperatorKeys.h"

AudioOutputTest::AudioOutputTest(QString testName, QString description, int32_t route)
    : UnitTest(std::move(testName)), m_description(std::move(description)), m_route(route) {}

int AudioOutputTest::run(FrontPanelTestManager& manager) {
    setOutcome(Passed, ResultText::kPassed);

    // The chosen output alone, silent to start with; the encoder turns the
    // volume up (and "p" lets it change the pitch) while the question waits.
    manager.setupForAudioOutputTests(m_route);
    manager.title(name);
    manager.detail(m_description);
    int const answer = manager.prompt(
        QStringLiteral("Can you hear an audio output?\n(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: "),
        "qmdyn");
    manager.setupForAudioOutputTests(kRouteOff);

    switch (answer) {
    case 'y':
        return finish(Passed, ResultText::kPassed, RunFinished);
    case 'n':
        // A silent output ends the run at once, before any result line is
        // written: the results file keeps only its header. Long-standing
        // behaviour, kept on purpose.
        return finish(Failed, ResultText::kUserFailureNoColon, RunQuit);
    default:
        return finish(NotRun, ResultText::kNotRun, fpt::plan::leaveCodeForKey(answer));
    }
}
