#include "app/TestPlan.h"

#include <memory>

#include "app/FrontPanelTestManager.h"
#include "app/UnitTest.h"
#include "app/plan/AudioOutputTest.h"
#include "app/plan/ButtonTest.h"
#include "app/plan/HeadphoneJackTest.h"
#include "app/plan/ShaftEncTest.h"
#include "app/plan/YesNoTest.h"

namespace {

constexpr int32_t kHeadphonesOnly = 1;
constexpr int32_t kSpeakerOnly = 2;

std::shared_ptr<UnitTestGroup> buttonTests() {
    auto group = std::make_shared<UnitTestGroup>(QStringLiteral("Button Tests"));
    static char const* const labels[] = {"Calvento", "F1", "F2",    "F3", "F4",           "F5",
                                         "F6",       "F7", "F8",    "F9", "F10",          "Down",
                                         "Left",     "Up", "Right", "OK", "Shaft Encoder"};
    uint32_t index = 0;
    for (char const* label : labels)
        group->addUnitTest(std::make_shared<ButtonTest>(QString::fromLatin1(label), index++));
    group->addUnitTest(
        std::make_shared<YesNoTest>(QStringLiteral("Confirm the LED behaviour"),
                                    QStringLiteral("1. Did the LED's light up as expected?"),
                                    QStringLiteral("(M)enu, (D)ebug, (Q)uit - (Y)es/ (N)o: ")));
    return group;
}

} // namespace

void addFrontPanelTestPlan(FrontPanelTestManager& manager, bool selfTestImageLoaded) {
    QString const speakerName = QStringLiteral("Speaker Output Test");
    QString const headphoneName = QStringLiteral("Headphone Output Test");

    manager.addUnitTest(std::make_shared<ShaftEncTest>());
    manager.addUnitTest(buttonTests());
    manager.addUnitTest(
        std::make_shared<HeadphoneJackTest>(QStringLiteral("Headphone Jack Detection Test")));
    if (selfTestImageLoaded) {
        manager.addUnitTest(std::make_shared<AudioOutputTest>(
            speakerName,
            QStringLiteral(
                "   This test is to ensure that audio can be heard from the front panel\n"
                "   in isolation\n\n"
                "1. The Test Application has enabled the *External Speaker* Only\n"
                "2. Turn the Volume up using the Shaft Encoder"),
            kSpeakerOnly));
        manager.addUnitTest(std::make_shared<AudioOutputTest>(
            headphoneName,
            QStringLiteral("   This test is to ensure that audio can be heard from the headphones\n"
                           "   in isolation\n\n"
                           "1. The Test Application has enabled Enable the *Headphones* Only\n"
                           "2. Turn the Volume up using the Shaft Encoder"),
            kHeadphonesOnly));
    } else {
        manager.addUnitTest(std::make_shared<FailTest>(speakerName));
        manager.addUnitTest(std::make_shared<FailTest>(headphoneName));
    }
}
