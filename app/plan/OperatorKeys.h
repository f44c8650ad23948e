#pragma once

// The keys that leave a running test, shared by the test classes of the plan.

#include "app/UnitTest.h"

namespace fpt::plan {

// The prompt of a test that waits on the panel rather than on an answer.
inline constexpr char kLeavePrompt[] = "\n (M)enu, (D)ebug, (Q)uit: ";

// Sentinel for a key that does not leave the test.
inline constexpr int kStayInTest = -1;

// "m" asks for the menu, "q" quits at once, "d" opens the debug display;
// anything else (including no key, -1) keeps the test going.
inline int leaveCodeForKey(int key) {
    switch (key) {
    case 'm':
        return UnitTest::RunMenu;
    case 'q':
        return UnitTest::RunQuit;
    case 'd':
        return UnitTest::RunDebug;
    default:
        return kStayInTest;
    }
}

} // namespace fpt::plan
