#include "app/plan/ShaftEncTest.h"

#include "app/FrontPanelTestManager.h"
#include "app/LedColours.h"
#include "app/plan/OperatorKeys.h"

using fpt::plan::kStayInTest;
using fpt::plan::leaveCodeForKey;

namespace {

constexpr int kWhite = 0;
constexpr int kBlack = 7;

} // namespace

ShaftEncTest::ShaftEncTest() : UnitTest(QString()) {}

QString ShaftEncTest::stepDescription(bool clockwise, int fromColour, int toColour) {
    return QStringLiteral("   This test is to ensure that you have smooth accurate control of\n"
                          "   the Shaft Encoder, and to ensure that the LED colors change as \n"
                          "   expected.\n"
                          "\n"
                          "1. Turn the Shaft Encoder One Step *%1* from *%2* to *%3*")
        .arg(clockwise ? QStringLiteral("Clockwise") : QStringLiteral("Anticlockwise"),
             QString::fromLatin1(ledColour(fromColour).name),
             QString::fromLatin1(ledColour(toColour).name));
}

int ShaftEncTest::run(FrontPanelTestManager& manager) {
    name = QStringLiteral("Shaft Encoder Tests");
    manager.updatePrompt(QString::fromLatin1(fpt::plan::kLeavePrompt));
    // Colour mode from white, so that the walk below starts from a known LED
    // colour whatever the operator or an earlier test left the encoder on.
    manager.setShaftEncoderMode(FrontPanelTestManager::ShaftEncoderColours);
    manager.setLEDColour(kWhite);
    manager.title(name);

    for (int target = kWhite + 1; target <= kBlack; ++target) {
        int const code = turnTo(manager, true, target);
        if (code != kStayInTest)
            return code;
    }
    for (int target = kBlack - 1; target >= kWhite; --target) {
        int const code = turnTo(manager, false, target);
        if (code != kStayInTest)
            return code;
    }
    return askVerdict(manager);
}

int ShaftEncTest::turnTo(FrontPanelTestManager& manager, bool clockwise, int target) {
    manager.detail(stepDescription(clockwise, manager.getLEDColour(), target));
    // A step too many overshoots the target; the colours wrap, so the
    // operator simply turns on (or back) until the target comes round.
    while (manager.getLEDColour() != target) {
        int const code = leaveCodeForKey(manager.nonBlockingGetLowerCh());
        if (code != kStayInTest)
            return code;
    }
    return kStayInTest;
}

int ShaftEncTest::askVerdict(FrontPanelTestManager& manager) {
    for (;;) {
        int const answer = manager.prompt(
            QStringLiteral("Do all of the LEDs light up and do the colours change uniformly?\n"
                           " (Y)es (N)o : "));
        if (answer == 'y') {
            return finish(Passed, ResultText::kPassed, RunFinished);
        }

        setOutcome(Failed, ResultText::kUserFailureNoColon);
        int const choice = manager.prompt(QStringLiteral("ERROR: Expected you to answer \"Yes\"?\n"
                                                         " (R)etry, (N)ext Test or (Q)uit : "));
        switch (choice) {
        case 'r':
            continue; // ask again; the turning is not repeated
        case 'n':
            return RunFinished;
        case 'm':
        case 'q':
        case 'd':
            return leaveCodeForKey(choice);
        default:
            // An unlisted key at this prompt passes the test. Long-standing
            // behaviour of the station, kept on purpose.
            return finish(Passed, ResultText::kPassed, RunFinished);
        }
    }
}
