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
        terminal = own<ScriptedTerminal>(d.terminal);
        panel = own<RecordingFrontPanelComms>(d.panel);
        keyboard = own<ScriptedEventDeviceComms>(d.keyboard,
                                                 QStringLiteral("/dev/input/cv084_fp_keyboard"));
        encoder =
            own<ScriptedEventDeviceComms>(d.encoder, QStringLiteral("/dev/input/cv084_fp_mouse"));
        selfTest = own<RecordingSelfTestFPGAComms>(d.selfTest, selfTestImageLoaded);
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

    // Makes a T for the manager's slot and keeps a raw pointer to it.
    template <class T, class Slot, class... Args> static T* own(Slot& slot, Args&&... args) {
        auto p = std::make_unique<T>(std::forward<Args>(args)...);
        T* raw = p.get();
        slot = std::move(p);
        return raw;
    }

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
