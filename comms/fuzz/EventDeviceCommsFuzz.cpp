// Input-event records from the panel's devices, whole or cut anywhere, with
// the encoder in a mode chosen by the input (bounds, step and wrap as the
// tests set them, or anything else).
#include "comms/EventDeviceComms.h"
#include "comms/fuzz/FeedThroughPipe.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    int32_t mode[4] = {};
    if (size < sizeof mode + 1) {
        return 0;
    }
    std::memcpy(mode, data, sizeof mode);
    EventDeviceComms device(QStringLiteral("/nonexistent"));
    device.setShaftEncoderMode(mode[0], mode[1], mode[2], mode[3], (data[sizeof mode] & 1) != 0);
    size_t const skip = sizeof mode + 1;
    size_t const fed = feedThroughPipe(device, data + skip, size - skip);
    // Only a partial record may wait for the next read.
    if (device.bytesReceived != fed || device.readQueue.size() >= sizeof(input_event) ||
        device.lastButton < -1 || device.lastButton >= EventDeviceComms::kButtonCount) {
        __builtin_trap();
    }
    return 0;
}
