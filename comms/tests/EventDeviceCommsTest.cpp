#include "comms/EventDeviceComms.h"
#include "comms/tests/LinksTestSupport.h"

#include <array>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace links_test;

constexpr size_t kRecord = sizeof(struct input_event);

// One kernel record as the device delivers it.
std::string record(int type, int code, int value) {
    struct input_event event {};
    event.input_event_sec = 1234;
    event.input_event_usec = 5678;
    event.type = static_cast<__u16>(type);
    event.code = static_cast<__u16>(code);
    event.value = value;
    return std::string(reinterpret_cast<char const*>(&event), kRecord);
}
std::string key(int code, int value) {
    return record(EV_KEY, code, value);
}
std::string wheel(int delta) {
    return record(EV_REL, REL_WHEEL, delta);
}
std::string sync() {
    return record(EV_SYN, SYN_REPORT, 0);
}
using Buttons = std::array<int32_t, EventDeviceComms::kButtonCount>;

// The object under test, its descriptor the read end of a non-blocking pipe
// (as initialize() leaves a real device); the object closes that end.
struct PipeDevice {
    EventDeviceComms comms;
    int writeEnd = -1;
    explicit PipeDevice(char const* name = "keyboard")
        : comms(QStringLiteral("/dev/input/cv084_fp_") + QLatin1String(name)) {
        int ends[2];
        if (::pipe2(ends, O_NONBLOCK | O_CLOEXEC) == 0) {
            comms.fd = ends[0];
            writeEnd = ends[1];
        }
    }
    ~PipeDevice() {
        if (writeEnd >= 0) {
            ::close(writeEnd);
        }
    }
    PipeDevice(PipeDevice const&) = delete;
    PipeDevice& operator=(PipeDevice const&) = delete;
    bool ok() const { return writeEnd >= 0; }
    void send(std::string const& bytes) {
        ASSERT_EQ(::write(writeEnd, bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
};

TEST(EventDeviceCommsTest, EncoderMovesClampsAndWrapsByItsFormula) {
    struct Case {
        const char* name;
        int value, min, max, step;
        bool wrap;
        int delta;
        int expected;
    };
    const std::vector<Case> cases = {
        // volume 0-100 and pitch 0-48: step -1, no wrap
        {"clamp at min", 0, 0, 100, -1, false, +1, 0},
        {"one down from min", 0, 0, 100, -1, false, -1, 1},
        {"clamp at max", 100, 0, 100, -1, false, -1, 100},
        {"fast turn inside range", 50, 0, 100, -1, false, -5, 55},
        {"fast turn clamps at max", 98, 0, 100, -1, false, -5, 100},
        {"fast turn clamps at min", 2, 0, 100, -1, false, +5, 0},
        {"pitch clamp", 48, 0, 48, -1, false, -1, 48},
        {"positive step", 10, 0, 100, 1, false, 3, 13},
        {"no movement", 4, 0, 7, -1, true, 0, 4},
        // the mode is stored unclamped; the next event applies the formula
        {"mode value out of range", 200, 0, 7, -1, true, 0, 192},
        // colour 0-7: step -1, wrap
        {"wrap down at zero", 0, 0, 7, -1, true, +1, 7},
        {"wrap up at max", 7, 0, 7, -1, true, -1, 0},
        {"wrap down by three", 0, 0, 7, -1, true, +3, 1},
        {"wrap up by three", 6, 0, 7, -1, true, -3, 1},
        {"wrap down by ten, unfolded", 0, 0, 7, -1, true, +10, 8},
        {"wrap up once only", 7, 0, 7, 1, true, +20, 19},
        {"wrap down with non-zero min", 2, 2, 9, -1, true, +1, 5},
        {"wrap up with non-zero min", 9, 2, 9, -1, true, -1, 2},
        // bounds given the wrong way round
        {"inverted, below min", 3, 5, 2, 1, false, 0, 2},
        {"inverted, just below min", 4, 5, 2, 1, false, 0, 2},
        {"inverted, above max", 10, 5, 2, 1, false, 1, 2},
        {"inverted wrap up", 5, 5, 2, 1, true, 1, 8},
        {"inverted wrap down", 5, 5, 2, -1, true, 1, -8},
    };
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.name);
        PipeDevice device("mouse");
        auto& comms = device.comms;
        ASSERT_TRUE(device.ok());
        comms.setShaftEncoderMode(tc.value, tc.min, tc.max, tc.step, tc.wrap);
        device.send(wheel(tc.delta) + sync());
        EXPECT_TRUE(comms.servicePort());
        EXPECT_EQ(comms.encoderValue, tc.expected);
        EXPECT_EQ(comms.lastButton, -1);
    }
}

TEST(EventDeviceCommsTest, EveryPanelKeyMapsToItsButton) {
    struct Case {
        int code;
        int index;
    };
    const std::vector<Case> cases = {
        {KEY_LEFTMETA, 0}, {KEY_F1, 1},    {KEY_F2, 2},    {KEY_F3, 3},  {KEY_F4, 4},
        {KEY_F5, 5},       {KEY_F6, 6},    {KEY_F7, 7},    {KEY_F8, 8},  {KEY_F9, 9},
        {KEY_F10, 10},     {KEY_DOWN, 11}, {KEY_LEFT, 12}, {KEY_UP, 13}, {KEY_RIGHT, 14},
        {KEY_FRONT, 15},   {KEY_MUTE, 16},
    };
    ASSERT_EQ(cases.size(), static_cast<size_t>(EventDeviceComms::kButtonCount));
    PipeDevice device;
    auto& comms = device.comms;
    ASSERT_TRUE(device.ok());
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.code);
        device.send(key(tc.code, 1) + sync());
        ASSERT_TRUE(comms.servicePort());
        Buttons expected{};
        expected[static_cast<size_t>(tc.index)] = 1;
        EXPECT_EQ(comms.buttonState, expected);
        EXPECT_EQ(comms.lastButton, tc.index);

