#include "comms/EventDeviceComms.h"
#include "comms/PolledRead.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

// One kernel record, at the size of this system's own input_event.
std::string record(int type, int code, int value) {
    struct input_event event {};
    event.type = static_cast<__u16>(type);
    event.code = static_cast<__u16>(code);
    event.value = value;
    return std::string(reinterpret_cast<char const*>(&event), sizeof event);
}
std::string key(int code, int value) {
    return record(EV_KEY, code, value);
}
using Buttons = std::array<int32_t, EventDeviceComms::kButtonCount>;

// The device under test reads the far end of a non-blocking pipe, as
// initialize() leaves a real input node; the object closes its end.
struct PipeDevice {
    int ends[2] = {-1, -1};
    EventDeviceComms comms{QString{}};
    PipeDevice() {
        EXPECT_EQ(::pipe2(ends, O_NONBLOCK), 0);
        comms.fd = ends[0]; // closed by the device
    }
    ~PipeDevice() { ::close(ends[1]); }
    void poll(std::string const& bytes) {
        ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        comms.servicePort();
    }
};

TEST(EventDeviceCommsTest, EncoderMovesClampsAndWrapsByItsFormula) {
    struct Case {
        int value, min, max, step;
        bool wrap;
        int delta, expected;
    };
    const std::vector<Case> cases = {
        {0, 0, 100, -1, false, +1, 0},    {0, 0, 100, -1, false, -1, 1},
        {98, 0, 100, -1, false, -5, 100}, {0, 0, 7, -1, true, +1, 7},
        {7, 0, 7, -1, true, -1, 0},       {0, 0, 7, -1, true, +3, 1},
        {0, 0, 7, -1, true, +10, 8},      {7, 0, 7, 1, true, +20, 19},
        {2, 2, 9, -1, true, +1, 5},       {9, 2, 9, -1, true, -1, 2},
        {3, 5, 2, 1, false, 0, 2},        {5, 5, 2, -1, true, 1, -8},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(&c - cases.data());
        PipeDevice device;
        device.comms.setShaftEncoderMode(c.value, c.min, c.max, c.step, c.wrap);
        device.poll(record(EV_REL, REL_WHEEL, c.delta));
        EXPECT_EQ(device.comms.encoderValue, c.expected);
    }
}

// Each key pressed (or auto-repeated, which counts as a press) while the
// previous one is released, the records arriving in two pieces: only its own
// state is set, and the release does not move lastButton.
TEST(EventDeviceCommsTest, EveryPanelKeyMapsToItsButton) {
    const int codes[EventDeviceComms::kButtonCount] = {
        KEY_LEFTMETA, KEY_F1,  KEY_F2,   KEY_F3,   KEY_F4, KEY_F5,    KEY_F6,    KEY_F7,  KEY_F8,
        KEY_F9,       KEY_F10, KEY_DOWN, KEY_LEFT, KEY_UP, KEY_RIGHT, KEY_FRONT, KEY_MUTE};
    PipeDevice device;
    for (int i = 0; i < EventDeviceComms::kButtonCount; ++i) {
        const int press = i % 2 == 0 ? EventDeviceComms::Pressed : EventDeviceComms::Repeat;
        const std::string bytes = key(codes[i], press) + (i > 0 ? key(codes[i - 1], 0) : "");
        device.poll(bytes.substr(0, 5)); // part of a record waits for the rest
        EXPECT_EQ(device.comms.lastButton, i - 1);
        device.poll(bytes.substr(5));
        Buttons expected{};
        expected[static_cast<size_t>(i)] = press;
        EXPECT_EQ(device.comms.buttonState, expected) << i;
        EXPECT_EQ(device.comms.lastButton, i);
    }
}

TEST(EventDeviceCommsTest, OtherEventsAreReportedOrIgnored) {
    PipeDevice device;
    device.comms.setShaftEncoderMode(3, 0, 7, -1, true);
    testing::internal::CaptureStdout();
    device.poll(key(KEY_A, 1) + record(EV_ABS, ABS_Y, 7) + record(EV_SYN, SYN_REPORT, 0) +
                record(EV_MSC, MSC_SCAN, 4) + record(EV_REP, REP_PERIOD, 33) +
                record(EV_REL, REL_X, 1) + record(EV_REL, REL_HWHEEL, 1));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Unrecognised Keycode code = 30 press = 1\n"
              "Unrecognised processReceivedEvent() type = 3, value = 7, code = 1\n");
    EXPECT_EQ(device.comms.buttonState, Buttons{});
    EXPECT_EQ(device.comms.lastButton, -1);
    EXPECT_EQ(device.comms.encoderValue, 3);
}

TEST(EventDeviceCommsTest, AnOpenFailureIsReported) {
    EventDeviceComms comms(QStringLiteral("/nonexistent/cv084_fp_keyboard"));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(comms.initialize());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("front_panel_test: ") + std::strerror(ENOENT) + "\n");
}

} // namespace

// A kernel that cannot stamp on the monotonic clock stamps on the realtime
// one: a record is still held only when it came after the moment given.
TEST(EventDeviceCommsTest, RecordsOnTheRealtimeClockAreHeldByTheirOwnClock) {
    PipeDevice device;
    device.comms.stampClock = CLOCK_REALTIME;
    device.comms.setShaftEncoderMode(0, 0, 100, 1, false);
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    auto stamped = [&](int64_t offsetUs) {
        struct input_event event {};
        int64_t const us = int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000 + offsetUs;
        event.input_event_sec = static_cast<decltype(event.input_event_sec)>(us / 1000000);
        event.input_event_usec = static_cast<decltype(event.input_event_usec)>(us % 1000000);
        event.type = EV_REL;
        event.code = REL_WHEEL;
        event.value = 1;
        return std::string(reinterpret_cast<char const*>(&event), sizeof event);
    };
    device.comms.holdRecordsAfterUs = comms::arrivalClockUs();
    device.poll(stamped(-500000) + stamped(500000));
    EXPECT_EQ(device.comms.encoderValue, 1);
    EXPECT_EQ(device.comms.readQueue.size(), sizeof(input_event));
}
