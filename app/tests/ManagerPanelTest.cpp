// Key polling and the manager's hold on the panel: the always-served keys,
// exact-match key lists, LED follow-up, button checks, encoder modes and the
// audio set-up.

#include <gtest/gtest.h>

#include "app/testing/ManagerRig.h"

using fpt::testing::ManagerRig;
using Lines = std::vector<std::string>;
using Mode = FrontPanelTestManager::ShaftEncoderMode;

namespace {
// What curses reports for function key F1.
constexpr int kKeyF1 = 0410 + 1;
} // namespace

TEST(ManagerKeys, OnePollOfNonBlockingGetLowerCh) {
    struct Case {
        char const* what;
        int key; // Terminal::kNoKey: none typed
        char const* keys;
        int expected;
        Mode modeAfter;
        Lines linesSent;
    } const cases[] = {
        {"no key", Terminal::kNoKey, nullptr, -1, Mode::ShaftEncoderPitch, {}},
        {"any key without a list", 'm', nullptr, 'm', Mode::ShaftEncoderPitch, {}},
        {"lowered without a list", 'M', nullptr, 'm', Mode::ShaftEncoderPitch, {}},
        {"special keys pass unlowered", kKeyF1, nullptr, kKeyF1, Mode::ShaftEncoderPitch, {}},
        {"listed key", 'y', "ynmd", 'y', Mode::ShaftEncoderPitch, {}},
        {"upper case is not a listed key", 'Y', "ynmd", -1, Mode::ShaftEncoderPitch, {}},
        {"unlisted key", 'q', "ynmd", -1, Mode::ShaftEncoderPitch, {}},
        {"empty list accepts nothing", 'y', "", -1, Mode::ShaftEncoderPitch, {}},
        {"c: colour mode", 'c', nullptr, -1, Mode::ShaftEncoderColours, {}},
        {"v: volume mode", 'v', nullptr, -1, Mode::ShaftEncoderVolume, {}},
        {"p: pitch mode", 'p', "p", -1, Mode::ShaftEncoderPitch, {}},
        {"h: headphones on", 'h', "h", -1, Mode::ShaftEncoderPitch, {"A2\n"}},
        {"s: speaker on", 's', nullptr, -1, Mode::ShaftEncoderPitch, {"A1\n"}},
        {"c even with an empty list", 'c', "", -1, Mode::ShaftEncoderColours, {}},
        {"upper-case C is not the colour key", 'C', nullptr, 'c', Mode::ShaftEncoderPitch, {}},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        auto& m = rig.mgr();
        m.initDisplay();
        m.setShaftEncoderMode(Mode::ShaftEncoderPitch);
        if (c.key == Terminal::kNoKey)
            rig.terminal->noKey();
        else
            rig.terminal->key(c.key);
        rig.panel->clearRecords();
        EXPECT_EQ(m.nonBlockingGetLowerCh(c.keys), c.expected) << c.what;
        EXPECT_EQ(m.getShaftEncoderMode(), c.modeAfter) << c.what;
        Lines sent;
        for (auto const& l : rig.panel->lines)
            if (l[0] != 'L') // LED follow-up is checked elsewhere
                sent.push_back(l);
        EXPECT_EQ(sent, c.linesSent) << c.what;
        EXPECT_TRUE(rig.terminal->scriptDone()) << c.what;
    }
}

TEST(ManagerKeys, HeadphoneAndSpeakerKeysToggle) {
    ManagerRig rig;
    rig.mgr().initDisplay();
    rig.terminal->keys("hhssh");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(rig.mgr().nonBlockingGetLowerCh(), -1);
    Lines sent;
    for (auto const& l : rig.panel->lines)
        if (l[0] == 'A')
            sent.push_back(l);
    EXPECT_EQ(sent, (Lines{"A2\n", "A0\n", "A1\n", "A0\n", "A2\n"}));
}

TEST(ManagerKeys, EachPollServicesTheDevicesSleepsAndRedrawsOnce) {
    ManagerRig rig;
    rig.mgr().initDisplay();
    EXPECT_EQ(rig.mgr().headphoneState(), -1);
    rig.panel->receive(QStringLiteral("H1")); // the headphone state comes from panel reports
    rig.terminal->noKey(3);
    int const refreshes = rig.terminal->refreshCount;
    for (int i = 0; i < 3; ++i)
        rig.mgr().nonBlockingGetLowerCh();
    EXPECT_EQ(rig.panel->serviceCalls, 3);
    EXPECT_EQ(rig.keyboard->serviceCalls, 3);
    EXPECT_EQ(rig.encoder->serviceCalls, 3);
    EXPECT_EQ(rig.sleeps, (std::vector<int32_t>{100, 100, 100}));
    EXPECT_EQ(rig.terminal->refreshCount - refreshes, 3);
    EXPECT_EQ(rig.terminal->eraseCount, 3);
    EXPECT_EQ(rig.mgr().headphoneState(), 1);
}