        device.send(key(tc.code, 0) + sync());
        ASSERT_TRUE(comms.servicePort());
        EXPECT_EQ(comms.buttonState, Buttons{});
        EXPECT_EQ(comms.lastButton, tc.index);
    }
}

TEST(EventDeviceCommsTest, PressReleaseAndRepeatDriveButtonStateAndLastButton) {
    struct Step {
        std::string bytes;
        int up;   // buttonState[13] (KEY_UP)
        int f3;   // buttonState[3]  (KEY_F3)
        int last; // lastButton
    };
    const std::vector<Step> steps = {
        {key(KEY_F3, 1) + sync(), 0, 1, 3},
        {key(KEY_UP, 2) + sync(), 2, 1, 13}, // auto-repeat of a key not released
        {key(KEY_F3, 0) + sync(), 2, 0, 13}, // release never moves lastButton
        {key(KEY_F3, 2), 2, 2, 3},           // repeat alone still counts as a press
        {key(KEY_UP, 0) + key(KEY_F3, 0), 0, 0, 3},
        {record(EV_MSC, MSC_SCAN, 0x70052) + record(EV_REP, REP_DELAY, 250), 0, 0, 3},
        {key(KEY_UP, 7), 7, 0, 13}, // an odd value is stored as it came
    };
    PipeDevice device;
    auto& comms = device.comms;
    ASSERT_TRUE(device.ok());
    testing::internal::CaptureStdout();
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        device.send(steps[i].bytes);
        EXPECT_TRUE(comms.servicePort());
        EXPECT_EQ(comms.buttonState[13], steps[i].up);
        EXPECT_EQ(comms.buttonState[3], steps[i].f3);
        EXPECT_EQ(comms.lastButton, steps[i].last);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(EventDeviceCommsTest, UnknownKeysAndTypesAreReportedAndOtherwiseIgnored) {
    struct Case {
        const char* name;
        std::string bytes;
        std::string stdoutText;
    };
    const std::vector<Case> cases = {
        {"KEY_A press", key(KEY_A, 1), "Unrecognised Keycode code = 30 press = 1\n"},
        {"KEY_A release", key(KEY_A, 0), "Unrecognised Keycode code = 30 press = 0\n"},
        {"KEY_ESC repeat", key(KEY_ESC, 2), "Unrecognised Keycode code = 1 press = 2\n"},
        {"EV_ABS", record(EV_ABS, ABS_Y, 7),
         "Unrecognised processReceivedEvent() type = 3, value = 7, code = 1\n"},
        {"EV_LED", record(EV_LED, LED_CAPSL, -5),
         "Unrecognised processReceivedEvent() type = 17, value = -5, code = 1\n"},
        {"EV_SW", record(EV_SW, SW_HEADPHONE_INSERT, 1),
         "Unrecognised processReceivedEvent() type = 5, value = 1, code = 2\n"},
        {"silent types", sync() + record(EV_MSC, MSC_SCAN, 4) + record(EV_REP, REP_PERIOD, 33), ""},
        {"other relative axes", record(EV_REL, REL_X, 1) + record(EV_REL, REL_HWHEEL, 1), ""},
        {"two in a row", key(KEY_B, 1) + record(EV_FF, 3, 9),
         "Unrecognised Keycode code = 48 press = 1\n"
         "Unrecognised processReceivedEvent() type = 21, value = 9, code = 3\n"},
    };
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.name);
        PipeDevice device;
        auto& comms = device.comms;
        ASSERT_TRUE(device.ok());
        comms.setShaftEncoderMode(3, 0, 7, -1, true);
        testing::internal::CaptureStdout();
        device.send(tc.bytes);
        EXPECT_TRUE(comms.servicePort());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), tc.stdoutText);
        EXPECT_EQ(comms.buttonState, Buttons{});
        EXPECT_EQ(comms.lastButton, -1);
        EXPECT_EQ(comms.encoderValue, 3);
        EXPECT_TRUE(comms.readQueue.empty());
    }
}

