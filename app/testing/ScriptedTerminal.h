#pragma once

// A terminal for tests: keys, words and actions come from a script; what the
// manager prints lands in a character grid that tests read by row and column
// once refresh() has "sent" it, like the real screen. Every distinct frame
// shown is kept, so screens that were up only for a moment (a summary, a
// menu) can be checked afterwards.

#include <deque>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/Terminal.h"

namespace fpt::testing {

// Thrown when the code under test wants more input than the script holds, so
// that a test that goes wrong ends instead of polling forever.
class ScriptExhausted : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ScriptedTerminal : public Terminal {
public:
    static constexpr int kRows = 24;
    static constexpr int kCols = 80;

    ScriptedTerminal() {
        clearGrid(m_back, m_backAttr);
        clearGrid(m_front, m_frontAttr);
    }

    // ---- Script ----
    // Each character is one key.
    ScriptedTerminal& keys(std::string const& text) {
        for (char c : text)
            key(static_cast<unsigned char>(c));
        return *this;
    }
    ScriptedTerminal& key(int code) {
        m_script.push_back({Entry::Key, code, {}, {}});
        return *this;
    }
    // Non-blocking reads that find no key; skipped by blocking reads.
    ScriptedTerminal& noKey(int polls = 1) {
        for (int i = 0; i < polls; ++i)
            m_script.push_back({Entry::NoKey, kNoKey, {}, {}});
        return *this;
    }
    // The answer to the next readWord().
    ScriptedTerminal& word(std::string text) {
        m_script.push_back({Entry::Word, 0, std::move(text), {}});
        return *this;
    }
    // Runs when the script reaches it (at the next read), then the read goes
    // on with the following entry. Use it to press buttons or turn the
    // encoder between two polls.
    ScriptedTerminal& action(std::function<void()> fn) {
        m_script.push_back({Entry::Action, 0, {}, std::move(fn)});
        return *this;
    }
    bool scriptDone() const { return m_script.empty(); }
    std::size_t scriptLeft() const { return m_script.size(); }
    // Non-blocking reads allowed after the script has run out before
    // ScriptExhausted is thrown.
    int idleLimit = 2000;

    // ---- Terminal ----
    void start() override { m_started = true; }
    void stop() override {
        if (m_started && onStop)
            onStop();
        m_started = false;
    }
    // Told when the screen is given back; lets a test see that happen while
    // the terminal's owner is being destroyed.
    std::function<void()> onStop;
    bool isStarted() const override { return m_started; }

    void erase() override {
        if (!m_started)
            return;
        ++eraseCount;
        clearGrid(m_back, m_backAttr);
    }
    void print(int row, int col, std::string const& text, Attr attr = Attr::Normal) override {
        if (!m_started || row < 0 || row >= kRows || col < 0)
            return;
        for (std::size_t i = 0; i < text.size(); ++i) {
            std::size_t const c = static_cast<std::size_t>(col) + i;
            if (c >= static_cast<std::size_t>(kCols))
                break;
            m_back[static_cast<std::size_t>(row)][c] = text[i];
            m_backAttr[static_cast<std::size_t>(row)][c] = attr;
        }
    }
    void refresh() override {
        if (!m_started)
            return;
        ++refreshCount;
        m_front = m_back;
        m_frontAttr = m_backAttr;
        std::string const text = screenText();
        if (m_frames.empty() || m_frames.back() != text)
            m_frames.push_back(text);
    }

    void setInputMode(bool blockingReads, bool echoKeys) override {
        blocking = blockingReads;
        echo = echoKeys;
    }
    int readKey() override {
        for (;;) {
            if (m_script.empty()) {
                if (blocking || ++m_idleReads > idleLimit)
                    throw ScriptExhausted("terminal script exhausted waiting for a key");
                return kNoKey;
            }
            Entry e = pop();
            if (e.kind == Entry::Action)
                e.fn();
            else if (e.kind == Entry::Word)
                throw std::logic_error("terminal script has a word where a key is read: " + e.text);
            else if (e.kind == Entry::Key || !blocking)
                return e.key; // kNoKey for a NoKey entry
        }
    }
    std::string readWord(int maxChars) override {
        wordLimits.push_back(maxChars);
        for (;;) {
            if (m_script.empty())
                throw ScriptExhausted("terminal script exhausted waiting for a word");
            Entry e = pop();
            if (e.kind == Entry::Action)
                e.fn();
            else if (e.kind != Entry::Word)
                throw std::logic_error("terminal script has a key where a word is read");
            else
                return e.text;
        }
    }

    // ---- What was shown (as of the last refresh) ----
    // A row with trailing blanks removed.
    std::string row(int r) const { return rtrim(m_front.at(static_cast<std::size_t>(r))); }
    Attr attrAt(int r, int c) const {
        return m_frontAttr.at(static_cast<std::size_t>(r)).at(static_cast<std::size_t>(c));
    }
    // All rows, trailing blanks removed, joined by newlines.
    std::string screenText() const {
        std::string out;
        for (int r = 0; r < kRows; ++r) {
            out += rtrim(m_front[static_cast<std::size_t>(r)]);
            out += '\n';
        }
        return out;
    }
    // Every distinct screen refreshed so far, in order (repeats of the same
    // screen are kept once).
    std::vector<std::string> const& frames() const { return m_frames; }
    // True if row r of any frame shown so far contained text.
    bool everShown(int r, std::string const& text) const {
        for (auto const& f : m_frames)
            if (frameRow(f, r).find(text) != std::string::npos)
                return true;
        return false;
    }
    static std::string frameRow(std::string const& frame, int r) {
        std::size_t pos = 0;
        for (int i = 0; i < r; ++i) {
            pos = frame.find('\n', pos);
            if (pos == std::string::npos)
                return {};
            ++pos;
        }
        return frame.substr(pos, frame.find('\n', pos) - pos);
    }

    int eraseCount = 0;
    int refreshCount = 0;
    std::vector<int> wordLimits;
    bool blocking = false;
    bool echo = false;

private:
    struct Entry {
        enum Kind { Key, NoKey, Word, Action } kind;
        int key;
        std::string text;
        std::function<void()> fn;
    };

    Entry pop() {
        Entry e = std::move(m_script.front());
        m_script.pop_front();
        return e;
    }
    static void clearGrid(std::vector<std::string>& grid, std::vector<std::vector<Attr>>& attrs) {
        grid.assign(kRows, std::string(kCols, ' '));
        attrs.assign(kRows, std::vector<Attr>(kCols, Attr::Normal));
    }
    static std::string rtrim(std::string s) {
        s.erase(s.find_last_not_of(' ') + 1);
        return s;
    }

    std::deque<Entry> m_script;
    int m_idleReads = 0;
    bool m_started = false;
    std::vector<std::string> m_back, m_front;
    std::vector<std::vector<Attr>> m_backAttr, m_frontAttr;
    std::vector<std::string> m_frames;
};

} // namespace fpt::testing
