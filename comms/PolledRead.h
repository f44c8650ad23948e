#pragma once

// Both panel links drain their descriptor the same way on every poll: read
// 32-byte chunks until the device has nothing more (a pty with VMIN = VTIME
// = 0 answers 0, a non-blocking input node answers -1 with EAGAIN, a closed
// descriptor answers -1), counting and queueing what came. Errors end the
// drain silently; the next poll simply tries again.

#include <cstdint>
#include <ctime>
#include <deque>
#include <unistd.h>

namespace comms {

// Now, in microseconds, on the clock every operator input is stamped with:
// the input devices' records (set to this clock when opened), the panel's
// lines and the terminal's keys (stamped as they are read). Monotonic, so a
// time step (NTP, the operator setting the date) cannot reorder them.
inline int64_t arrivalClockUs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

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
