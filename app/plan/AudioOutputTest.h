#pragma once

// One audio output on its own (speaker or headphones): the test tone plays
// through that output only, the operator turns the volume up with the shaft
// encoder and says whether it can be heard.

#include <QString>
#include <cstdint>

#include "app/UnitTest.h"

class AudioOutputTest : public UnitTest {
public:
    // Output routes: bit 0 headphones, bit 1 speaker.
    static constexpr int32_t kRouteOff = 0;
    static constexpr int32_t kRouteHeadphones = 1;
    static constexpr int32_t kRouteSpeaker = 2;

    AudioOutputTest(QString testName, QString description, int32_t route);

    int run(FrontPanelTestManager& manager) override;

    QString const& description() const { return m_description; }
    int32_t route() const { return m_route; }

private:
    QString m_description;
    int32_t m_route;
};
