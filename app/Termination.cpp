#include "app/Termination.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <signal.h>

namespace fpt {
namespace {

volatile std::sig_atomic_t g_signal = 0;

extern "C" void recordSignal(int signalNumber) {
    g_signal = signalNumber;
}

} // namespace

void installTerminationHandlers() {
    struct sigaction action {};
    action.sa_handler = recordSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: interrupt blocking reads
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        sigaction(sig, &action, nullptr);
}

int terminationSignal() {
    return static_cast<int>(g_signal);
}

void clearTerminationRequest() {
    g_signal = 0;
}

void throwIfTerminationRequested() {
    if (int const sig = terminationSignal())
        throw TerminationRequested(sig);
}

void endBySignal(int signalNumber) {
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
    std::_Exit(128 + signalNumber);
}

} // namespace fpt
