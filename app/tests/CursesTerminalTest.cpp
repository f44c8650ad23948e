// Which bytes the terminal hands curses as one key: a function or arrow key
// cut into pieces would be read as Escape and then as letters, and "A" (the
// up arrow's last byte) answers a question.

#include "app/CursesTerminal.h"

#include <chrono>
#include <gtest/gtest.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "app/TerminalReader.h"
#include "comms/PolledRead.h"

TEST(CursesTerminal, KeysAreHandedOverWhole) {
    struct Case {
        char const* typed;
        std::size_t now, waited; // length before and after the escape delay
    } const cases[] = {
        {"yv", 1, 1},      {"\x1b", 0, 1},      {"\x1b[", 0, 2},
        {"\x1b[Ay", 3, 3}, {"\x1b[15~q", 5, 5}, {"\x1b[15", 0, 4},
        {"\x1bOPx", 3, 3}, {"\x1bO", 0, 2},     {"\x1bv", 1, 1},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(CursesTerminal::wholeKeyLength(c.typed, false), c.now) << c.typed + 1;
        EXPECT_EQ(CursesTerminal::wholeKeyLength(c.typed, true), c.waited) << c.typed + 1;
    }
}

// A key is stamped when it comes, not when the run loop, busy drawing a
// frame, gets round to it: a key typed just before a knob detent must not
// look as if it came after it. A hang-up ends the input once.
TEST(TerminalReader, StampsBytesWhenTheyComeNotWhenTakenIn) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    {
        TerminalReader reader(fds[0]);
        int64_t const before = comms::arrivalClockUs();
        ASSERT_EQ(::write(fds[1], "vq", 2), 2);
        pollfd wake{reader.wakeFd(), POLLIN, 0};
        ASSERT_EQ(::poll(&wake, 1, 5000), 1);
        int64_t const woken = comms::arrivalClockUs();
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the loop busy
        std::deque<TerminalReader::Byte> taken;
        EXPECT_TRUE(reader.takeInto(taken));
        ASSERT_EQ(taken.size(), 2u);
        EXPECT_EQ(std::string({taken[0].byte, taken[1].byte}), "vq");
        for (TerminalReader::Byte const& b : taken) {
            EXPECT_GE(b.arrivedUs, before);
            EXPECT_LE(b.arrivedUs, woken);
        }
        EXPECT_EQ(::poll(&wake, 1, 0), 0);
        ::close(fds[1]);
        ASSERT_EQ(::poll(&wake, 1, 5000), 1);
        EXPECT_FALSE(reader.takeInto(taken));
    }
    ::close(fds[0]);
}
