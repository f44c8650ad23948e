// Diagnostics written while the screen is up: held back, shown between
// frames in the order they were written, and never lost when the screen
// closes or the program crashes.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "app/ConsoleDiversion.h"

namespace {

// Stands in a file in memory for fd 1 or 2 for the test's duration. While
// it stands for fd 1, Google Test's own report of a failed check goes into it
// too: a failure there shows as FAILED without its text.
struct CapturedFd {
    explicit CapturedFd(int which) : fd(which), saved(::dup(which)) { ::dup2(file, fd); }
    ~CapturedFd() {
        ::dup2(saved, fd);
        ::close(saved);
        ::close(file);
    }
    std::string take() {
        std::string text(size_t(::lseek(file, 0, SEEK_END) - taken), '\0');
        taken += ::pread(file, text.data(), text.size(), taken);
        return text;
    }
    int fd, saved, file = ::memfd_create("captured", 0);
    off_t taken = 0;
};

} // namespace

TEST(ConsoleDiversion, HoldsEachStreamBackUntilForwardedOrClosed) {
    CapturedFd out(1), err(2);
    {
        ConsoleDiversion diversion;
        EXPECT_FALSE(diversion.forward());
        std::fputs("log line\n", stdout);
        EXPECT_EQ(out.take() + err.take(), "");
        EXPECT_TRUE(diversion.forward());
        EXPECT_EQ(out.take(), "log line\n");
        // More than any pipe holds, in one frame: the writer never waits.
        std::string const burst(4 << 20, 'r');
        std::fputs(burst.c_str(), stderr);
        EXPECT_TRUE(diversion.forward() && err.take() == burst);
        std::fputs("Couldn't open the log file x", stderr);
    }
    EXPECT_EQ(err.take(), "Couldn't open the log file x");
}

// A crash while the screen is up, both streams on one terminal as the
// operator's are: the terminal's own screen back, then what was held, in the
// order it was written, whichever way the program crashed.
TEST(ConsoleDiversion, ACrashPassesOnWhatWasHeldInOrder) {
    for (int crash : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE}) {
        CapturedFd terminal(1);
        auto const crashWithHeldDiagnostics = [crash] {
            ::prctl(PR_SET_DUMPABLE, 0); // no core file
            ::dup2(1, 2);
            ConsoleDiversion diversion;
            diversion.setScreenReset("<reset>");
            std::fputs("error, ", stderr);
            ::write(1, "information, ", 13); // as a flushed printf
            std::raise(crash);
        };
        EXPECT_EXIT(crashWithHeldDiagnostics(), testing::KilledBySignal(crash), "");
        EXPECT_EQ(terminal.take(), "<reset>error, information, ");
    }
}
