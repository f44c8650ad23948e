#include "app/plan/ButtonTest.h"

#include <utility>

#include "app/FrontPanelTestManager.h"
#include "app/plan/OperatorKeys.h"

using fpt::plan::kStayInTest;
using fpt::plan::leaveCodeForKey;

namespace {

// buttonTestCheckForExpected() answers.
constexpr int kExpectedReleased = 0;
constexpr int kExpectedHeld = 1;

// One key poll; the devices are serviced and the screen (with the LEDs) is
// redrawn by the manager as part of it.
int pollForLeave(FrontPanelTestManager& manager) {
    return leaveCodeForKey(manager.nonBlockingGetLowerCh());
}

} // namespace

ButtonTest::ButtonTest(QString label, uint32_t buttonIndex)
    : UnitTest(QString()), m_label(std::move(label)), m_buttonIndex(buttonIndex) {}

QString ButtonTest::description(QString const& label, uint32_t buttonIndex) {
    // The knob's LED number addresses every LED, hence its own last line.
    QString const ledCheck = buttonIndex == kShaftEncoderButton
                                 ? QStringLiteral("3. Check that all LEDs light up")
                                 : QStringLiteral("3. Check that it's LED lights up");
    return QStringLiteral("   This test is to ensure Front Panel buttons presses are correctly\n"
                          "   identified and to ensure that LEDs can be individually controlled.\n"
                          "\n"
                          "1. Press and release \"*%1*\" button\n")
               .arg(label) +
           ledCheck;
}

int ButtonTest::run(FrontPanelTestManager& manager) {
    name = QStringLiteral("\"%1\" Button Test").arg(m_label);
    manager.title(name);
    manager.detail(description(m_label, m_buttonIndex));
    manager.setLEDColour(0);
    setOutcome(NotRun, ResultText::kNotRun);

    for (;;) {
        int const code = attempt(manager);
        if (code != kStayInTest)
            return code;
    }
}

int ButtonTest::attempt(FrontPanelTestManager& manager) {
    manager.updatePrompt(QString::fromLatin1(fpt::plan::kLeavePrompt));

    // A button still held from before (or leaning on the panel) is not the
    // press we are looking for: wait for a clean panel first.
    while (manager.buttonTestCheckForNoPress() == 0) {
        int const code = pollForLeave(manager);
        if (code != kStayInTest)
            return code;
    }
    while (manager.buttonTestCheckForNoPress() != 0) {
        int const code = pollForLeave(manager);
        if (code != kStayInTest)
            return code;
    }

    for (;;) {
        int const check = manager.buttonTestCheckForExpected(m_buttonIndex);
        if (check == kExpectedReleased) {
            return finish(Passed, ResultText::kPassed, RunFinished);
        }
        if (check != kExpectedHeld)
            break; // another button went down as well
        int const code = pollForLeave(manager);
        if (code != kStayInTest)
            return code;
    }

    setOutcome(Failed, ResultText::kUserFailureNoColon);
    int const key = manager.prompt(QStringLiteral("ERROR: \"%1\" was not the last button pressed\n"
                                                  " (M)enu, (D)ebug, (R)etry or (Q)uit : ")
                                       .arg(m_label));
    // Anything but the three leave keys tries the same button again, keeping
    // the failure on record until the next outcome.
    return leaveCodeForKey(key);
}