TEST(ManagerKeys, GetLowerChAndPromptWaitForAListedKey) {
    ManagerRig rig;
    rig.mgr().initDisplay();
    rig.terminal->noKey(2).keys("xYqhs").noKey().keys("nq");
    EXPECT_EQ(rig.mgr().getLowerCh("ynmd"), 'n');
    EXPECT_EQ(rig.sleeps.size(), 9u);
    EXPECT_EQ(rig.mgr().getLowerCh(), 'q');
    // A prompt shows its text, then waits.
    rig.terminal->noKey().key('D');
    EXPECT_EQ(rig.mgr().prompt(QStringLiteral("\n (M)enu, (D)ebug, (Q)uit: ")), 'd');
    EXPECT_EQ(rig.terminal->row(19), "");
    EXPECT_EQ(rig.terminal->row(21), "     (M)enu, (D)ebug, (Q)uit:");
}

TEST(ManagerPanel, LedFollowUp) {
    ManagerRig rig;
    auto& m = rig.mgr();
    auto step = [&](auto action) {
        rig.panel->clearRecords();
        action();
        m.showLeds();
        return rig.panel->lines;
    };
    // Before any press the "last LED" is -1, which the panel takes as all LEDs.
    EXPECT_EQ(step([] {}), (Lines{"Lffffffff\n"}));
    EXPECT_EQ(step([] {}), Lines{});
    EXPECT_EQ(step([&] { rig.keyboard->pressNow(3); }), (Lines{"Lff000000\n", "L03ffffff\n"}));
    EXPECT_EQ(step([&] { rig.keyboard->releaseNow(3); }), Lines{});
    EXPECT_EQ(step([&] { m.setLEDColour(5); }), (Lines{"L03ff0000\n"}));
    EXPECT_EQ(step([&] { m.setLEDColour(13); }), Lines{}); // 13 & 7 == 5
    EXPECT_EQ(step([&] { rig.keyboard->pressNow(16); }), (Lines{"L03000000\n", "Lffff0000\n"}));
    EXPECT_EQ(step([&] { m.setLEDColour(7); }), (Lines{"Lff000000\n"}));
    EXPECT_EQ(step([&] { rig.keyboard->pressNow(11); }), (Lines{"Lff000000\n", "L0b000000\n"}));
}

TEST(ManagerPanel, ButtonChecks) {
    struct Case {
        std::vector<int> down;
        unsigned index;
        int noPress;
        int expected;
    } const cases[] = {
        {{}, 3, 1, 0},   {{3}, 3, 0, 1}, {{3, 4}, 3, 0, 2}, {{4}, 3, 0, 2}, {{16}, 16, 0, 1},
        {{0}, 16, 0, 2}, {{}, 17, 1, 2}, {{}, 100, 1, 2},   {{0}, 0, 0, 1},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        for (int b : c.down)
            rig.keyboard->pressNow(b);
        EXPECT_EQ(rig.mgr().buttonTestCheckForNoPress(), c.noPress) << c.index;
        EXPECT_EQ(rig.mgr().buttonTestCheckForExpected(c.index), c.expected) << c.index;
    }
    ManagerRig rig;
    rig.keyboard->repeatNow(5); // auto-repeat still counts as down
    EXPECT_EQ(rig.mgr().buttonTestCheckForNoPress(), 0);
    EXPECT_EQ(rig.mgr().buttonTestCheckForExpected(5), 1);
}

TEST(ManagerPanel, EncoderModesHandTheirRangeToTheEncoder) {
    struct Case {
        int mode;
        int expectedMode;
        int32_t value, min, max, step;
        bool wrap;
    } const cases[] = {
        {0, 0, 5, 0, 7, -1, true},    {1, 1, 40, 0, 100, -1, false},
        {2, 2, 12, 0, 48, -1, false}, {3, 0, 5, 0, 7, -1, true}, // ignored: colours stay
        {-1, 0, 5, 0, 7, -1, true},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        EXPECT_EQ(rig.mgr().getShaftEncoderMode(), Mode::ShaftEncoderColours);
        rig.mgr().setLEDColour(5);
        rig.selfTest->volume = 40;
        rig.selfTest->pitch = 12;
        rig.mgr().setShaftEncoderMode(static_cast<Mode>(c.mode));
        EXPECT_EQ(rig.mgr().getShaftEncoderMode(), c.expectedMode) << c.mode;
        EXPECT_EQ(rig.encoder->encoderValue, c.value) << c.mode;
        EXPECT_EQ(rig.encoder->encoderMin, c.min) << c.mode;
        EXPECT_EQ(rig.encoder->encoderMax, c.max) << c.mode;
        EXPECT_EQ(rig.encoder->encoderStep, c.step) << c.mode;
        EXPECT_EQ(rig.encoder->encoderWrap, c.wrap) << c.mode;
    }
}

