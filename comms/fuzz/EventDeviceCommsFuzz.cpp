// Input-event records from a panel device, cut anywhere by the reads: every
// byte is counted, records are taken whole and in order, and a partial record
// waits for the rest. The records show through the knob and the buttons.
// When bit 1 of the first byte is clear the knob has a range of every int32
// value, step 1 and no wrap, and moves by each wheel record's value in turn,
// stopping at the ends of the range. When it is set the knob drives the eight
// LED colours as the station sets it up (0 to 7, step -1, wrapping): a single
// detent either way moves it one colour round the ring (a larger movement
// gives what the wrap formula gives, taken as it is). Each of the panel's
// key codes sets its button's state to the record's value, and a press or
// repeat makes it the last button; other codes change nothing. An input
// whose first byte is odd first sets a moment from its next 8 bytes: records
// stamped after it stay queued, whatever their stamp (a device may send any).
#include "comms/EventDeviceComms.h"
#include "comms/fuzz/FeedThroughPipe.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <optional>

namespace {

constexpr std::array<int, EventDeviceComms::kButtonCount> kKeyCodes = {
    125, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 108, 105, 103, 106, 132, 113};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    constexpr int64_t kLowest = std::numeric_limits<int32_t>::min();
    constexpr int64_t kHighest = std::numeric_limits<int32_t>::max();
    EventDeviceComms device(QStringLiteral("/nonexistent"));
    bool const colours = size > 0 && (data[0] & 2) != 0;
    if (colours) {
        device.setShaftEncoderMode(0, 0, 7, -1, true);
    } else {
        device.setShaftEncoderMode(0, kLowest, kHighest, 1, false);
    }
    if (size > sizeof(int64_t) && (data[0] & 1) != 0) {
        int64_t moment;
        std::memcpy(&moment, data + 1, sizeof moment);
        device.holdRecordsAfterUs = moment;
        data += 1 + sizeof moment;
        size -= 1 + sizeof moment;
    }
    std::optional<int64_t> position = 0; // none once a movement is not modelled
    std::array<int32_t, EventDeviceComms::kButtonCount> buttons{};
    int32_t last = -1;
    size_t taken = 0;
    bool ok = true;
    feedThroughPipe(device, data, size, [&](std::string const& fed) {
        for (; fed.size() - taken >= sizeof(input_event); taken += sizeof(input_event)) {
            input_event event;
            std::memcpy(&event, fed.data() + taken, sizeof event);
            __int128 const stampUs =
                static_cast<__int128>(event.input_event_sec) * 1000000 + event.input_event_usec;
            if (device.holdRecordsAfterUs && stampUs > *device.holdRecordsAfterUs) {
                break;
            }
            if (event.type == EV_REL && event.code == REL_WHEEL && position) {
                if (!colours) {
                    position = std::clamp(*position + event.value, kLowest, kHighest);
                } else if (event.value == 1 || event.value == -1) {
                    position = (*position - event.value + 8) % 8;
                } else {
                    position.reset();
                }
            }
            auto const* code = std::find(kKeyCodes.begin(), kKeyCodes.end(), event.code);
            if (event.type == EV_KEY && code != kKeyCodes.end()) {
                auto const index = static_cast<size_t>(code - kKeyCodes.begin());
                buttons[index] = event.value;
                last = event.value != 0 ? static_cast<int32_t>(index) : last;
            }
        }
        ok = ok && device.bytesReceived == fed.size() &&
             std::string(device.readQueue.begin(), device.readQueue.end()) == fed.substr(taken) &&
             (!position || device.encoderValue == *position) && device.buttonState == buttons &&
             device.lastButton == last;
        if (colours && !position && device.encoderValue >= 0 && device.encoderValue <= 7) {
            position = device.encoderValue; // back on the ring: modelled again
        }
    });
    if (!ok) {
        __builtin_trap();
    }
    return 0;
}