TEST(EventDeviceCommsTest, PartialRecordsWaitForTheRest) {
    PipeDevice device;
    ASSERT_TRUE(device.ok());
    const std::string press = key(KEY_F5, 1);
    const std::string release = key(KEY_F5, 0);
    struct Step {
        std::string bytes;
        size_t received, queued;
        int f5, last;
    };
    const std::vector<Step> steps = {
        {press.substr(0, 5), 5, 5, 0, -1}, // nothing decoded yet
        {press.substr(5) + release.substr(0, 4), kRecord + 4, 4, 1, 5},
        {"", kRecord + 4, 4, 1, 5}, // nothing new: the four bytes keep waiting
        {release.substr(4), 2 * kRecord, 0, 0, 5},
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        device.send(steps[i].bytes);
        EXPECT_TRUE(device.comms.servicePort());
        EXPECT_EQ(device.comms.bytesReceived, steps[i].received);
        EXPECT_EQ(device.comms.readQueue.size(), steps[i].queued);
        EXPECT_EQ(device.comms.buttonState[5], steps[i].f5);
        EXPECT_EQ(device.comms.lastButton, steps[i].last);
    }
}

TEST(EventDeviceCommsTest, BurstLargerThanOneReadIsDrainedInOnePoll) {
    PipeDevice device("mouse");
    auto& comms = device.comms;
    ASSERT_TRUE(device.ok());
    comms.setShaftEncoderMode(0, 0, 100, 1, false);
    std::string burst;
    for (int i = 0; i < 10; ++i) {
        burst += wheel(1) + sync();
    }
    device.send(burst);
    EXPECT_TRUE(comms.servicePort());
    EXPECT_EQ(comms.bytesReceived, burst.size());
    EXPECT_TRUE(comms.readQueue.empty());
    EXPECT_EQ(comms.encoderValue, 10);
    EXPECT_EQ(comms.bytesSent, 0u);
}

TEST(EventDeviceCommsTest, IdleDeviceCostsOneReadPerPoll) {
    PipeDevice device;
    auto& comms = device.comms;
    ASSERT_TRUE(device.ok());
    expectIdlePollIsOneRead(comms);
    // With one whole record waiting: the record, then the empty read.
    device.send(key(KEY_F1, 1));
    EXPECT_EQ(countReadSyscalls([&] { comms.servicePort(); }), 2);
    EXPECT_EQ(comms.lastButton, 1);

    // Never opened: nothing to read, and no complaint.
    EventDeviceComms closed(QStringLiteral("/nonexistent/cv084_fp_keyboard"));
    EXPECT_TRUE(closed.servicePort());
    EXPECT_EQ(closed.bytesReceived, 0u);
}

TEST(EventDeviceCommsTest, InitializeFailuresAreReported) {
    TempFile regular;
    ASSERT_TRUE(regular.ok);
    struct Case {
        const char* path;
        std::string stderrText;
        bool leftOpen;
    };
    const std::vector<Case> cases = {
        {"/nonexistent/cv084_fp_keyboard", errnoText("front_panel_test", ENOENT), false},
        {regular.path, errnoText("front_panel_test unable to grab", ENOTTY), true},
        {"/dev/null", errnoText("front_panel_test unable to grab", ENOTTY), true},
    };
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.path);
        int fd = -1;
        {
            EventDeviceComms comms(QString::fromLocal8Bit(tc.path));
            testing::internal::CaptureStderr();
            EXPECT_FALSE(comms.initialize());
            EXPECT_EQ(testing::internal::GetCapturedStderr(), tc.stderrText);
            fd = comms.fd;
            EXPECT_EQ(fd > 0, tc.leftOpen);
            // The descriptor stays with the object until it goes.
            EXPECT_EQ(isOpenDescriptor(fd), tc.leftOpen);
            // A second initialize does not leak the first descriptor.
            const int descriptors = openDescriptorCount();
            testing::internal::CaptureStderr();
            comms.initialize();
            testing::internal::GetCapturedStderr();
            EXPECT_EQ(openDescriptorCount(), descriptors);
            fd = comms.fd;
        }
        if (tc.leftOpen) {
            EXPECT_FALSE(isOpenDescriptor(fd));
        }
    }
}

} // namespace
