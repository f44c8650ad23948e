#pragma once

// The real operator terminal, through ncurses. The only place curses is
// used. Frames are built with erase() and sent with one refresh(), so curses
// only transmits the cells that changed: an idle screen costs nothing on a
// slow serial console. While the screen is up, whatever the program writes to
// standard output or standard error is held back from the screen's terminal
// and shown between frames (see ConsoleDiversion), after which the whole
// screen is repainted. The destructor gives the terminal back.

#include <cstdio>
#include <memory>
#include <unistd.h>

#include "app/ConsoleDiversion.h"
#include "app/Terminal.h"

struct screen;

class CursesTerminal : public Terminal {
public:
    CursesTerminal() = default;
    ~CursesTerminal() override;
    CursesTerminal(CursesTerminal const&) = delete;
    CursesTerminal& operator=(CursesTerminal const&) = delete;

    void start() override;
    void stop() override;
    bool isStarted() const override { return m_started; }
    void erase() override;
    void print(int row, int col, std::string const& text, Attr attr = Attr::Normal) override;
    void refresh() override;
    void setInputMode(bool blocking, bool echo) override;
    int readKey() override;
    int inputFd() const override { return m_started ? STDIN_FILENO : -1; }
    bool keyWaiting() const override;
    std::string readWord(int maxChars) override;

    // What scanf's "%<maxChars>s" takes from a typed line: leading blanks
    // skipped, the first word, at most maxChars characters.
    static std::string firstWord(std::string const& line, int maxChars);

private:
    // Shows diagnostics written since the last frame; if there were any, the
    // next refresh repaints the whole screen over them.
    void forwardDiagnostics();

    bool m_started = false;
    bool m_blocking = false;
    std::unique_ptr<ConsoleDiversion> m_diversion;
    std::FILE* m_output = nullptr;
    screen* m_screen = nullptr;
};
