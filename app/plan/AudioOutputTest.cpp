#include "app/plan/AudioOutputTest.h"

#include <utility>

#include "app/FrontPanelTestManager.h"
#include "app/plan/OperatorKeys.h"

AudioOutputTest::AudioOutputTest(QString testName, QString description, int32_t route)
    : UnitTest(std::move(testName)), m_description(std::move(description)), m_route(route) {}

int AudioOutputTest::run(FrontPanelTestManager& manager) {
    state = Passed;
    result = QStringLiteral("PASSED: Test Completed");

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
        state = Passed;
        result = QStringLiteral("PASSED: Test Completed");
        return RunFinished;
    case 'n':
        // A silent output ends the run at once, before any result line is
        // written: the results file keeps only its header. Long-standing
        // behaviour, kept on purpose.
        state = Failed;
        result = QStringLiteral("FAILED User Reported Failure");
        return RunQuit;
    default:
        state = NotRun;
        result = QStringLiteral("Test Not Run");
        return fpt::plan::leaveCodeForKey(answer);
    }
}
