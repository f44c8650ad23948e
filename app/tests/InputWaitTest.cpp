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
    EXPECT_FALSE(wait(100, {3, -1, -1, -1}));
    EXPECT_EQ(now.time_since_epoch(), std::chrono::milliseconds(100));
    EXPECT_EQ(polls, 3);
}

// Input 30 ms in, on the last descriptor watched: the wait ends then.
TEST(InputWait, InputEndsItEarly) {
    InputWait::Clock::time_point now{};
    InputWait const wait{[&](pollfd* fds, nfds_t watched, int) {
                             now += std::chrono::milliseconds(30);
                             fds[watched - 1].revents = POLLIN;
                             return 1;
                         },
                         [&] { return now; }};
    EXPECT_TRUE(wait(100, {-1, -1, -1, 7}));
    EXPECT_EQ(now.time_since_epoch(), std::chrono::milliseconds(30));
}
