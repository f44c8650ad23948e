// Diagnostics written while the screen is up: held back, shown between
// frames on the stream they were written to, and never lost when the screen
// closes or the program crashes.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include "app/ConsoleDiversion.h"

namespace {

// Stands in a file in memory for fd 1 or 2 (or both) for the test's duration.
struct CapturedFd {
    explicit CapturedFd(std::initializer_list<int> which) : fds(which) {
        for (int fd : fds) {
            saved.push_back(::dup(fd));
            ::dup2(file, fd);
        }
    }
    ~CapturedFd() {
        for (size_t i = 0; i < fds.size(); ++i) {
            ::dup2(saved[i], fds[i]);
            ::close(saved[i]);
        }
        ::close(file);
    }
    std::string take() {
        std::string text(size_t(::lseek(file, 0, SEEK_END) - taken), '\0');
        taken += ::pread(file, text.data(), text.size(), taken);
        return text;
    }
    int file = ::memfd_create("captured", 0);
    off_t taken = 0;
    std::vector<int> fds, saved;
};

} // namespace

TEST(ConsoleDiversion, HoldsEachStreamBackUntilForwardedOrClosed) {
    CapturedFd out({1}), err({2});
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
        // More than any pipe holds, in one frame: the writer never waits.
        std::string const burst(4 << 20, 'r');
        std::fputs(burst.c_str(), stderr);
        EXPECT_TRUE(diversion.forward());
        EXPECT_TRUE(err.take() == burst);
        std::fputs("Couldn't open the log file x", stderr);
    }
    EXPECT_EQ(err.take(), "Couldn't open the log file x");
    std::fputs("after", stderr);
    EXPECT_EQ(err.take(), "after");
}

TEST(ConsoleDiversion, BothStreamsReachOneTerminalInTheOrderWritten) {
    CapturedFd terminal({1, 2});
    ConsoleDiversion diversion;
    std::fputs("error, ", stderr);
    std::fputs("information, ", stdout);
    std::fflush(stdout);
    std::fputs("error", stderr);
    diversion.forward();
    EXPECT_EQ(terminal.take(), "error, information, error");
}

// A crash while the screen is up, in a child on a pty: the terminal gets its
// screen and its mode back, then what was held, and the signal ends the child.
TEST(ConsoleDiversion, ACrashGivesBackTheTerminalAndWhatWasHeld) {
    for (int signalNumber : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, 0}) { // 0: std::terminate
        SCOPED_TRACE(signalNumber);
        int const master = ::posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_EQ(::grantpt(master) | ::unlockpt(master), 0);
        int const slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
        struct termios shell {};
        ASSERT_EQ(::tcgetattr(slave, &shell), 0);
        ::cfmakeraw(&shell);
        ASSERT_EQ(::tcsetattr(slave, TCSANOW, &shell), 0);
        auto crash = [&] {
            struct rlimit const noCore{};
            ::setrlimit(RLIMIT_CORE, &noCore);
            std::fflush(stdout);
            ::dup2(slave, 1);
            ::dup2(slave, 2);
            ConsoleDiversion diversion;
            diversion.setScreenReset("<reset>");
            struct termios screen = shell;
            screen.c_lflag |= ICANON;
            ::tcsetattr(slave, TCSANOW, &screen);
            std::fputs("held ", stderr);
            std::fputs("and buffered", stdout);
            signalNumber != 0 ? (void)std::raise(signalNumber) : std::terminate();
        };
        EXPECT_EXIT(crash(), testing::KilledBySignal(signalNumber ? signalNumber : SIGABRT), "");
        struct termios after {};
        ASSERT_EQ(::tcgetattr(slave, &after), 0);
        EXPECT_EQ(after.c_lflag, shell.c_lflag);
        ::close(slave);
        std::string text(64, '\0');
        text.resize(size_t(std::max<ssize_t>(::read(master, text.data(), text.size()), 0)));
        EXPECT_EQ(text.substr(0, 24), signalNumber ? "<reset>held " : "<reset>held and buffered");
        ::close(master);
    }
}
