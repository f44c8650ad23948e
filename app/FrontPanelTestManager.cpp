#include "app/FrontPanelTestManager.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

#include "app/DefaultDevices.h"
#include "app/LedColours.h"
#include "app/Termination.h"
#include "comms/PolledRead.h"

namespace {

constexpr int32_t kFullBrightness = 255;
constexpr int32_t kLedOff = 0;
constexpr int32_t kMaxVolume = 100;
constexpr int32_t kMaxPitch = 48;
constexpr int32_t kEncoderStep = -1;
// The eight LED colours, 0..7, wrap round on the encoder.
constexpr int32_t kColourMask = static_cast<int32_t>(kLedColours.size()) - 1;
constexpr int32_t kStartupSettleMs = 500;
// A screen waiting on the operator wakes this often to see whether a
// termination signal came in.
constexpr int32_t kOperatorWaitWakeMs = 250;
// Longest key list honoured; the rest of a longer list is ignored.
constexpr int kMaxValidKeys = 127;

} // namespace

FrontPanelTestManager::FrontPanelTestManager() : FrontPanelTestManager(Devices{}) {}

FrontPanelTestManager::FrontPanelTestManager(Devices devices) {
    fillDefaultDevices(devices);
    m_devices = std::move(devices);
    setShaftEncoderMode(ShaftEncoderColours);
}

FrontPanelTestManager::~FrontPanelTestManager() {
    switchPanelOff();
}

void FrontPanelTestManager::switchPanelOff() {
    // Only once the link was opened: before that there is nothing to send to.
    if (!m_panelOpened)
        return;
    m_devices.panel->setLed(kAllLeds, kLedOff);
    m_devices.panel->setHeadphones(false);
    m_devices.panel->setSpeaker(false);
}

// ---- Test plan and run loop ----

void FrontPanelTestManager::addUnitTest(std::shared_ptr<UnitTest> test) {
    m_tests.push_back(std::move(test));
}

int FrontPanelTestManager::run() {
    Ending const ending = runTests();
    // The plain terminal back first: a reason for failing to start (written
    // while the screen was up) and the upload's messages must stay readable.
    closeDisplay();
    if (ending == Ending::Abandoned)
        return -1;
    reportResultsKeptAside();
    logUnitTestResults();
    m_uploadRequested = ending == Ending::UploadAndQuit;
    // Results that lack lines are never sent as the board's: the operator
    // is told, and the exit status says so to a calling script.
    if (reportIncompleteResults())
        return kExitIncompleteResults;
    if (m_uploadRequested)
        uploadResults();
    return 0;
}

FrontPanelTestManager::Ending FrontPanelTestManager::runTests() {
    if (!createLogFile())
        return Ending::Abandoned;
    if (!m_devices.panel->initialize())
        return Ending::Abandoned;
    m_panelOpened = true;
    if (!m_devices.keyboard->initialize() || !m_devices.encoder->initialize())
        return Ending::Abandoned;

    m_devices.panel->setLed(kAllLeds, kLedOff);
    m_devices.panel->setBrightness(kFullBrightness);
    initDisplay();
    // The panel's answers to its set-up (version, jack) come in meanwhile.
    settle(kStartupSettleMs);

    auto const count = static_cast<int32_t>(m_tests.size());
    for (;;) {
        if (m_currentTest < 0 && count > 0)
            m_currentTest = 0;
        int const code = isTestIndex(m_currentTest)
                             ? m_tests[static_cast<std::size_t>(m_currentTest)]->run(*this)
                             : UnitTest::RunMenu;
        switch (code) {
        case UnitTest::RunQuit:
            return Ending::Abandoned;
        case UnitTest::RunFinished:
            showTestSummary();
            m_currentTest = nextIncompleteTest();
            // A FailTest never passes: offered again and again it would keep
            // the run from ever reaching the menu, (Q)uit or (U)pload.
            if (isTestIndex(m_currentTest) &&
                dynamic_cast<FailTest const*>(
                    m_tests[static_cast<std::size_t>(m_currentTest)].get()) != nullptr)
                m_offeredOnce.insert(m_currentTest);
            break;
        case UnitTest::RunDebug:
            debugFrontPanel();
            break;
        case UnitTest::RunMenu: {
            int const choice = menuChoice();
            if (choice == kSelectQuit)
                return Ending::Quit;
            if (choice == kSelectUploadAndQuit)
                return Ending::UploadAndQuit;
            m_currentTest = choice;
            break;
        }
        default:
            break; // the same test again
        }
    }
}

int FrontPanelTestManager::menuChoice() {
    for (;;) {
        int const selection = selectUnitTest();
        if (selection == kSelectQuit || selection == kSelectUploadAndQuit || isTestIndex(selection))
            return selection;
    }
}

bool FrontPanelTestManager::isTestIndex(int32_t index) const {
    return index >= 0 && index < static_cast<int32_t>(m_tests.size());
}

