#include "app/DefaultDevices.h"

#include <chrono>
#include <poll.h>
#include <thread>

#include "app/CursesTerminal.h"
#include "upload/JournaledUpload.h"

namespace {

void waitForInput(int32_t milliseconds, std::array<int, 3> const& inputFds) {
    auto const deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::array<pollfd, 3> polled{};
    for (std::size_t i = 0; i < polled.size(); ++i)
        polled[i] = pollfd{inputFds[i], POLLIN, 0};
    bool broken = ::poll(polled.data(), polled.size(), milliseconds) < 0;
    for (pollfd const& p : polled)
        broken = broken || (p.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    // A device that hangs up stays "ready" for ever: then the poll keeps its
    // pace by the clock instead of spinning.
    if (broken)
        std::this_thread::sleep_until(deadline);
}

} // namespace

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
        devices.sleep = waitForInput;
    if (!devices.upload)
        devices.upload = uploadRequestedResults;
}
