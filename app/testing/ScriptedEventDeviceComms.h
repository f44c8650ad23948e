#pragma once

// An input-event device for tests: nothing is opened; each servicePort()
// call plays the next scripted step, whose events go through the real
// decoding (processReceivedEvent), so button states, the last button and the
// encoder's bounds and wrapping behave as on the instrument.

#include <QString>
#include <array>
#include <functional>
#include <linux/input.h>

#include "app/testing/ScriptedPort.h"
#include "comms/EventDeviceComms.h"

namespace fpt::testing {

class ScriptedEventDeviceComms : public ScriptedPort<EventDeviceComms, ScriptedEventDeviceComms> {
public:
    explicit ScriptedEventDeviceComms(QString path) : ScriptedPort(std::move(path)) {}

    // The Linux key code the panel's keyboard device reports for a button.
    static int keyCode(int button) {
        static constexpr std::array<int, kButtonCount> codes = {
            KEY_LEFTMETA, KEY_F1, KEY_F2,    KEY_F3,    KEY_F4,  KEY_F5,
            KEY_F6,       KEY_F7, KEY_F8,    KEY_F9,    KEY_F10, KEY_DOWN,
            KEY_LEFT,     KEY_UP, KEY_RIGHT, KEY_FRONT, KEY_MUTE};
        return codes.at(static_cast<std::size_t>(button));
    }

    // ---- Script: each call below is one poll's worth of input ----
    ScriptedEventDeviceComms& press(int button) { return key(button, Pressed); }
    ScriptedEventDeviceComms& release(int button) { return key(button, Released); }
    ScriptedEventDeviceComms& turn(int delta) {
        return step([delta](ScriptedEventDeviceComms& self) { self.turnNow(delta); });
    }
    ScriptedEventDeviceComms& idle(int polls = 1) {
        for (int i = 0; i < polls; ++i)
            step([](ScriptedEventDeviceComms&) {});
        return *this;
    }

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

private:
    ScriptedEventDeviceComms& key(int button, KeyPress press) {
        return step(
            [button, press](ScriptedEventDeviceComms& self) { self.keyNow(button, press); });
    }
    void keyNow(int button, KeyPress press) { eventNow(EV_KEY, keyCode(button), press); }
};

} // namespace fpt::testing
