#pragma once

// The shaft encoder and its LED ring: the operator turns the knob one step at
// a time through every colour clockwise and back anticlockwise, so a missed
// or doubled step shows at once, then says whether the LEDs changed colour
// uniformly.

#include <QString>

#include "app/UnitTest.h"

class ShaftEncTest : public UnitTest {
public:
    ShaftEncTest();

    int run(FrontPanelTestManager& manager) override;

    // The instruction for one step, from one colour (0-7) to the next.
    static QString stepDescription(bool clockwise, int fromColour, int toColour);

private:
    // Polls keys until the current LED colour is `target`; returns a run code
    // if the operator leaves the test, else -1.
    static int turnTo(FrontPanelTestManager& manager, bool clockwise, int target);
    // The closing question and its error prompt; returns the run code.
    int askVerdict(FrontPanelTestManager& manager);
};
