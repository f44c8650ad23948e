#pragma once

// The operator's screen and keyboard as the manager sees them: text placed at
// row/column into a frame, one refresh per frame, single keys in. Curses lives
// only behind this interface (CursesTerminal), so the screens and the run loop
// can be driven by a scripted terminal in tests.

#include <cstdint>
#include <optional>
#include <string>

class Terminal {
public:
    // Returned by readKey() when no key is waiting (non-blocking mode), or
    // when a blocking read was interrupted by a signal.
    static constexpr int kNoKey = -1;

    enum class Attr { Normal, Bold, Highlight };

    virtual ~Terminal() = default;

    // Take over the terminal (full screen) / give it back as it was. Both may
    // be called when already in that state.
    virtual void start() = 0;
    virtual void stop() = 0;
    virtual bool isStarted() const = 0;

    // Start a new frame: everything not printed again before refresh() is
    // blank afterwards. Never clears the physical screen, so only what changed
    // is sent to the terminal.
    virtual void erase() = 0;
    // UTF-8 text at row/column (counted from 0); clipped at the screen edge.
    virtual void print(int row, int col, std::string const& text, Attr attr = Attr::Normal) = 0;
    virtual void refresh() = 0;

    // Blocking mode is for the screens that wait on the operator (menu,
    // summary, serial number), echo for those that show what is typed.
    virtual void setInputMode(bool blocking, bool echo) = 0;
    // Reads what the operator has typed since the last call, stamping each
    // byte with its arrival (comms::arrivalClockUs()). Only what was taken
    // in is ever read as a key, so a key is never served before the device
    // input that came ahead of it and was taken in after it.
    virtual void takeIn() = 0;
    // When the next key taken in arrived; none when nothing waits, or while
    // it is an escape sequence still incomplete.
    virtual std::optional<int64_t> nextKeyUs() const = 0;
    // -1 when nothing waits, 0 when a whole key does; while an escape
    // sequence is still incomplete, how long until it is read as it stands.
    virtual int32_t keyReadyInMs() const = 0;
    // The next key taken in, or kNoKey; never waits.
    virtual int readKey() = 0;
    // The descriptor keys arrive on, for the key poll to wake on; -1 while
    // the screen is not up or once the input has ended.
    virtual int inputFd() const = 0;
    // Reads one blank-delimited word of at most maxChars characters, echoed,
    // ended by Enter; an empty line gives an empty string.
    virtual std::string readWord(int maxChars) = 0;
};
