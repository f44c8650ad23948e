#include "app/plan/HeadphoneJackTest.h"

#include <utility>

#include "app/FrontPanelTestManager.h"
#include "app/plan/OperatorKeys.h"

using fpt::plan::kStayInTest;
using fpt::plan::leaveCodeForKey;

namespace {

QString const kIntro =
    QStringLiteral("   This test is to ensure that the headphone presence can be correctly\n"
                   "   identifed.\n"
                   "\n");

constexpr char kDetectionError[] = "FAILED Headphone detection error";

} // namespace

HeadphoneJackTest::HeadphoneJackTest(QString testName) : UnitTest(std::move(testName)) {}

QString HeadphoneJackTest::plugDescription() {
    return kIntro + QStringLiteral("1. Plug the Headphones into the Headphone Jack");
}

QString HeadphoneJackTest::unplugDescription() {
    return kIntro + QStringLiteral("1. Unplug the Headphones from the Headphone Jack");
}

int HeadphoneJackTest::run(FrontPanelTestManager& manager) {
    manager.title(name);
    setOutcome(Passed, ResultText::kPassed);

    int const start = manager.headphoneState();
    if (start == kHeadphonesUnknown) {
        // The panel has never reported the jack: without the detector the
        // test means nothing, and the run ends here.
        manager.prompt(QStringLiteral("ERROR: The Headphone State cannot be detected!\n"
                                      " Any key to Quit : "));
        return finish(Failed, "FAILED The Headphone State cannot be detected", RunQuit);
    }

    // One unplugging and one plugging every run, first whichever the jack's
    // present state allows.
    if (start == kHeadphonesIn) {
        int const code = plugTest(manager, kHeadphonesOut, unplugDescription());
        if (code != RunFinished)
            return code;
        return plugTest(manager, kHeadphonesIn, plugDescription());
    }
    int const code = plugTest(manager, kHeadphonesIn, plugDescription());
    if (code != RunFinished)
        return code;
    return plugTest(manager, kHeadphonesOut, unplugDescription());
}

int HeadphoneJackTest::plugTest(FrontPanelTestManager& manager, int expected,
                                QString const& description) {
    manager.detail(description);
    for (;;) {
        int const key = manager.prompt(
            QStringLiteral("Press (Y) to continue\n(M)enu, (D)ebug, (Q)uit - (Y)es: "), "mdqyn");
        int const leave = leaveCodeForKey(key);
        if (leave != kStayInTest) {
            return finish(NotRun, ResultText::kNotRun, leave);
        }

        if (manager.headphoneState() == expected)
            return RunFinished;

        // The wording of the two error prompts is the station's own: each
        // describes the opposite situation. The unplug error takes no key at
        // all (empty key list): only the manager's own keys act there. Both
        // are long-standing behaviour, kept on purpose.
        int answer;
        if (expected == kHeadphonesIn) {
            answer = manager.prompt(QStringLiteral("ERROR: Headphones appear to be connected?\n"
                                                   "(M)enu, (D)ebug, (Q)uit (R)etry : "));
        } else {
            answer = manager.prompt(QStringLiteral("ERROR: No Headphones appear to be connected?\n"
                                                   "(M)enu, (D)ebug, (Q)uit (R)etry : "),
                                    "");
        }
        int const failedLeave = leaveCodeForKey(answer);
        if (failedLeave != kStayInTest) {
            return finish(Failed, kDetectionError, failedLeave);
        }
        // Anything else (meant: "r") asks for the go-ahead again.
    }
}
