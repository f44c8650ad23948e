#pragma once

// While the operator's screen is up, standard output and standard error do
// not go straight to the terminal: a diagnostic written there (a perror
// report, a log line, the panel's unexpected-line report) would scroll the
// screen under curses, and one written just before the screen closes would
// vanish with it. Instead what is written waits in a file in memory; forward()
// passes it to the real streams and tells the caller to repaint, and the
// destructor puts the streams back and passes on whatever is left, after the
// screen is gone.
//
// A file, not a pipe: a write to it never blocks, however long the burst and
// however rarely the screen is repainted. When both streams go to the same
// place (the operator's terminal), they share one file, so that what was
// written reaches the terminal in the order it was written.
//
// Should the program crash while the screen is up (SIGABRT, also from
// std::terminate, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, or the
// operator's Ctrl-\ as SIGQUIT), the terminal gets its own screen
// and mode back and then what was held, before the signal ends the process:
// the last words of a crash are the ones the operator needs.

#include <array>
#include <string>
#include <termios.h>
#include <utility>

class ConsoleDiversion {
public:
    ConsoleDiversion();
    ~ConsoleDiversion();
    ConsoleDiversion(ConsoleDiversion const&) = delete;
    ConsoleDiversion& operator=(ConsoleDiversion const&) = delete;

    // The real standard output (the terminal), for the screen to draw on.
    int terminalFd() const { return m_streams[0].original; }
    // Writes what came through since the last call to the real streams, each
    // to its own; true if there was anything.
    bool forward();
    // The bytes that leave the screen's terminal modes (alternate screen,
    // keypad, attributes), sent to the terminal first should the program crash.
    void setScreenReset(std::string bytes) { m_screenReset = std::move(bytes); }

private:
    struct Stream {
        int fd;            // 1 or 2
        int original = -1; // where it pointed before; -1: not diverted
        int held = -1;     // the file its writes wait in; -1: none of its own
    };
    void restore(Stream& stream);
    // Only system calls that are safe in a signal handler.
    void putBackAfterCrash() const;
    static void onCrash(int signalNumber);
    static void onTerminate();

    std::array<Stream, 2> m_streams{{{1}, {2}}};
    std::string m_screenReset;
    struct termios m_terminalMode {};
    bool m_terminalModeSaved = false;
};