int FrontPanelTestManager::nextIncompleteTest() const {
    auto const count = static_cast<int32_t>(m_tests.size());
    auto const incomplete = [&](int32_t i) {
        return m_tests[static_cast<std::size_t>(i)]->state != UnitTest::Passed &&
               m_offeredOnce.count(i) == 0;
    };
    for (int32_t i = m_currentTest + 1; i < count; ++i)
        if (i >= 0 && incomplete(i))
            return i;
    if (m_currentTest >= 0)
        for (int32_t i = 0; i <= m_currentTest && i < count; ++i)
            if (incomplete(i))
                return i;
    return count;
}

// ---- Keys ----

int FrontPanelTestManager::nonBlockingGetLowerCh(char const* validKeys) {
    processEvents(kPollMilliseconds);
    processShaftEncoder();
    show();
    // What came while the frame was drawn, up to the key about to be read.
    // A detent taken in here is applied at the next poll, after the test has
    // seen the colour the LED now shows: an operator who turns again as soon
    // as the LED changes would otherwise skip a target of the colour walk
    // whenever a frame takes longer to draw than the turn.
    m_takenSinceFrame = servicePorts();
    int const key = m_devices.terminal->readKey();
    fpt::throwIfTerminationRequested();
    if (key == Terminal::kNoKey || key < 0)
        return -1;

    // The operator's panel controls, served whatever the test is waiting for.
    // A detent turned before a mode key still counts in the mode it was
    // turned in.
    switch (key) {
    case 'c':
        processShaftEncoder();
        setShaftEncoderMode(ShaftEncoderColours);
        return -1;
    case 'v':
        processShaftEncoder();
        setShaftEncoderMode(ShaftEncoderVolume);
        return -1;
    case 'p':
        processShaftEncoder();
        setShaftEncoderMode(ShaftEncoderPitch);
        return -1;
    case 'h':
        m_devices.panel->setHeadphones(!m_devices.panel->headphones);
        return -1;
    case 's':
        m_devices.panel->setSpeaker(!m_devices.panel->speaker);
        return -1;
    default:
        break;
    }

    if (validKeys != nullptr) {
        // Compared as typed: an upper-case answer is not one of the keys.
        for (int i = 0; i < kMaxValidKeys && validKeys[i] != '\0'; ++i)
            if (key == static_cast<unsigned char>(validKeys[i]))
                return key;
        return -1;
    }
    return key < 256 ? std::tolower(key) : key;
}

int FrontPanelTestManager::getLowerCh(char const* validKeys) {
    for (;;) {
        int const key = nonBlockingGetLowerCh(validKeys);
        if (key != -1)
            return key;
    }
}

int FrontPanelTestManager::prompt(QString const& text, char const* validKeys) {
    updatePrompt(text);
    return getLowerCh(validKeys);
}

int FrontPanelTestManager::readKeyBlocking() {
    // The screen stays as it is, but the devices' input is still taken in as
    // it comes and applied up to the key: a knob turned or a button pressed
    // before the operator's choice is not applied to the test chosen.
    for (;;) {
        servicePorts();
        int const key = m_devices.terminal->readKey();
        fpt::throwIfTerminationRequested();
        if (key != Terminal::kNoKey)
            return key;
        int32_t const ready = m_devices.terminal->keyReadyInMs();
        m_devices.sleep(ready >= 0 ? ready : kOperatorWaitWakeMs, inputFds());
    }
}

std::array<int, 4> FrontPanelTestManager::inputFds() const {
    return {m_devices.panel->fd, m_devices.keyboard->fd, m_devices.encoder->fd,
            m_devices.terminal->inputFd()};
}

// ---- Panel state ----

void FrontPanelTestManager::processEvents(int32_t milliseconds) {
    // Input taken in here came while the last frame was drawn, or waited
    // behind a key just served: it is shown without waiting. So is a key
    // already taken in; an escape sequence still incomplete is waited for
    // only as long as it may still be coming.
    bool const unshown = std::exchange(m_takenSinceFrame, false);
    int32_t wait = servicePorts() || unshown ? 0 : milliseconds;
    int32_t const keyReady = m_devices.terminal->keyReadyInMs();
    if (keyReady >= 0)
        wait = std::min(wait, keyReady);
    m_devices.sleep(wait, inputFds());
    // Again after the wait: a key read next must not be judged against panel
    // state older than itself (a jack report or a button press that came in
    // meanwhile), and a button's LED follows as soon as it is pressed.
    servicePorts();
}

void FrontPanelTestManager::settle(int32_t milliseconds) {
    // Watching every input, so that a key typed meanwhile is stamped when it
    // came, not when the time is up.
    int64_t const end = comms::arrivalClockUs() + int64_t{milliseconds} * 1000;
    for (;;) {
        servicePorts();
        int64_t const left = (end - comms::arrivalClockUs() + 999) / 1000;
        if (left <= 0 || !m_devices.sleep(static_cast<int32_t>(left), inputFds()))
            break;
    }
    servicePorts();
}

