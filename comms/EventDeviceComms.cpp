#include "comms/EventDeviceComms.h"
#include "comms/PolledRead.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

// One kernel record: 16 bytes on the 32-bit ARM controller, 24 on a 64-bit
// development host. Always taken from the kernel's own structure.
constexpr size_t kRecordSize = sizeof(struct input_event);

// Key codes of the panel's keyboard device, by button index.
constexpr int kButtonKeyCodes[EventDeviceComms::kButtonCount] = {
    KEY_LEFTMETA, KEY_F1,  KEY_F2,   KEY_F3,   KEY_F4, KEY_F5,    KEY_F6,    KEY_F7,  KEY_F8,
    KEY_F9,       KEY_F10, KEY_DOWN, KEY_LEFT, KEY_UP, KEY_RIGHT, KEY_FRONT, KEY_MUTE};

int buttonIndex(int code) {
    const auto* end = std::end(kButtonKeyCodes);
    const auto* found = std::find(std::begin(kButtonKeyCodes), end, code);
    return found == end ? -1 : static_cast<int>(found - std::begin(kButtonKeyCodes));
}

constexpr int64_t kMicroseconds = 1000000;

// Seconds and the microseconds within them (0 to 999999), rounded down.
std::pair<int64_t, int64_t> splitMicroseconds(int64_t us) {
    int64_t const rest = us % kMicroseconds;
    return rest < 0 ? std::pair{us / kMicroseconds - 1, rest + kMicroseconds}
                    : std::pair{us / kMicroseconds, rest};
}

// Whether a record was stamped after a moment in microseconds. A kernel sends
// whole seconds and 0 to 999999 microseconds, but a device may send any
// values at all: compared exactly, never through a product that overflows.
bool stampedAfter(input_event const& event, int64_t momentUs) {
    auto const [carry, micros] = splitMicroseconds(static_cast<int64_t>(event.input_event_usec));
    int64_t seconds;
    if (__builtin_add_overflow(static_cast<int64_t>(event.input_event_sec), carry, &seconds))
        return carry > 0; // beyond every moment, or before every one
    auto const moment = splitMicroseconds(momentUs);
    return seconds != moment.first ? seconds > moment.first : micros > moment.second;
}

} // namespace

EventDeviceComms::EventDeviceComms(QString path) : devicePath(std::move(path)) {}

EventDeviceComms::~EventDeviceComms() {
    // Closing the descriptor also ends the grab.
    if (fd > 0) {
        ::close(fd);
    }
}

bool EventDeviceComms::initialize() {
    // A second initialize() must not leak the first descriptor, and must let
    // go of the first grab before taking the device again.
    if (fd > 0) {
        ::close(fd);
        fd = -1;
    }
    fd = ::open(devicePath.toLocal8Bit().constData(), O_RDONLY | O_NOCTTY);
    if (fd == -1) {
        std::perror("front_panel_test");
        return false;
    }
    // Take the device for ourselves so the panel's keys do not also reach the
    // console, then make reads return at once when there is nothing to read.
    if (::ioctl(fd, EVIOCGRAB, 1) != 0 || ::fcntl(fd, F_SETFL, O_NONBLOCK) != 0) {
        std::perror("front_panel_test unable to grab");
        return false;
    }
    // Records are stamped on the clock the keys and the panel's lines are, so
    // that all of them can be taken in the order they came. A kernel (or an
    // emulator) that cannot is left on its own clock, whose stamps are then
    // converted at the moment they are compared.
    int clock = CLOCK_MONOTONIC;
    stampClock = ::ioctl(fd, EVIOCSCLOCKID, &clock) == 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
    return true;
}

bool EventDeviceComms::servicePort() {
    const bool ok = fillReadQueue();
    if (ok && !readQueue.empty()) {
        processReadQueue();
    }
    return ok;
}

bool EventDeviceComms::fillReadQueue() {
    comms::drainInto(fd, readQueue, bytesReceived);
    return true;
}

void EventDeviceComms::processReadQueue() {
    std::optional<int64_t> heldAfter = holdRecordsAfterUs;
    if (heldAfter && stampClock != CLOCK_MONOTONIC) {
        timespec now{};
        ::clock_gettime(stampClock, &now);
        int64_t const deviceNowUs =
            static_cast<int64_t>(now.tv_sec) * kMicroseconds + now.tv_nsec / 1000;
        // A moment so far off that it cannot be moved holds all or nothing
        // on either clock alike.
        int64_t moved;
        if (!__builtin_add_overflow(*heldAfter, deviceNowUs - comms::arrivalClockUs(), &moved))
            *heldAfter = moved;
    }
    while (readQueue.size() >= kRecordSize) {
        char raw[kRecordSize];
        std::copy_n(readQueue.begin(), kRecordSize, raw);
        struct input_event event {};
        std::memcpy(&event, raw, kRecordSize);
        if (heldAfter && stampedAfter(event, *heldAfter)) {
            return;
        }
        processReceivedEvent(event);
        readQueue.erase(readQueue.begin(), readQueue.begin() + kRecordSize);
    }
}

void EventDeviceComms::processReceivedEvent(input_event const& event) {
    switch (event.type) {
    case EV_SYN:
    case EV_MSC:
    case EV_REP:
        break;
    case EV_KEY:
        processButtonEvent(event.code, static_cast<KeyPress>(event.value));
        break;
    case EV_REL:
        // The shaft encoder is the mouse device's wheel; nothing else moves.
        if (event.code == REL_WHEEL) {
            processShaftEncoderEvent(event.value);
        }
        break;
    default:
        std::printf("Unrecognised processReceivedEvent() type = %d, value = %d, code = %d\n",
                    event.type, event.value, event.code);
        break;
    }
}

void EventDeviceComms::processButtonEvent(int code, KeyPress press) {
    const int index = buttonIndex(code);
    if (index < 0) {
        std::printf("Unrecognised Keycode code = %d press = %d\n", code, static_cast<int>(press));
        return;
    }
    buttonState[static_cast<size_t>(index)] = press;
    if (press != Released) {
        lastButton = index;
    }
}

void EventDeviceComms::processShaftEncoderEvent(int delta) {
    // Worked in 64 bits so that no step or delta can overflow; the result is
    // what 32-bit arithmetic gives whenever that does not overflow.
    const int64_t min = encoderMin;
    const int64_t max = encoderMax;
    const int64_t v = int64_t{encoderValue} + int64_t{encoderStep} * delta;
    int64_t next;
    if (v >= min) {
        if (v <= max) {
            next = v;
        } else if (!encoderWrap) {
            next = max;
        } else {
            // Wrapped once only: an overshoot beyond the range is not folded.
            next = v - max - 1 + min;
        }
    } else if (!encoderWrap) {
        next = min > max ? max : min;
    } else {
        // Exact for one step below a zero minimum (0 - 1 gives max); larger
        // overshoots and non-zero minimums give what this formula gives. It is
        // the encoder's established behaviour, not to be replaced by a modulo.
        const int64_t w = max - (v + min + 1);
        next = w <= max ? w : w - max - 1 + min;
    }
    encoderValue = static_cast<int32_t>(next);
}

void EventDeviceComms::setShaftEncoderMode(int value, int min, int max, int step, bool wrap) {
    encoderValue = value;
    encoderMin = min;
    encoderMax = max;
    encoderStep = step;
    encoderWrap = wrap;
}
