// The operator's screens at their rows and columns: the test display, the
// debug display, the menu and the summary.

#include <gtest/gtest.h>

#include "app/testing/ManagerRig.h"
#include "app/testing/ScriptedUnitTest.h"

using fpt::testing::ManagerRig;
using fpt::testing::ScriptedUnitTest;
using Attr = Terminal::Attr;

namespace {

// Polls once with no key so the current display is drawn.
void pollOnce(ManagerRig& rig) {
    rig.terminal->noKey();
    rig.mgr().nonBlockingGetLowerCh();
}

std::shared_ptr<ScriptedUnitTest> namedTest(char const* name, int32_t state) {
    auto t = std::make_shared<ScriptedUnitTest>(QString::fromLatin1(name));
    t->state = state;
    return t;
}

} // namespace

TEST(TestDisplay, TitleDescriptionAndPromptAtTheirRows) {
    ManagerRig rig;
    auto& m = rig.mgr();
    m.initDisplay();
    m.title(QStringLiteral("\"F3\" Button Test"));
    QString longText;
    for (int i = 1; i <= 17; ++i)
        longText += QStringLiteral("line %1%2").arg(i).arg(i < 17 ? "\n" : "");
    m.detail(longText);
    m.updatePrompt(
        QStringLiteral("ERROR: \"F3\" was not the last button pressed\n (M)enu, (D)ebug, "
                       "(R)etry or (Q)uit : "));
    pollOnce(rig);
    auto& t = *rig.terminal;
    EXPECT_EQ(t.row(0), "\"F3\" Button Test");
    EXPECT_EQ(t.attrAt(0, 0), Attr::Bold);
    EXPECT_EQ(t.row(1), "");
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(t.row(2 + i), "  line " + std::to_string(i + 1));
    EXPECT_EQ(t.attrAt(2, 2), Attr::Normal);
    EXPECT_EQ(t.row(17), ""); // lines 16 and 17 are dropped
    EXPECT_EQ(t.row(18), "");
    EXPECT_EQ(t.row(19), "    ERROR: \"F3\" was not the last button pressed");
    EXPECT_EQ(t.row(20), "");
    EXPECT_EQ(t.row(21), "     (M)enu, (D)ebug, (R)etry or (Q)uit :");
    EXPECT_EQ(t.row(22), "");

    // A shorter description, with an empty line kept, blanks the rest.
    m.detail(QStringLiteral("one\n\nthree"));
    m.updatePrompt(QStringLiteral("single"));
    pollOnce(rig);
    EXPECT_EQ(t.row(2), "  one");
    EXPECT_EQ(t.row(3), "");
    EXPECT_EQ(t.row(4), "  three");
    for (int r = 5; r <= 16; ++r)
        EXPECT_EQ(t.row(r), "") << r;
    EXPECT_EQ(t.row(19), "    single");
    EXPECT_EQ(t.row(21), "");
    EXPECT_EQ(m.descriptionLines()[2], QStringLiteral("three"));
    EXPECT_EQ(m.promptLines()[1], QString());
}

