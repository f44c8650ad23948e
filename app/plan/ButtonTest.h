#pragma once

// One front-panel button: the operator presses and releases it; it passes when
// exactly that button went down and came up with no other button held. The
// button's LED lights in the current colour while the test runs (the manager's
// LED follow-up does that), so the operator can judge the LED as well.

#include <QString>
#include <cstdint>

#include "app/UnitTest.h"

class ButtonTest : public UnitTest {
public:
    // buttonIndex is also the button's LED number: 0 the logo button, 1-10
    // F1-F10, 11 Down, 12 Left, 13 Up, 14 Right, 15 OK, 16 the encoder knob.
    ButtonTest(QString label, uint32_t buttonIndex);

    int run(FrontPanelTestManager& manager) override;

    QString const& label() const { return m_label; }
    uint32_t buttonIndex() const { return m_buttonIndex; }

    // The operator instructions shown for a button.
    static QString description(QString const& label, uint32_t buttonIndex);

    // The index of the encoder knob: its LED number lights the whole ring.
    static constexpr uint32_t kShaftEncoderButton = 16;

private:
    // Steps 3-6 of a run, once per attempt; returns a run code, or -1 to try
    // the same button again.
    int attempt(FrontPanelTestManager& manager);

    QString m_label;
    uint32_t m_buttonIndex;
};
