// The panel is the board under test: whatever it sends, split however the
// line delivers it, must be consumed line by line without harm.
#include "comms/FrontPanelComms.h"
#include "comms/fuzz/FeedThroughPipe.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    FrontPanelComms link(QStringLiteral("/nonexistent"));
    size_t const fed = feedThroughPipe(link, data, size);
    // Every byte counted, and no complete line left behind.
    if (link.bytesReceived != fed ||
        std::find(link.readQueue.begin(), link.readQueue.end(), '\n') != link.readQueue.end()) {
        __builtin_trap();
    }
    return 0;
}
