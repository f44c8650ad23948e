#include "app/CursesTerminal.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <curses.h>
#include <vector>

#include "app/Termination.h"
#include "comms/PolledRead.h"

namespace {

// A line read wakes this often to see whether a termination signal came in.
constexpr int kLineWakeMs = 250;
constexpr char kEscape = '\x1b';

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
    if (::isatty(STDIN_FILENO) != 1) {
        // Keys from a file or /dev/null would end at once and leave the
        // screen waiting for ever on an operator who cannot answer.
        std::fputs("front_panel_test: standard input is not a terminal; run it on the "
                   "operator's terminal.\n",
                   stderr);
        std::exit(1);
    }
    m_diversion = std::make_unique<ConsoleDiversion>();
    int const terminal = m_diversion->terminalFd() >= 0 ? m_diversion->terminalFd() : STDOUT_FILENO;
    m_output = ::fdopen(::dup(terminal), "w");
    if (::pipe2(m_keyPipe, O_CLOEXEC) == 0) {
        ::fcntl(m_keyPipe[1], F_SETFL, O_NONBLOCK);
        m_keyInput = ::fdopen(m_keyPipe[0], "r");
    }
    m_screen = m_keyInput == nullptr
                   ? nullptr
                   : newterm(nullptr, m_output != nullptr ? m_output : stdout, m_keyInput);
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
    // Each key is handed over whole, in one write, and the next only once
    // this one is read: curses waiting for more after an Escape would only
    // hold the lone Escape key (and the buttons behind it) up.
    set_escdelay(0);
    // Keys reach curses only when read: it must not stop drawing a frame
    // half-way because one is waiting.
    typeahead(-1);
    timeout(0);
    m_diversion->setScreenReset(screenResetSequence());
    m_blocking = false;
    m_inputEnded = false;
    // Only now, with the terminal in the screen's modes: each key is there
    // to read as soon as it is typed.
    m_reader = std::make_unique<TerminalReader>(STDIN_FILENO);
    m_started = true;
}

void CursesTerminal::stop() {
    if (!m_started)
        return;
    m_reader.reset();
    endwin();
    delscreen(m_screen);
    m_screen = nullptr;
    if (m_output != nullptr)
        std::fclose(m_output);
    m_output = nullptr;
    std::fclose(m_keyInput);
    ::close(m_keyPipe[1]);
    m_keyInput = nullptr;
    m_keyPipe[0] = m_keyPipe[1] = -1;
    m_typed.clear();
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
    m_echo = echo;
    if (!m_started)
        return;
    if (echo)
        ::echo();
    else
        ::noecho();
}

void CursesTerminal::takeIn() {
    if (!m_started || m_inputEnded)
        return;
    // A terminal that hung up would read as ready for ever: once what came
    // before is taken in, it is no longer watched.
    if (!m_reader->takeInto(m_typed))
        m_inputEnded = true;
}

int CursesTerminal::inputFd() const {
    return m_started && !m_inputEnded ? m_reader->wakeFd() : -1;
}

std::optional<int64_t> CursesTerminal::nextKeyUs() const {
    // Bytes that may still be the start of a function key are not a key yet:
    // holding the buttons and the knob behind them would stall the panel for
    // the whole escape delay after a lone Escape.
    if (keyReadyInMs() != 0)
        return std::nullopt;
    return m_typed.front().arrivedUs;
}

int32_t CursesTerminal::keyReadyInMs() const {
    if (m_typed.empty())
        return -1;
    if (wholeKeyLength(typedText(), false) > 0)
        return 0;
    int64_t const waited = (comms::arrivalClockUs() - m_typed.front().arrivedUs) / 1000;
    return static_cast<int32_t>(std::clamp<int64_t>(kEscapeDelayMs - waited, 0, kEscapeDelayMs));
}

std::string CursesTerminal::typedText() const {
    std::string text;
    for (TerminalReader::Byte const& b : m_typed)
        text += b.byte;
    return text;
}

std::size_t CursesTerminal::wholeKeyLength(std::string const& typed, bool waitedEnough) {
    if (typed.empty())
        return 0;
    if (typed[0] != kEscape)
        return 1;
    std::size_t length = 0;
    if (typed.size() >= 2 && typed[1] == '[') {
        // CSI: parameters up to a final byte from '@' to '~'.
        for (std::size_t i = 2; i < typed.size() && length == 0; ++i)
            if (typed[i] >= '@' && typed[i] <= '~')
                length = i + 1;
    } else if (typed.size() >= 2 && typed[1] == 'O') {
        length = typed.size() >= 3 ? 3 : 0; // SS3: one more byte
    } else if (typed.size() >= 2) {
        length = 1; // Escape, then an ordinary key (Alt+key)
    }
    if (length == 0 && waitedEnough)
        length = typed.size();
    return length;
}

void CursesTerminal::feedNextKey() {
    if (m_typed.empty())
        return;
    bool const waited = keyReadyInMs() == 0;
    std::size_t const length = wholeKeyLength(typedText(), waited);
    if (length == 0)
        return;
    std::string const key = typedText().substr(0, length);
    // The pipe holds far more than one key; curses empties it at each read.
    if (::write(m_keyPipe[1], key.data(), key.size()) == static_cast<ssize_t>(key.size()))
        m_typed.erase(m_typed.begin(), m_typed.begin() + static_cast<std::ptrdiff_t>(length));
}

int CursesTerminal::readKey() {
    if (!m_started)
        return kNoKey;
    feedNextKey();
    int const ch = wgetch(stdscr);
    // A window size change comes in as KEY_RESIZE. It is not an answer:
    // at an "any key" question it would pass a test or accept a serial
    // number nobody confirmed. curses repaints the resized screen itself.
    if (ch != ERR && ch != KEY_RESIZE)
        return ch;
    if (m_blocking) {
        // Waiting on the operator (menu, summary): keep the screen whole.
        forwardDiagnostics();
        ::wrefresh(stdscr);
    }
    return kNoKey;
}

std::string CursesTerminal::readWord(int maxChars) {
    if (!m_started || maxChars <= 0)
        return {};
    std::size_t const capacity = static_cast<std::size_t>(maxChars) * 4;
    std::string typed;
    // Echoed here, not by curses, which would show an erasing key as "^?".
    ::noecho();
    for (;;) {
        takeIn();
        int const ch = readKey();
        if (fpt::terminationSignal() != 0)
            break;
        if (ch == '\n' || ch == '\r' || ch == KEY_ENTER)
            break;
        if (ch == KEY_BACKSPACE || ch == 127 || ch == '\b') {
            if (!typed.empty()) {
                typed.pop_back();
                int y = 0;
                int x = 0;
                getyx(stdscr, y, x);
                if (x > 0)
                    mvwdelch(stdscr, y, x - 1);
                ::wrefresh(stdscr);
            }
        } else if (ch >= ' ' && ch < 256 && ch != 127 && typed.size() < capacity) {
            typed += static_cast<char>(ch);
            // Echo is off while keys are decoded: what is typed is shown here.
            waddch(stdscr, static_cast<chtype>(ch));
            ::wrefresh(stdscr);
        } else if (ch == kNoKey) {
            int32_t const ready = keyReadyInMs();
            pollfd input{inputFd(), POLLIN, 0};
            ::poll(&input, input.fd >= 0 ? 1 : 0, ready >= 0 ? ready : kLineWakeMs);
        }
    }
    if (m_echo)
        ::echo();
    if (fpt::terminationSignal() != 0)
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
