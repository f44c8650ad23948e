#pragma once

// A FrontPanelTestManager on doubles: the operator's keys come from a script,
// the panel link records the lines it would send, the input devices decode
// events through their real code, the tone control records its settings, and
// the sleep between polls runs whatever a test wants to happen meanwhile.

#include <QString>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/FrontPanelTestManager.h"

namespace fpt::testing {

// The code under test wanted more keys than the script holds.
struct ScriptExhausted : std::runtime_error {
    ScriptExhausted() : std::runtime_error("terminal script exhausted") {}
};

class ScriptedTerminal : public Terminal {
public:
    // Each character one key, read at one poll each.
    ScriptedTerminal& keys(std::string const& text) {
        for (char c : text)
            m_script.push_back(
                {[c] { return static_cast<int>(static_cast<unsigned char>(c)); }, std::nullopt});
        return *this;
    }
    // A key that arrived at the given moment (comms::arrivalClockUs()): input
    // stamped after it is held back until it has been read.
    ScriptedTerminal& keyAt(int64_t us, char c) {
        m_script.push_back({[c] { return static_cast<int>(static_cast<unsigned char>(c)); }, us});
        return *this;
    }
    // Runs at the next key read, which then finds no key.
    ScriptedTerminal& then(std::function<void()> fn) {
        m_script.push_back({[fn] {
                                fn();
                                return kNoKey;
                            },
                            std::nullopt});
        return *this;
    }
    void start() override { m_started = true; }
    void stop() override { m_started = false; }
    bool isStarted() const override { return m_started; }
    void erase() override { shown.clear(); }
    void print(int, int, std::string const& text, Attr) override { shown += text + '\n'; }
    void refresh() override {
        if (duringRefresh)
            duringRefresh();
    }
    void setInputMode(bool blocking, bool) override { m_blocking = blocking; }
    void takeIn() override {}
    std::optional<int64_t> nextKeyUs() const override {
        return m_script.empty() ? std::nullopt : m_script.front().arrivedUs;
    }
    int32_t keyReadyInMs() const override { return nextKeyUs() ? 0 : -1; }
    int readKey() override {
        for (;;) {
            if (m_script.empty() && (m_blocking || ++m_idle > 1000))
                throw ScriptExhausted();
            if (m_script.empty())
                return kNoKey;
            auto const next = std::move(m_script.front().read);
            m_script.pop_front();
            int const key = next();
            if (key != kNoKey || !m_blocking)
                return key;
        }
    }
    std::string readWord(int) override { throw ScriptExhausted(); }
    int inputFd() const override { return -1; }

    std::string shown;                   // the texts of the last frame, one a line
    std::function<void()> duringRefresh; // what comes while a frame is sent

private:
    struct Entry {
        std::function<int()> read;
        std::optional<int64_t> arrivedUs;
    };
    std::deque<Entry> m_script;
    bool m_started = false;
    bool m_blocking = false;
    int m_idle = 0;
};

// Panel lines queued by a test are taken in when the manager services the link.
class RecordingPanel : public FrontPanelComms {
public:
    bool initialize() override { return true; }
    bool servicePort() override {
        for (; !incoming.empty(); incoming.pop_front())
            processReceivedLine(incoming.front());
        for (; !stamped.empty() && !(holdLinesAfterUs && stamped.front().first > *holdLinesAfterUs);
             stamped.pop_front())
            processReceivedLine(stamped.front().second);
        return true;
    }
    // A line that came at the given moment, held back like the link's own.
    void lineAt(int64_t us, QString const& line) { stamped.emplace_back(us, line); }
    std::deque<std::pair<int64_t, QString>> stamped;
    bool sendLine(QString const& line) override {
        lines.push_back(line.toStdString());
        return true;
    }
    std::deque<QString> incoming;
    std::vector<std::string> lines;
};

class EventDevice : public EventDeviceComms {
public:
    using EventDeviceComms::EventDeviceComms;
    bool initialize() override { return true; }
    // Records queued with recordAt() go through the real decoding.
    bool servicePort() override {
        processReadQueue();
        return true;
    }
    void recordAt(int64_t us, int type, int code, int value) {
        input_event ev{};
        ev.input_event_sec = static_cast<decltype(ev.input_event_sec)>(us / 1000000);
        ev.input_event_usec = static_cast<decltype(ev.input_event_usec)>(us % 1000000);
        ev.type = static_cast<decltype(ev.type)>(type);
        ev.code = static_cast<decltype(ev.code)>(code);
        ev.value = value;
        char raw[sizeof ev];
        std::memcpy(raw, &ev, sizeof ev);
        readQueue.insert(readQueue.end(), raw, raw + sizeof ev);
    }
    // Applied at once, whatever is waiting.
    void key(int code, int value) {
        input_event ev{};
        ev.type = EV_KEY;
        ev.code = static_cast<decltype(ev.code)>(code);
        ev.value = value;
        processReceivedEvent(ev);
    }
};

class RecordingTone : public SelfTestFPGAComms {
public:
    RecordingTone() : SelfTestFPGAComms(NoPlatform{}) { valid = true; }
    void setVolume(int value) override { volume = value; }
    void setPitch(int index) override { pitch = index; }
};

struct ManagerRig {
    ManagerRig() {
        FrontPanelTestManager::Devices d;
        d.terminal = own(terminal);
        d.panel = own(panel);
        d.keyboard = own(keyboard, QStringLiteral("/dev/input/cv084_fp_keyboard"));
        d.encoder = own(encoder, QStringLiteral("/dev/input/cv084_fp_mouse"));
        d.selfTest = own(tone);
        d.sleep = [this](int32_t ms, std::array<int, 4> const&) {
            sleeps.push_back(ms);
            if (duringSleep)
                duringSleep();
            return false;
        };
        d.upload = [](QString const&, QString const&) { return SendResult::Uploaded; };
        manager = std::make_unique<FrontPanelTestManager>(std::move(d));
    }
    FrontPanelTestManager& mgr() { return *manager; }

    template <class T, class... Args> static std::unique_ptr<T> own(T*& raw, Args&&... args) {
        auto p = std::make_unique<T>(std::forward<Args>(args)...);
        raw = p.get();
        return p;
    }

    ScriptedTerminal* terminal = nullptr;
    RecordingPanel* panel = nullptr;
    EventDevice* keyboard = nullptr;
    EventDevice* encoder = nullptr;
    RecordingTone* tone = nullptr;
    std::function<void()> duringSleep;
    std::vector<int32_t> sleeps;                    // each wait asked for, in milliseconds
    std::unique_ptr<FrontPanelTestManager> manager; // last: goes first
};

} // namespace fpt::testing
