#pragma once

// An input-event device for tests: nothing is opened; each servicePort()
// call plays the next scripted step, whose events go through the real
// decoding (processReceivedEvent), so button states, the last button and the
// encoder's bounds and wrapping behave as on the instrument.

#include <QString>
#include <array>
#include <deque>
#include <functional>
#include <linux/input.h>

#include "comms/EventDeviceComms.h"

namespace fpt::testing {

class ScriptedEventDeviceComms : public EventDeviceComms {
public:
    explicit ScriptedEventDeviceComms(QString path) : EventDeviceComms(std::move(path)) {}

    // The Linux key code the panel's keyboard device reports for a button.
    static int keyCode(int button) {
        static constexpr std::array<int, kButtonCount> codes = {
            KEY_LEFTMETA, KEY_F1, KEY_F2,    KEY_F3,    KEY_F4,  KEY_F5,
            KEY_F6,       KEY_F7, KEY_F8,    KEY_F9,    KEY_F10, KEY_DOWN,
            KEY_LEFT,     KEY_UP, KEY_RIGHT, KEY_FRONT, KEY_MUTE};
        return codes.at(static_cast<std::size_t>(button));
    }

    bool initialize() override {
        ++initializeCalls;
        return initializeResult;
    }
    bool servicePort() override {
        ++serviceCalls;
        if (!m_steps.empty()) {
            auto step = std::move(m_steps.front());
            m_steps.pop_front();
            step(*this);
        }
        return true;
    }

    // ---- Script: each call below is one poll's worth of input ----
    ScriptedEventDeviceComms& press(int button) { return key(button, Pressed); }
    ScriptedEventDeviceComms& repeat(int button) { return key(button, Repeat); }
    ScriptedEventDeviceComms& release(int button) { return key(button, Released); }
    ScriptedEventDeviceComms& turn(int delta) {
        return step([delta](ScriptedEventDeviceComms& self) { self.turnNow(delta); });
    }
    ScriptedEventDeviceComms& idle(int polls = 1) {
        for (int i = 0; i < polls; ++i)
            step([](ScriptedEventDeviceComms&) {});
        return *this;
    }
    ScriptedEventDeviceComms& step(std::function<void(ScriptedEventDeviceComms&)> fn) {
        m_steps.push_back(std::move(fn));
        return *this;
    }
    bool scriptDone() const { return m_steps.empty(); }

    // ---- Immediate input (e.g. from a terminal script action) ----
    void pressNow(int button) { keyNow(button, Pressed); }
    void repeatNow(int button) { keyNow(button, Repeat); }
    void releaseNow(int button) { keyNow(button, Released); }
    void turnNow(int delta) { eventNow(EV_REL, REL_WHEEL, delta); }
    void eventNow(int type, int code, int value) {
        input_event ev{};
        ev.type = static_cast<decltype(ev.type)>(type);
        ev.code = static_cast<decltype(ev.code)>(code);
        ev.value = value;
        processReceivedEvent(ev);
    }

    bool initializeResult = true;
    int initializeCalls = 0;
    int serviceCalls = 0;

private:
    ScriptedEventDeviceComms& key(int button, KeyPress press) {
        return step(
            [button, press](ScriptedEventDeviceComms& self) { self.keyNow(button, press); });
    }
    void keyNow(int button, KeyPress press) { eventNow(EV_KEY, keyCode(button), press); }

    std::deque<std::function<void(ScriptedEventDeviceComms&)>> m_steps;
};

} // namespace fpt::testing
