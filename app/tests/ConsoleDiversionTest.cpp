// Diagnostics written while the screen is up: held back, shown between
// frames on the stream they were written to, and never lost when the screen
// closes.

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "app/ConsoleDiversion.h"

namespace {

// Stands in a pipe for fd 1 or 2 for the test's duration.
struct CapturedFd {
    explicit CapturedFd(int which) : fd(which), saved(::dup(which)) {
        EXPECT_EQ(::pipe2(ends, O_NONBLOCK), 0);
        ::dup2(ends[1], fd);
    }
    ~CapturedFd() {
        ::dup2(saved, fd);
        for (int e : {saved, ends[0], ends[1]})
            ::close(e);
    }
    std::string take() {
        char buffer[256];
        ssize_t const n = ::read(ends[0], buffer, sizeof buffer);
        return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
    }
    int fd, saved, ends[2];
};

} // namespace

TEST(ConsoleDiversion, HoldsEachStreamBackUntilForwardedOrClosed) {
    CapturedFd out(1), err(2);
    {
        ConsoleDiversion diversion;
        EXPECT_FALSE(diversion.forward());
        std::fputs("log line\n", stdout);
        std::perror("open");
        EXPECT_EQ(out.take() + err.take(), "");
        EXPECT_TRUE(diversion.forward());
        EXPECT_EQ(out.take(), "log line\n");
        EXPECT_EQ(err.take().rfind("open: ", 0), 0U);
        EXPECT_FALSE(diversion.forward());
        std::fputs("Couldn't open the log file x", stderr);
    }
    EXPECT_EQ(err.take(), "Couldn't open the log file x");
    std::fputs("after", stderr);
    EXPECT_EQ(err.take(), "after");
}
