#include "app/DefaultDevices.h"

#include "app/CursesTerminal.h"
#include "app/InputWait.h"
#include "upload/JournaledUpload.h"

void fillDefaultDevices(FrontPanelTestManager::Devices& devices) {
    if (!devices.terminal)
        devices.terminal = std::make_unique<CursesTerminal>();
    if (!devices.panel)
        devices.panel = std::make_unique<FrontPanelComms>(QStringLiteral("/dev/cv084_app"));
    if (!devices.keyboard)
        devices.keyboard =
            std::make_unique<EventDeviceComms>(QStringLiteral("/dev/input/cv084_fp_keyboard"));
    if (!devices.encoder)
        devices.encoder =
            std::make_unique<EventDeviceComms>(QStringLiteral("/dev/input/cv084_fp_mouse"));
    if (!devices.selfTest)
        devices.selfTest = std::make_unique<SelfTestFPGAComms>();
    if (!devices.sleep)
        devices.sleep = InputWait{};
    if (!devices.upload)
        devices.upload = uploadRequestedResults;
}
