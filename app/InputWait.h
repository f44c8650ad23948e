#pragma once

// The key poll's wait between two passes over the devices: until its time is
// up, or sooner once the terminal, the panel's serial line or an input device
// has something. Only input ends it early: woken by a signal it goes on
// waiting, and a descriptor that hangs up or fails (a panel unplugged, the
// serial line gone) would stay "ready" for ever, so then the wait keeps its
// pace by the clock instead of spinning.

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <poll.h>

struct InputWait {
    using Clock = std::chrono::steady_clock;
    using Descriptors = std::array<int, 4>;

    // The system's poll(2), through which it also sleeps, and its clock;
    // tests stand in their own.
    std::function<int(pollfd*, nfds_t, int)> poll = ::poll;
    std::function<Clock::time_point()> now = Clock::now;

    // Descriptors of -1 are not watched: with none the wait is a plain sleep.
    // True when input ended it before its time.
    bool operator()(int32_t milliseconds, Descriptors const& fds) const;
};
