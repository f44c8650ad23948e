#pragma once

// Owns everything a test touches: the test list, the operator's terminal, the
// panel's serial link, the two input-event devices, the FPGA tone control and
// the results file. run() is the program's main loop; tests call back into the
// manager for their screen, their keys and the panel's state.

#include <QFile>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "app/ResultsFile.h"
#include "app/Terminal.h"
#include "app/UnitTest.h"
#include "comms/EventDeviceComms.h"
#include "comms/FrontPanelComms.h"
#include "comms/SelfTestFPGAComms.h"
#include "upload/JournaledUpload.h"

class FrontPanelTestManager {
public:
    // What the shaft encoder drives.
    enum ShaftEncoderMode : int32_t {
        ShaftEncoderColours = 0, // current LED colour, 0..7, wrapping
        ShaftEncoderVolume = 1,  // test-tone volume, 0..100
        ShaftEncoderPitch = 2,   // test-tone pitch index, 0..48
    };

    static constexpr int32_t kDescriptionLines = 15;
    static constexpr int32_t kPromptLines = 2;
    static constexpr int32_t kAllLeds = 255;
    static constexpr int32_t kMaxMenuTests = 26;
    static constexpr int32_t kPollMilliseconds = 100;

    // selectUnitTest() results besides a test index.
    static constexpr int kSelectQuit = -1;
    static constexpr int kSelectUploadAndQuit = -2;
    static constexpr int kExitIncompleteResults = 3;

    // Waits up to the given time, or less once one of the descriptors (the
    // serial link's, the input devices' and the terminal's; -1 for none) has
    // input; true when input ended it early.
    using Sleeper = std::function<bool(int32_t milliseconds, std::array<int, 4> const& inputFds)>;
    using Uploader = std::function<SendResult(QString const& filePath, QString const& targetDir)>;

    // Everything the manager talks to. Empty members are filled with the real
    // thing: the curses terminal, the devices at the instrument's paths, a
    // wait on those devices and the production artifact repository.
    struct Devices {
        std::unique_ptr<Terminal> terminal;
        std::unique_ptr<FrontPanelComms> panel;
        std::unique_ptr<EventDeviceComms> keyboard;
        std::unique_ptr<EventDeviceComms> encoder;
        std::unique_ptr<SelfTestFPGAComms> selfTest;
        Sleeper sleep;
        Uploader upload;
    };

    FrontPanelTestManager();
    explicit FrontPanelTestManager(Devices devices);
    // Switches the panel's LEDs and audio off (if the link was opened); the
    // terminal gives the screen back as it goes.
    ~FrontPanelTestManager();
    FrontPanelTestManager(FrontPanelTestManager const&) = delete;
    FrontPanelTestManager& operator=(FrontPanelTestManager const&) = delete;

    // ---- Test plan and run loop ----
    void addUnitTest(std::shared_ptr<UnitTest> test);
    // 0 after (Q)uit or (U)pload and quit; -1 when start-up failed or a test
    // asked to quit at once; kExitIncompleteResults after (Q)uit or (U)pload
    // when the results file lacks lines. The screen is closed whichever way
    // it ends.
    int run();
    // A test index, kSelectQuit or kSelectUploadAndQuit. May return an index
    // past the last test; the caller shows the menu again then.
    int selectUnitTest();
    // First test not passed after the current one, wrapping round to the
    // current one; the number of tests when all have passed. A test that can
    // never pass (FailTest) is offered by this search only once per run.
    int nextIncompleteTest() const;

    // ---- Keys ----
    // One poll: services the devices, redraws, reads a key without waiting.
    // Serves "c", "v", "p", "h", "s" itself (returns -1 for them). With a key
    // list (zero-ended, compared exactly as typed) returns a listed key or -1;
    // without one, any key in lower case. -1 when there is no key.
    int nonBlockingGetLowerCh(char const* validKeys = nullptr);
    // Polls until nonBlockingGetLowerCh returns a key. An empty (not null) list
    // never returns a key.
    int getLowerCh(char const* validKeys = nullptr);
    // Shows text as the prompt lines, then getLowerCh(validKeys).
    int prompt(QString const& text, char const* validKeys = nullptr);

    // ---- Test display ----
    void title(QString const& text);
    // Split at each newline; the first 15 lines are kept, the rest blanked.
    void detail(QString const& text);
    // The same with the two prompt lines (rows 19 and 21).
    void updatePrompt(QString const& text);

