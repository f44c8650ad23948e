#pragma once

// A FrontPanelTestManager wired to test doubles: scripted terminal, recording
// panel link, scripted keyboard and encoder devices, recording tone control,
// a sleep that only counts, and an upload that is recorded and answers
// uploadResult. The doubles belong to the manager: the raw pointers are valid
// while `manager` is (see RecordingFrontPanelComms::onLine for what is sent
// during its destruction).

#include <QString>
#include <memory>
#include <utility>
#include <vector>

#include "app/FrontPanelTestManager.h"
#include "app/testing/RecordingFrontPanelComms.h"
#include "app/testing/RecordingSelfTestFPGAComms.h"
#include "app/testing/ScriptedEventDeviceComms.h"
#include "app/testing/ScriptedTerminal.h"

namespace fpt::testing {

struct ManagerRig {
    explicit ManagerRig(bool selfTestImageLoaded = true) {
        FrontPanelTestManager::Devices d;
        auto term = std::make_unique<ScriptedTerminal>();
        auto pan = std::make_unique<RecordingFrontPanelComms>();
        auto kbd = std::make_unique<ScriptedEventDeviceComms>(
            QStringLiteral("/dev/input/cv084_fp_keyboard"));
        auto enc =
            std::make_unique<ScriptedEventDeviceComms>(QStringLiteral("/dev/input/cv084_fp_mouse"));
        auto fpga = std::make_unique<RecordingSelfTestFPGAComms>(selfTestImageLoaded);
        terminal = term.get();
        panel = pan.get();
        keyboard = kbd.get();
        encoder = enc.get();
        selfTest = fpga.get();
        d.terminal = std::move(term);
        d.panel = std::move(pan);
        d.keyboard = std::move(kbd);
        d.encoder = std::move(enc);
        d.selfTest = std::move(fpga);
        d.sleep = [this](int32_t ms) { sleeps.push_back(ms); };
        d.upload = [this](QString const& path, QString const& dir) {
            uploads.emplace_back(path, dir);
            return uploadResult;
        };
        manager = std::make_unique<FrontPanelTestManager>(std::move(d));
    }
    ManagerRig(ManagerRig const&) = delete;
    ManagerRig& operator=(ManagerRig const&) = delete;

    FrontPanelTestManager& mgr() { return *manager; }

    ScriptedTerminal* terminal = nullptr;
    RecordingFrontPanelComms* panel = nullptr;
    ScriptedEventDeviceComms* keyboard = nullptr;
    ScriptedEventDeviceComms* encoder = nullptr;
    RecordingSelfTestFPGAComms* selfTest = nullptr;
    std::vector<int32_t> sleeps;
    std::vector<std::pair<QString, QString>> uploads;
    bool uploadResult = true;
    // Declared last so it is destroyed first, while the hooks' records above
    // are still alive.
    std::unique_ptr<FrontPanelTestManager> manager;
};

} // namespace fpt::testing
