#pragma once

// While the operator's screen is up, standard output and standard error do
// not go straight to the terminal: a diagnostic written there (a perror
// report, a log line, the panel's unexpected-line report) would scroll the
// screen under curses, and one written just before the screen closes would
// vanish with it. Instead each stream goes into its own pipe; forward() passes
// what came through to the real stream and tells the caller to repaint, and
// the destructor puts the streams back and passes on whatever is left, after
// the screen is gone.

#include <array>

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

private:
    struct Stream {
        int fd;            // 1 or 2
        int original = -1; // where it pointed before
        int pipeRead = -1;
    };
    void restore(Stream& stream);

    std::array<Stream, 2> m_streams{{{1}, {2}}};
};