    // Draws the test display or the debug display, whichever is selected.
    void show();
    void showTestSummary();
    void debugFrontPanel();
    void initDisplay();
    void closeDisplay();

    // ---- Panel state ----
    // Services the serial link and both input devices, waits (up to the time
    // given, less when they or the terminal have input) and services them
    // again, so that whatever follows sees input up to that moment: panel and
    // device input that came after a key still waiting is left for after it.
    void processEvents(int32_t milliseconds);
    // Hands the encoder's value to whatever the current mode drives.
    void processShaftEncoder();
    // Lights the LED of the button pressed last in the current colour.
    void showLeds();
    // 1 when no button is down, else 0.
    int buttonTestCheckForNoPress() const;
    // 2 if index >= 17 or any other button is down, else 1 while the button
    // is down and 0 when it is up.
    int buttonTestCheckForExpected(unsigned int index) const;
    void setLEDColour(int colour);
    int32_t getLEDColour() const { return m_ledColour; }
    // Values other than the three modes are ignored.
    void setShaftEncoderMode(ShaftEncoderMode mode);
    ShaftEncoderMode getShaftEncoderMode() const { return m_encoderMode; }
    // Route bit 0 headphones, bit 1 speaker; volume 0, pitch 48, encoder on
    // volume. Route 0 switches both outputs off.
    void setupForAudioOutputTests(int route);
    // 1 plugged in, 0 not, -1 not yet reported by the panel.
    int32_t headphoneState() const;

    SelfTestFPGAComms& selfTestFPGA() { return *m_devices.selfTest; }

    // ---- Results file and board serial number ----
    void setLogFileLocation(QString const& fileName);
    QString const& logFileLocation() const { return m_logFileName; }
    // Opens (truncating) and writes the five header lines.
    bool createLogFile();
    // Appends text as it stands and flushes at once.
    void log(QString const& text);
    // One "<state> - <name>" line per top-level test.
    void logUnitTestResults();
    QString enterBoardSerialNumber();
    QString const& boardSerialNumber() const { return m_serialNumber; }

private:
    // How the tests ended: the results to write, if any, and whether to upload.
    enum class Ending { Abandoned, Quit, UploadAndQuit };
    Ending runTests();
    // The menu until the operator picks a test (its index), quits or uploads.
    int menuChoice();
    bool isTestIndex(int32_t index) const;
    // Takes input in as it comes for the whole time given; keys wait.
    void settle(int32_t milliseconds);
    // True when input came in or was decoded.
    bool servicePorts();
    void showTestDisplay();
    void showDebugDisplay();
    void showDevs();
    void showButtons();
    void showAudio();
    void showShaftEncoderMode();
    void showColours();
    void print(int row, int col, QString const& text, Terminal::Attr attr = Terminal::Attr::Normal);
    int readKeyBlocking();
    // The descriptors the waits wake on: the panel's, the two devices', the
    // terminal's.
    std::array<int, 4> inputFds() const;
    void switchPanelOff();
    bool uploadResults();
    // After the screen is closed: the earlier pending results kept aside at
    // the start, and an incomplete results file (true) with what it lacks.
    void reportResultsKeptAside() const;
    bool reportIncompleteResults();

    QString m_logFileName = QStringLiteral("/tmp/log.txt");
    ResultsFile m_logFile;
    QString m_keptAside;
    bool m_uploadRequested = false;
    Devices m_devices;
    bool m_panelOpened = false;
    int32_t m_lastLed = -1;
    int32_t m_lastColourValue = -1;
    QString m_serialNumber;
    std::array<QString, kPromptLines> m_prompt;
    std::array<QString, kDescriptionLines> m_description;
    QString m_title;
    int32_t m_currentTest = -1;
    bool m_showTestDisplay = true;
    std::vector<std::shared_ptr<UnitTest>> m_tests;
    // Tests that cannot pass and that nextIncompleteTest() has offered once.
    std::set<int32_t> m_offeredOnce;
    ShaftEncoderMode m_encoderMode = ShaftEncoderColours;
    int32_t m_ledColour = 0;
    // Input taken in after the last frame was drawn and not shown yet: the
    // next poll shows it without waiting.
    bool m_takenSinceFrame = false;
};
