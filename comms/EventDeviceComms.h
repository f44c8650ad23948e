#pragma once

// One Linux input-event device of the front panel: the keyboard device
// (buttons) or the mouse device (shaft encoder on REL_WHEEL). Polled without
// blocking; decodes the kernel's input_event records into button states, the
// last button pressed and a bounded or wrapping encoder value.

#include <QString>
#include <array>
#include <cstdint>
#include <deque>
#include <linux/input.h>
#include <optional>
#include <time.h>

class EventDeviceComms {
public:
    // The kernel's key-event value, stored unchanged. Fixed underlying type so
    // that any value a device sends is a valid KeyPress.
    enum KeyPress : int32_t { Released = 0, Pressed = 1, Repeat = 2 };
    static constexpr int kButtonCount = 17;

    explicit EventDeviceComms(QString path);
    virtual ~EventDeviceComms();
    EventDeviceComms(EventDeviceComms const&) = delete;
    EventDeviceComms& operator=(EventDeviceComms const&) = delete;

    // Virtual so that the application's tests can stand in scripted devices.
    virtual bool initialize();
    virtual bool servicePort();

    bool fillReadQueue();
    void processReadQueue();
    void processReceivedEvent(input_event const& event);
    void processButtonEvent(int code, KeyPress press);
    void processShaftEncoderEvent(int delta);
    void setShaftEncoderMode(int value, int min, int max, int step, bool wrap);

    // The clock this device's records are stamped with: the arrival clock
    // (comms::arrivalClockUs()), unless initialize() found that the kernel
    // cannot switch the device to it and keeps its default, the realtime clock.
    clockid_t stampClock = CLOCK_MONOTONIC;

    // Read directly by the manager and the tests after each servicePort().
    uint32_t bytesReceived = 0;
    uint32_t bytesSent = 0;
    std::array<int32_t, kButtonCount> buttonState{};
    int32_t lastButton = -1;
    int32_t encoderValue = 0;
    int32_t encoderMin = 0;
    int32_t encoderMax = 100;
    int32_t encoderStep = 1;
    bool encoderWrap = true;
    std::deque<char> readQueue;
    int32_t fd = -1;
    QString devicePath;
    // Records stamped after this moment (comms::arrivalClockUs()) stay queued
    // for a later servicePort(): the manager holds back what came after a key
    // that the operator typed and that has not been served yet.
    std::optional<int64_t> holdRecordsAfterUs;
};
