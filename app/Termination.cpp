#include "app/Termination.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <initializer_list>
#include <signal.h>
#include <unistd.h>

namespace fpt {
namespace {

constexpr std::initializer_list<int> kTerminationSignals{SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t g_signal = 0;
// The self-pipe: the handler writes a byte, a waiting event loop wakes.
int g_wake[2] = {-1, -1};

extern "C" void recordSignal(int signalNumber) {
    int const savedErrno = errno;
    g_signal = signalNumber;
    if (g_wake[1] >= 0) {
        // Non-blocking: a pipe already holding a byte is wake enough.
        ssize_t const ignored = ::write(g_wake[1], "", 1);
        static_cast<void>(ignored);
    }
    errno = savedErrno;
}

void drainWakePipe() {
    char buffer[64];
    while (g_wake[0] >= 0 && ::read(g_wake[0], buffer, sizeof buffer) > 0) {
    }
}

} // namespace

void installTerminationHandlers() {
    if (g_wake[0] < 0 && ::pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0)
        g_wake[0] = g_wake[1] = -1; // then only the key polls notice a signal
    struct sigaction action {};
    action.sa_handler = recordSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: interrupt blocking reads
    for (int sig : kTerminationSignals)
        sigaction(sig, &action, nullptr);
}

int terminationWakeFd() {
    return g_wake[0];
}

int terminationSignal() {
    return static_cast<int>(g_signal);
}

void clearTerminationRequest() {
    g_signal = 0;
    drainWakePipe();
}

void throwIfTerminationRequested() {
    if (int const sig = terminationSignal())
        throw TerminationRequested(sig);
}

void restoreDefaultTermination() {
    for (int sig : kTerminationSignals)
        std::signal(sig, SIG_DFL);
}

void endBySignal(int signalNumber) {
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
    std::_Exit(128 + signalNumber);
}

} // namespace fpt