TEST(ManagerPanel, EncoderDrivesColourVolumeOrPitch) {
    ManagerRig rig;
    auto& m = rig.mgr();
    m.initDisplay();
    // Colour mode wraps both ways; each turn is seen on the next poll.
    m.setLEDColour(7);
    EXPECT_EQ(rig.encoder->encoderValue, 7);
    rig.encoder->turn(-1).turn(1).idle().turn(-2);
    rig.terminal->noKey(4);
    std::vector<int32_t> colours;
    for (int i = 0; i < 4; ++i) {
        m.nonBlockingGetLowerCh();
        colours.push_back(m.getLEDColour());
    }
    EXPECT_EQ(colours, (std::vector<int32_t>{0, 7, 7, 1}));
    EXPECT_TRUE(rig.selfTest->calls.empty());

    // Volume: bounded, no wrap; sent on every poll from the one after "v".
    rig.terminal->key('v').noKey(3);
    rig.encoder->idle().turn(-30).turn(-100);
    for (int i = 0; i < 4; ++i)
        m.nonBlockingGetLowerCh();
    EXPECT_EQ(rig.selfTest->calls, (Lines{"volume 30", "volume 100", "volume 100"}));
    EXPECT_EQ(m.getLEDColour(), 1);

    // Pitch starts from the current pitch.
    rig.selfTest->calls.clear();
    rig.selfTest->pitch = 10;
    rig.terminal->key('p').noKey(2);
    rig.encoder->idle().turn(-5).turn(3);
    for (int i = 0; i < 3; ++i)
        m.nonBlockingGetLowerCh();
    EXPECT_EQ(rig.selfTest->calls, (Lines{"volume 100", "pitch 15", "pitch 12"}));
}

TEST(ManagerPanel, SetLedColourMovesTheEncoderOnlyInColourMode) {
    ManagerRig rig;
    rig.mgr().setLEDColour(10);
    EXPECT_EQ(rig.mgr().getLEDColour(), 2);
    EXPECT_EQ(rig.encoder->encoderValue, 2);
    rig.mgr().setShaftEncoderMode(Mode::ShaftEncoderVolume);
    rig.mgr().setLEDColour(4);
    EXPECT_EQ(rig.mgr().getLEDColour(), 4);
    EXPECT_EQ(rig.encoder->encoderValue, 0);
}

TEST(ManagerPanel, AudioSetUpForEachRoute) {
    struct Case {
        int route;
        Lines calls;
        Lines lines;
    } const cases[] = {
        {2, {"setHeadphones(false)", "setSpeaker(true)"}, {"A0\n", "A1\n"}},
        {1, {"setHeadphones(true)", "setSpeaker(false)"}, {"A2\n", "A2\n"}},
        {3, {"setHeadphones(true)", "setSpeaker(true)"}, {"A2\n", "A3\n"}},
        {0, {"setHeadphones(false)", "setSpeaker(false)"}, {"A0\n", "A0\n"}},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        rig.selfTest->volume = 70;
        rig.mgr().setupForAudioOutputTests(c.route);
        EXPECT_EQ(rig.panel->calls, c.calls) << c.route;
        EXPECT_EQ(rig.panel->lines, c.lines) << c.route;
        EXPECT_EQ(rig.selfTest->calls, (Lines{"volume 0", "pitch 48"})) << c.route;
        EXPECT_EQ(rig.mgr().getShaftEncoderMode(), Mode::ShaftEncoderVolume);
        EXPECT_EQ(rig.encoder->encoderValue, 0);
        EXPECT_EQ(rig.encoder->encoderMax, 100);
        EXPECT_FALSE(rig.encoder->encoderWrap);
    }
}

TEST(ManagerPanel, ColourNamesAndValues) {
    struct Case {
        int colour;
        char const* name;
        int32_t value;
    } const cases[] = {
        {0, "WHITE", 0xFFFFFF}, {1, "YELLOW", 0xFFFF00},  {2, "CYAN", 0x00FFFF},
        {3, "GREEN", 0x00FF00}, {4, "MAGENTA", 0xFF00FF}, {5, "RED", 0xFF0000},
        {6, "BLUE", 0x0000FF},  {7, "BLACK", 0x000000},   {9, "YELLOW", 0xFFFF00},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(FrontPanelTestManager::ledColourName(c.colour).toStdString(), c.name);
        EXPECT_EQ(FrontPanelTestManager::ledColourValue(c.colour), c.value);
    }
}
