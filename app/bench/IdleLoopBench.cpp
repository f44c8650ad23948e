// Idle cost of the operator screen: runs the manager's key poll with a test
// display up and nobody at the keys, on a pseudo-terminal, and reports the
// poll loop's CPU use and the bytes sent to the terminal per second.
//
//   front_panel_idle_bench [seconds]     (default 10, after 2 s to settle)
//
// The panel link and input devices are the real classes, left unopened (no
// panel here); the FPGA tone control is the recording double.

#include <QCoreApplication>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "app/CursesTerminal.h"
#include "app/FrontPanelTestManager.h"
#include "app/Termination.h"
#include "app/testing/RecordingSelfTestFPGAComms.h"

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void runIdleScreen() {
    fpt::installTerminationHandlers();
    FrontPanelTestManager::Devices devices;
    devices.terminal = std::make_unique<CursesTerminal>();
    devices.selfTest = std::make_unique<fpt::testing::RecordingSelfTestFPGAComms>(true);
    int status = 0;
    try {
        FrontPanelTestManager manager(std::move(devices));
        manager.initDisplay();
        manager.title(QStringLiteral("\"F3\" Button Test"));
        manager.detail(QStringLiteral(
            "   This test is to ensure Front Panel buttons presses are correctly\n"
            "   identified and to ensure that LEDs can be individually controlled.\n\n"
            "1. Press and release \"*F3*\" button\n3. Check that it's LED lights up"));
        manager.getLowerCh("");
    } catch (fpt::TerminationRequested const&) {
        status = 0;
    }
    std::_Exit(status);
}

// utime + stime of a process, in clock ticks.
long long cpuTicks(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string content((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    auto const close = content.rfind(')');
    if (close == std::string::npos)
        return -1;
    std::istringstream rest(content.substr(close + 2));
    std::string field;
    long long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && rest >> field; ++i) {
        if (i == 14)
            utime = std::stoll(field);
        if (i == 15)
            stime = std::stoll(field);
    }
    return utime + stime;
}

// Reads whatever the child wrote, for up to `span`; returns the byte count.
long long drain(int fd, Clock::duration span) {
    long long total = 0;
    auto const end = Clock::now() + span;
    char buf[4096];
    for (;;) {
        auto const left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0)
            return total;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left)) > 0) {
            ssize_t const n = ::read(fd, buf, sizeof buf);
            if (n <= 0)
                return total;
            total += n;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    double const seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: %s [seconds]\n", argv[0]);
        return 2;
    }

    winsize size{};
    size.ws_row = 24;
    size.ws_col = 80;
    int master = -1;
    setenv("TERM", "xterm", 0);
    pid_t const child = forkpty(&master, nullptr, nullptr, &size);
    if (child < 0) {
        std::perror("forkpty");
        return 1;
    }
    if (child == 0)
        runIdleScreen();

    long long const firstFrame = drain(master, std::chrono::seconds(2));
    long long const cpuBefore = cpuTicks(child);
    auto const start = Clock::now();
    long long const idleBytes =
        drain(master,
              std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
    double const elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    long long const cpuAfter = cpuTicks(child);

    kill(child, SIGTERM);
    drain(master, std::chrono::milliseconds(500));
    int status = 0;
    waitpid(child, &status, 0);
    close(master);

    double const cpuSeconds =
        static_cast<double>(cpuAfter - cpuBefore) / static_cast<double>(sysconf(_SC_CLK_TCK));
    std::printf("first frame and settling: %lld bytes\n", firstFrame);
    std::printf("idle for %.1f s: CPU %.2f %% of one core, terminal output %.1f bytes/s\n", elapsed,
                100.0 * cpuSeconds / elapsed, static_cast<double>(idleBytes) / elapsed);
    return 0;
}
