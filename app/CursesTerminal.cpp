#include "app/CursesTerminal.h"

#include <algorithm>
#include <cstdlib>
#include <poll.h>
#include <unistd.h>

#include <curses.h>
#include <vector>

#include "app/Termination.h"

namespace {

// A blocking read wakes this often to see whether a termination signal came
// in (should the curses library restart the interrupted read itself).
constexpr int kBlockingWakeMs = 250;

attr_t cursesAttr(Terminal::Attr attr) {
    switch (attr) {
    case Terminal::Attr::Bold:
        return A_BOLD;
    case Terminal::Attr::Highlight:
        return A_REVERSE;
    case Terminal::Attr::Normal:
        break;
    }
    return A_NORMAL;
}

// What leaving the screen sends to the terminal, looked up while curses may
// still be called: a crash hands it to the terminal from a signal handler.
std::string screenResetSequence() {
    std::string bytes;
    for (char const* name : {"rmcup", "rmkx", "sgr0", "cnorm"}) {
        char const* const capability = tigetstr(name);
        if (capability != nullptr && capability != reinterpret_cast<char*>(-1))
            bytes += capability;
    }
    return bytes;
}

} // namespace

CursesTerminal::~CursesTerminal() {
    stop();
}

void CursesTerminal::start() {
    if (m_started)
        return;
    m_diversion = std::make_unique<ConsoleDiversion>();
    int const terminal = m_diversion->terminalFd() >= 0 ? m_diversion->terminalFd() : STDOUT_FILENO;
    m_output = ::fdopen(::dup(terminal), "w");
    m_screen = newterm(nullptr, m_output != nullptr ? m_output : stdout, stdin);
    if (m_screen == nullptr) {
        // As initscr() would: without a usable terminal there is no program,
        // and the operator is told which terminal type it could not find.
        m_diversion.reset();
        char const* const type = std::getenv("TERM");
        std::fprintf(stderr, "Error opening terminal: %s.\n",
                     type != nullptr && *type != '\0' ? type : "unknown");
        std::exit(1);
    }
    set_term(m_screen);
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    timeout(0);
    m_diversion->setScreenReset(screenResetSequence());
    m_blocking = false;
    m_started = true;
}

void CursesTerminal::stop() {
    if (!m_started)
        return;
    endwin();
    delscreen(m_screen);
    m_screen = nullptr;
    if (m_output != nullptr)
        std::fclose(m_output);
    m_output = nullptr;
    // Only now, on the plain terminal: what was written since the last frame,
    // e.g. why the run could not start.
    m_diversion.reset();
    m_started = false;
}

void CursesTerminal::erase() {
    if (m_started)
        ::werase(stdscr);
}

void CursesTerminal::print(int row, int col, std::string const& text, Attr attr) {
    if (!m_started || row < 0 || col < 0 || row >= LINES || col >= COLS)
        return;
    attr_t const a = cursesAttr(attr);
    if (a != A_NORMAL)
        wattron(stdscr, a);
    // Clipped at the right edge: curses would otherwise wrap onto the next row.
    mvwaddnstr(stdscr, row, col, text.c_str(), COLS - col);
    if (a != A_NORMAL)
        wattroff(stdscr, a);
}

void CursesTerminal::refresh() {
    if (!m_started)
        return;
    forwardDiagnostics();
    ::wrefresh(stdscr);
}

void CursesTerminal::forwardDiagnostics() {
    if (m_diversion->forward())
        clearok(curscr, TRUE);
}

void CursesTerminal::setInputMode(bool blocking, bool echo) {
    m_blocking = blocking;
    if (!m_started)
        return;
    if (echo)
        ::echo();
    else
        ::noecho();
    wtimeout(stdscr, blocking ? kBlockingWakeMs : 0);
}

int CursesTerminal::readKey() {
    if (!m_started)
        return kNoKey;
    for (;;) {
        int const ch = wgetch(stdscr);
        // A window size change comes in as KEY_RESIZE. It is not an answer:
        // at an "any key" question it would pass a test or accept a serial
        // number nobody confirmed. curses repaints the resized screen itself.
        if (ch != ERR && ch != KEY_RESIZE)
            return ch;
        if (!m_blocking || fpt::terminationSignal() != 0)
            return kNoKey;
        // Waiting on the operator (menu, summary): keep the screen whole.
        forwardDiagnostics();
        ::wrefresh(stdscr);
    }
}

bool CursesTerminal::keyWaiting() const {
    // A terminal that hung up reads as ready for ever, but holds no key.
    pollfd input{inputFd(), POLLIN, 0};
    return input.fd >= 0 && ::poll(&input, 1, 0) == 1 && input.revents == POLLIN;
}

std::string CursesTerminal::readWord(int maxChars) {
    if (!m_started || maxChars <= 0)
        return {};
    // A line read must not time out half-way; a signal still ends it.
    wtimeout(stdscr, -1);
    std::size_t const capacity = static_cast<std::size_t>(maxChars) * 4;
    std::string typed;
    int rc = OK;
    // ncurses ends a line read early, with KEY_RESIZE, when the window changes
    // size: keep what was typed so far and go on reading the same answer.
    do {
        std::vector<char> line(capacity - std::min(typed.size(), capacity) + 1, '\0');
        rc = wgetnstr(stdscr, line.data(), static_cast<int>(line.size()) - 1);
        typed += line.data();
    } while (rc == KEY_RESIZE && typed.size() < capacity);
    wtimeout(stdscr, m_blocking ? kBlockingWakeMs : 0);
    if (rc == ERR)
        return {};
    return firstWord(typed, maxChars);
}

std::string CursesTerminal::firstWord(std::string const& line, int maxChars) {
    auto const begin = line.find_first_not_of(" \t\n\r\v\f");
    if (begin == std::string::npos || maxChars <= 0)
        return {};
    auto const end = line.find_first_of(" \t\n\r\v\f", begin);
    std::string word =
        line.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
    if (word.size() > static_cast<std::size_t>(maxChars))
        word.resize(static_cast<std::size_t>(maxChars));
    return word;
}