TEST(DebugDisplay, ShowsTheLiveStateOfEveryDevice) {
    ManagerRig rig;
    auto& m = rig.mgr();
    m.initDisplay();
    m.title(QStringLiteral("Some Test"));
    std::string debugScreen;
    rig.terminal
        ->action([&] {
            rig.panel->version = QStringLiteral("V1.2");
            rig.panel->fpgaVersion = QStringLiteral("F3.4");
            rig.keyboard->pressNow(0);
            rig.keyboard->repeatNow(4);
            rig.keyboard->buttonState[16] = 9;
            rig.panel->headphones = true;
            rig.panel->headphoneState = 1;
            rig.selfTest->volume = 42;
            rig.selfTest->pitch = 7;
            m.setShaftEncoderMode(FrontPanelTestManager::ShaftEncoderVolume);
            m.setLEDColour(3);
            rig.panel->bytesSent = 1234;
            rig.panel->bytesReceived = 56;
            rig.keyboard->bytesReceived = 4294967295u; // shown as a signed count
            rig.encoder->bytesReceived = 123456789;
        })
        .key('x')
        .action([&] { debugScreen = rig.terminal->screenText(); })
        .keys("Yy");
    m.debugFrontPanel();

    auto const row = [&](int r) {
        return fpt::testing::ScriptedTerminal::frameRow(debugScreen, r);
    };
    EXPECT_EQ(row(0), "Front Panel Test App - ARM Version : V1.2   FPGA  Version : F3.4");
    EXPECT_EQ(row(1), "    /dev/cv084_app                : TX(    1234) RX(      56)");
    EXPECT_EQ(row(2), "    /dev/input/cv084_fp_keyboard  : TX(       0) RX(      -1)");
    EXPECT_EQ(row(3), "    /dev/input/cv084_fp_mouse     : TX(       0) RX(123456789)");
    EXPECT_EQ(row(4), "");
    EXPECT_EQ(row(5), "    CalvBtn : Push     F1      :         F2      :");
    EXPECT_EQ(row(6), "    F3      :          F4      : Auto    F5      :");
    EXPECT_EQ(row(7), "    F6      :          F7      :         F8      :");
    EXPECT_EQ(row(8), "    F9      :          F10     :         Down    :");
    EXPECT_EQ(row(9), "    Left    :          Up      :         Right   :");
    EXPECT_EQ(row(10), "    OK      :          ShftEnc : Error");
    EXPECT_EQ(row(11), "");
    EXPECT_EQ(row(12), "(H)eadphones: On  (S)peaker: Off   Headphones: In");
    EXPECT_EQ(row(13), "");
    EXPECT_EQ(row(14), " (C)olours      (V)olume:  42     (P)itch:   7");
    EXPECT_EQ(row(15), "    white   yellow    cyan   [ GREEN ] magenta    red     blue     black");
    EXPECT_EQ(row(21), "    Press (Y) to return to tests :");
    // Back on the test display once "y" was typed.
    EXPECT_TRUE(m.showingTestDisplay());
    EXPECT_EQ(rig.terminal->row(0), "Some Test");
    EXPECT_EQ(rig.terminal->row(21), "");
}

TEST(DebugDisplay, HighlightsTheEncoderModeAndTheColour) {
    struct Case {
        int mode;
        int highlightedCol;
    } const cases[] = {{0, 0}, {1, 15}, {2, 33}};
    for (auto const& c : cases) {
        ManagerRig rig;
        rig.mgr().initDisplay();
        rig.mgr().setLEDColour(6);
        rig.mgr().setShaftEncoderMode(static_cast<FrontPanelTestManager::ShaftEncoderMode>(c.mode));
        std::vector<Attr> modeAttrs, colourAttrs;
        rig.terminal->action([&] {
            for (int col : {0, 15, 33})
                modeAttrs.push_back(rig.terminal->attrAt(14, col));
            for (int i = 0; i < 8; ++i)
                colourAttrs.push_back(rig.terminal->attrAt(15, 2 + 9 * i));
        });
        rig.terminal->key('y');
        rig.mgr().debugFrontPanel();
        int const modeCols[] = {0, 15, 33};
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_EQ(modeAttrs[i],
                      modeCols[i] == c.highlightedCol ? Attr::Highlight : Attr::Normal);
        for (std::size_t i = 0; i < 8; ++i)
            EXPECT_EQ(colourAttrs[i], i == 6 ? Attr::Bold : Attr::Normal);
    }
}

TEST(DebugDisplay, AudioLine) {
    struct Case {
        bool headphones, speaker;
        int32_t detector;
        char const* keys; // the panel's keys act while the display waits
        char const* row;
    } const cases[] = {
        {false, false, 0, "", "(H)eadphones: Off (S)peaker: Off   Headphones: Out"},
        {true, true, 1, "", "(H)eadphones: On  (S)peaker: On    Headphones: In"},
        {false, true, -1, "", "(H)eadphones: Off (S)peaker: On    Headphones: ERR"},
        {false, false, 2, "", "(H)eadphones: Off (S)peaker: Off   Headphones: ERR"},
        {false, false, -1, "hsq", "(H)eadphones: On  (S)peaker: On    Headphones: ERR"},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        rig.mgr().initDisplay();
        rig.panel->headphones = c.headphones;
        rig.panel->speaker = c.speaker;
        rig.panel->headphoneState = c.detector;
        std::string row12;
        rig.terminal->keys(c.keys).action([&] { row12 = rig.terminal->row(12); }).key('y');
        rig.mgr().debugFrontPanel();
        EXPECT_EQ(row12, c.row) << c.keys;
    }
}

