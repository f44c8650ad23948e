// Which bytes the terminal hands curses as one key: a function or arrow key
// cut into pieces would be read as Escape and then as letters, and "A" (the
// up arrow's last byte) answers a question.

#include "app/CursesTerminal.h"

#include <gtest/gtest.h>

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
