// The key poll's wait on a simulated clock: a poll lets the time it is given
// pass unless the kernel has an answer sooner.

#include "app/InputWait.h"

#include <cerrno>

#include <gtest/gtest.h>

// A signal first; then the watched descriptor hangs up and, as the kernel
// reports it, stays ready for ever.
TEST(InputWait, NeitherASignalNorAHangUpEndsItEarlyOrMakesItSpin) {
    InputWait::Clock::time_point now{};
    int polls = 0;
    InputWait const wait{[&](pollfd* fds, nfds_t watched, int timeoutMs) {
                             errno = EINTR;
                             if (++polls == 1)
                                 return -1;
                             if (watched > 0 && polls < 10) {
                                 fds[0].revents = POLLHUP;
                                 return 1;
                             }
                             now += std::chrono::milliseconds(timeoutMs);
                             return 0;
                         },
                         [&] { return now; }};
    wait(100, {3, -1, -1, -1});
    EXPECT_EQ(now.time_since_epoch(), std::chrono::milliseconds(100));
    EXPECT_EQ(polls, 3);
}