TEST(Menu, RowsAndSelection) {
    struct Case {
        char const* typed;
        int expected;
        int menuDraws;
    } const cases[] = {
        {"1", 0, 1},  {"3", 2, 1},  {"0", 9, 1},  {"b", 11, 1}, {"p", 25, 1},  {"q", -1, 1},
        {"Q", -1, 1}, {"u", -2, 1}, {"U", -2, 1}, {"B", 11, 1}, {"z!2", 1, 3},
    };
    for (auto const& c : cases) {
        ManagerRig rig;
        auto& m = rig.mgr();
        m.addUnitTest(namedTest("Shaft Encoder Tests", 0));
        m.addUnitTest(namedTest("Button Tests", 1));
        m.addUnitTest(namedTest("Headphone Jack Detection Test", 2));
        bool blockingEcho = false;
        rig.terminal->action([&] { blockingEcho = rig.terminal->blocking && rig.terminal->echo; });
        rig.terminal->keys(c.typed);
        EXPECT_EQ(m.selectUnitTest(), c.expected) << c.typed;
        EXPECT_TRUE(blockingEcho) << "the menu reads keys blocking, with echo";
        EXPECT_TRUE(rig.terminal->isStarted()); // the menu starts the screen itself
        EXPECT_EQ(rig.panel->serviceCalls, 0);  // and polls no device
        EXPECT_TRUE(rig.terminal->scriptDone()) << c.typed;
        EXPECT_FALSE(rig.terminal->blocking || rig.terminal->echo)
            << "key reads are non-blocking again, echo off";
        auto& t = *rig.terminal;
        EXPECT_EQ(t.row(0), "Select Front Panel Test");
        EXPECT_EQ(t.attrAt(0, 0), Attr::Bold);
        EXPECT_EQ(t.row(1), "");
        EXPECT_EQ(t.row(2), "  1) PASSED  - Shaft Encoder Tests");
        EXPECT_EQ(t.row(3), "  2) FAIL!!  - Button Tests");
        EXPECT_EQ(t.row(4), "  3) Not Run - Headphone Jack Detection Test");
        EXPECT_EQ(t.row(5), "");
        EXPECT_EQ(t.row(21), "      Selection, (Q)uit, (U)pload and quit :");
        EXPECT_EQ(t.refreshCount, c.menuDraws) << c.typed;
    }
}

// On a 24-row terminal a long list runs under the prompt and off the screen.
TEST(Menu, LongListUnderThePrompt) {
    ManagerRig rig;
    for (int i = 0; i < 30; ++i)
        rig.mgr().addUnitTest(namedTest("T", 2));
    rig.terminal->key('q');
    rig.mgr().selectUnitTest();
    EXPECT_EQ(rig.terminal->row(20), "  i) Not Run - T");
    EXPECT_EQ(rig.terminal->row(21), "  j) NSelection, (Q)uit, (U)pload and quit :");
    EXPECT_EQ(rig.terminal->row(23), "  l) Not Run - T");
}

TEST(Summary, ShowsNameAndResultAndWaitsForAnyKey) {
    ManagerRig rig;
    auto& m = rig.mgr();
    m.initDisplay();
    auto t = namedTest("\"F3\" Button Test", 1);
    t->result = QStringLiteral("FAILED User Reported Failure");
    m.addUnitTest(namedTest("first", 0));
    m.addUnitTest(t);
    m.setCurrentTestIndex(1);
    bool blocking = false;
    rig.terminal->noKey(3).action([&] { blocking = rig.terminal->blocking; }).key('Z');
    m.showTestSummary();
    EXPECT_TRUE(rig.terminal->scriptDone());
    EXPECT_TRUE(blocking);
    EXPECT_FALSE(rig.terminal->blocking);
    auto& s = *rig.terminal;
    EXPECT_EQ(s.row(0), "\"F3\" Button Test");
    EXPECT_EQ(s.attrAt(0, 0), Attr::Bold);
    EXPECT_EQ(s.row(1), "");
    EXPECT_EQ(s.row(2), "  FAILED User Reported Failure");
    EXPECT_EQ(s.attrAt(2, 2), Attr::Bold);
    EXPECT_EQ(s.row(21), "    Press Any Key to continue :");
    EXPECT_EQ(s.refreshCount, 1);
    EXPECT_EQ(rig.panel->serviceCalls, 0);
    EXPECT_TRUE(rig.sleeps.empty());
}