bool FrontPanelTestManager::servicePorts() {
    // Input is handled in the order it came. Every key is stamped on
    // arrival, and device input that came before a key is then sure to be
    // read before that key is served. What came after
    // the next key waiting (the devices' records, stamped by the kernel on
    // the same clock, and the panel's lines, stamped as read) is held back
    // until that key has been served.
    auto const progress = [this] {
        return std::array<std::size_t, 6>{
            m_devices.panel->bytesReceived,    m_devices.panel->readQueue.size(),
            m_devices.keyboard->bytesReceived, m_devices.keyboard->readQueue.size(),
            m_devices.encoder->bytesReceived,  m_devices.encoder->readQueue.size()};
    };
    auto const before = progress();
    // The panel's line carries no time of its own: its bytes are taken in
    // just before the terminal's, so a report already waiting when a key is
    // read is stamped ahead of that key and the key is judged with it (the
    // operator plugs the headphones, then answers).
    m_devices.panel->fillReadQueue();
    m_devices.terminal->takeIn();
    std::optional<int64_t> const heldAfter = m_devices.terminal->nextKeyUs();
    m_devices.panel->holdLinesAfterUs = heldAfter;
    m_devices.keyboard->holdRecordsAfterUs = heldAfter;
    m_devices.encoder->holdRecordsAfterUs = heldAfter;
    m_devices.panel->servicePort();
    m_devices.keyboard->servicePort();
    m_devices.encoder->servicePort();
    return progress() != before;
}

void FrontPanelTestManager::processShaftEncoder() {
    switch (m_encoderMode) {
    case ShaftEncoderVolume:
        m_devices.selfTest->setVolume(m_devices.encoder->encoderValue);
        break;
    case ShaftEncoderPitch:
        m_devices.selfTest->setPitch(m_devices.encoder->encoderValue);
        break;
    case ShaftEncoderColours:
        m_ledColour = m_devices.encoder->encoderValue & kColourMask;
        break;
    }
}

void FrontPanelTestManager::showLeds() {
    int32_t const pressed = m_devices.keyboard->lastButton;
    int32_t const value = ledColour(m_ledColour).rgb;
    if (pressed != m_lastLed) {
        m_devices.panel->setLed(m_lastLed, kLedOff);
        m_devices.panel->setLed(pressed, value);
        m_lastLed = pressed;
    } else if (value != m_lastColourValue) {
        m_devices.panel->setLed(m_lastLed, value);
        m_lastColourValue = value;
    }
}

int FrontPanelTestManager::buttonTestCheckForNoPress() const {
    for (int32_t s : m_devices.keyboard->buttonState)
        if (s != 0)
            return 0;
    return 1;
}

int FrontPanelTestManager::buttonTestCheckForExpected(unsigned int index) const {
    if (index >= static_cast<unsigned int>(EventDeviceComms::kButtonCount))
        return 2;
    for (unsigned int i = 0; i < static_cast<unsigned int>(EventDeviceComms::kButtonCount); ++i)
        if (i != index && m_devices.keyboard->buttonState[i] != 0)
            return 2;
    return m_devices.keyboard->buttonState[index] != 0 ? 1 : 0;
}

void FrontPanelTestManager::setLEDColour(int colour) {
    m_ledColour = colour & kColourMask;
    if (m_encoderMode == ShaftEncoderColours)
        m_devices.encoder->encoderValue = m_ledColour;
}

void FrontPanelTestManager::setShaftEncoderMode(ShaftEncoderMode mode) {
    switch (mode) {
    case ShaftEncoderColours:
        m_devices.encoder->setShaftEncoderMode(m_ledColour, 0, kColourMask, kEncoderStep, true);
        break;
    case ShaftEncoderVolume:
        m_devices.encoder->setShaftEncoderMode(m_devices.selfTest->volume, 0, kMaxVolume,
                                               kEncoderStep, false);
        break;
    case ShaftEncoderPitch:
        m_devices.encoder->setShaftEncoderMode(m_devices.selfTest->pitch, 0, kMaxPitch,
                                               kEncoderStep, false);
        break;
    default:
        return;
    }
    m_encoderMode = mode;
}

void FrontPanelTestManager::setupForAudioOutputTests(int route) {
    m_devices.panel->setHeadphones((route & 1) != 0);
    m_devices.panel->setSpeaker((route & 2) != 0);
    m_devices.selfTest->setVolume(0);
    setShaftEncoderMode(ShaftEncoderVolume);
    m_devices.selfTest->setPitch(kMaxPitch);
}

int32_t FrontPanelTestManager::headphoneState() const {
    return m_devices.panel->headphoneState;
}
