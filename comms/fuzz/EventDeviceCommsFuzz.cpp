// Input-event records from a panel device, cut anywhere by the reads: every
// byte is counted, records are taken whole and in order, and a partial record
// waits for the rest. The records show through the knob: with a range of
// every int32 value, step 1 and no wrap, the encoder moves by each wheel
// record's value in turn, stopping at the ends of the range. An input whose
// first byte is odd first sets a moment from its next 8 bytes: records
// stamped after it stay queued, whatever their stamp (a device may send any).
#include "comms/EventDeviceComms.h"
#include "comms/fuzz/FeedThroughPipe.h"

#include <algorithm>
#include <cstring>
#include <limits>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    constexpr int64_t kLowest = std::numeric_limits<int32_t>::min();
    constexpr int64_t kHighest = std::numeric_limits<int32_t>::max();
    EventDeviceComms device(QStringLiteral("/nonexistent"));
    device.setShaftEncoderMode(0, kLowest, kHighest, 1, false);
    if (size > sizeof(int64_t) && (data[0] & 1) != 0) {
        int64_t moment;
        std::memcpy(&moment, data + 1, sizeof moment);
        device.holdRecordsAfterUs = moment;
        data += 1 + sizeof moment;
        size -= 1 + sizeof moment;
    }
    int64_t position = 0;
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
            if (event.type == EV_REL && event.code == REL_WHEEL) {
                position = std::clamp(position + event.value, kLowest, kHighest);
            }
        }
        ok = ok && device.bytesReceived == fed.size() &&
             std::string(device.readQueue.begin(), device.readQueue.end()) == fed.substr(taken) &&
             device.encoderValue == position;
    });
    if (!ok) {
        __builtin_trap();
    }
    return 0;
}
