#pragma once

// Both panel links drain their descriptor the same way on every poll: read
// 32-byte chunks until the device has nothing more (a pty with VMIN = VTIME
// = 0 answers 0, a non-blocking input node answers -1 with EAGAIN, a closed
// descriptor answers -1), counting and queueing what came. Errors end the
// drain silently; the next poll simply tries again.

#include <cstdint>
#include <deque>
#include <unistd.h>

namespace comms {

inline void drainInto(int fd, std::deque<char>& queue, uint32_t& bytesReceived) {
    char buffer[32];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 1) {
            return;
        }
        bytesReceived += static_cast<uint32_t>(count);
        queue.insert(queue.end(), buffer, buffer + count);
    }
}

} // namespace comms
