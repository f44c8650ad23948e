#pragma once

// The panel's headphone detector: the operator unplugs and plugs the
// headphones (in whichever order the jack's starting state allows) and the
// panel's own reports must follow.

#include <QString>

#include "app/UnitTest.h"

class HeadphoneJackTest : public UnitTest {
public:
    explicit HeadphoneJackTest(QString testName);

    int run(FrontPanelTestManager& manager) override;

    // One step: shows the description, waits for the operator's go-ahead and
    // checks that the panel reports `expected` (1 plugged in, 0 not).
    // Returns a run code (1 when the panel agrees).
    int plugTest(FrontPanelTestManager& manager, int expected, QString const& description);

    static QString plugDescription();
    static QString unplugDescription();

    // The detector's readings as the panel link reports them.
    static constexpr int kHeadphonesOut = 0;
    static constexpr int kHeadphonesIn = 1;
    static constexpr int kHeadphonesUnknown = -1;
};
