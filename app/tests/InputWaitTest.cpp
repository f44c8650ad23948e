// The key poll's wait on a simulated clock: a poll lets the time it is given
// pass unless the watched descriptor answers sooner, as the kernel's does.

#include "app/InputWait.h"

#include <cerrno>
#include <optional>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using Ms = std::chrono::milliseconds;

struct Descriptor {
    bool hungUp = false;        // answers POLLHUP at once, every time
    std::optional<int> inputAt; // ms
    std::optional<int> signalAt;
};

TEST(InputWait, OnlyInputEndsItEarlyAndAHangUpKeepsItsPaceByTheClock) {
    struct Case {
        Descriptor d;
        int elapsedMs, polls;
    };
    for (Case const& c : {Case{{true, {}, {}}, 100, 2}, Case{{false, 30, {}}, 30, 1},
                          Case{{false, {}, 20}, 100, 2}}) {
        SCOPED_TRACE(c.elapsedMs);
        InputWait::Clock::time_point now{};
        auto const at = [](int ms) { return InputWait::Clock::time_point{} + Ms(ms); };
        int polls = 0;
        InputWait wait;
        wait.now = [&] { return now; };
        wait.poll = [&, d = c.d](pollfd* fds, nfds_t watched, int timeoutMs) mutable {
            if (++polls > 10)
                throw std::runtime_error("the wait spins");
            if (watched > 0 && (d.hungUp || (d.inputAt && now + Ms(timeoutMs) >= at(*d.inputAt)))) {
                now = d.hungUp ? now : at(*d.inputAt);
                fds[0].revents = d.hungUp ? POLLHUP : POLLIN;
                return 1;
            }
            if (d.signalAt && now + Ms(timeoutMs) > at(*d.signalAt)) {
                now = at(*d.signalAt);
                d.signalAt.reset();
                errno = EINTR;
                return -1;
            }
            now += Ms(timeoutMs);
            return 0;
        };
        wait(100, {3, -1, -1, -1});
        EXPECT_EQ(now, at(c.elapsedMs));
        EXPECT_EQ(polls, c.polls);
    }
}

} // namespace
