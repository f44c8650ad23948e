#pragma once

// Orderly ending on SIGINT, SIGTERM and SIGHUP. The handler only records the
// signal; the manager's key polls notice it and throw TerminationRequested,
// so the stack unwinds: the panel's LEDs and audio are switched off and the
// terminal is given back before the process ends. Once the screen is closed
// (results being written, the upload's tries) the program finishes the line
// it is writing, leaves an unfinished upload pending, and ends.

#include <exception>

namespace fpt {

class TerminationRequested : public std::exception {
public:
    explicit TerminationRequested(int signalNumber) : m_signal(signalNumber) {}
    int signalNumber() const { return m_signal; }
    char const* what() const noexcept override { return "termination requested by signal"; }

private:
    int m_signal;
};

// Installs the handlers without SA_RESTART, so a blocking terminal read
// returns when a signal arrives. Call before the terminal is taken over.
void installTerminationHandlers();
// Readable from the moment a signal was received: an event loop waiting on
// the network watches it to wake at once. -1 before the handlers are installed.
int terminationWakeFd();
// The signal received, or 0.
int terminationSignal();
// Forgets a received signal once it has been acted on.
void clearTerminationRequest();
// Throws TerminationRequested if a signal was received.
void throwIfTerminationRequested();
// From here on the three signals take their default course at once: nothing
// is left that would notice a recorded one.
void restoreDefaultTermination();
// Ends the process by the signal's default action, so the parent sees how it
// ended.
[[noreturn]] void endBySignal(int signalNumber);

} // namespace fpt
