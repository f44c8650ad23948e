#pragma once

// The real operator terminal, through ncurses. The only place curses is
// used. Frames are built with erase() and sent with one refresh(), so curses
// only transmits the cells that changed: an idle screen costs nothing on a
// slow serial console. Keys are read from standard input here, stamped as they
// come (by a TerminalReader), and handed to curses to decode one at a time. While the screen is up,
// whatever the program writes to standard output or standard error is held back from the screen's
// terminal and shown between frames (see ConsoleDiversion), after which the whole screen is
// repainted. The destructor gives the terminal back.

#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <unistd.h>

#include "app/ConsoleDiversion.h"
#include "app/Terminal.h"
#include "app/TerminalReader.h"

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
    void takeIn() override;
    std::optional<int64_t> nextKeyUs() const override;
    int32_t keyReadyInMs() const override;
    int readKey() override;
    int inputFd() const override;
    std::string readWord(int maxChars) override;

    // How long the rest of an escape sequence (a function or arrow key) is
    // waited for before its bytes are taken as they stand: a lone Escape
    // holds nothing up for longer.
    static constexpr int32_t kEscapeDelayMs = 25;
    // The bytes at the front of typed that make one key: 0 while an escape
    // sequence may still be coming in (unless waitedEnough, then whatever
    // there is of it).
    static std::size_t wholeKeyLength(std::string const& typed, bool waitedEnough);

    // What scanf's "%<maxChars>s" takes from a typed line: leading blanks
    // skipped, the first word, at most maxChars characters.
    static std::string firstWord(std::string const& line, int maxChars);

private:
    // Shows diagnostics written since the last frame; if there were any, the
    // next refresh repaints the whole screen over them.
    void forwardDiagnostics();
    std::string typedText() const;
    // Hands the next whole key taken in to curses, which then decodes it.
    void feedNextKey();

    bool m_started = false;
    bool m_blocking = false;
    bool m_echo = false;
    // Standard input hung up or ended: nothing more will come.
    bool m_inputEnded = false;
    // Stamps the terminal's bytes as they come, whatever the loop is doing.
    std::unique_ptr<TerminalReader> m_reader;
    std::deque<TerminalReader::Byte> m_typed;
    // Curses reads its keys from this pipe, one whole key at a time, so that
    // it never holds one that the manager cannot see, nor waits itself for
    // the rest of an escape sequence.
    int m_keyPipe[2] = {-1, -1};
    std::FILE* m_keyInput = nullptr;
    std::unique_ptr<ConsoleDiversion> m_diversion;
    std::FILE* m_output = nullptr;
    screen* m_screen = nullptr;
};
