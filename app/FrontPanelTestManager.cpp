#include "app/FrontPanelTestManager.h"

#include <cctype>

#include "app/DefaultDevices.h"
#include "app/Termination.h"

namespace {

constexpr int32_t kFullBrightness = 255;
constexpr int32_t kLedOff = 0;
constexpr int32_t kMaxVolume = 100;
constexpr int32_t kMaxPitch = 48;
constexpr int32_t kEncoderStep = -1;
constexpr int32_t kStartupSettleMs = 500;
// Longest key list honoured; the rest of a longer list is ignored.
constexpr int kMaxValidKeys = 127;

} // namespace

FrontPanelTestManager::FrontPanelTestManager() : FrontPanelTestManager(Devices{}) {}

FrontPanelTestManager::FrontPanelTestManager(Devices devices) {
    fillDefaultDevices(devices);
    m_terminal = std::move(devices.terminal);
    m_panel = std::move(devices.panel);
    m_keyboard = std::move(devices.keyboard);
    m_encoder = std::move(devices.encoder);
    m_selfTest = std::move(devices.selfTest);
    m_sleep = std::move(devices.sleep);
    m_upload = std::move(devices.upload);
    setShaftEncoderMode(ShaftEncoderColours);
}

FrontPanelTestManager::~FrontPanelTestManager() {
    switchPanelOff();
    closeDisplay();
}

void FrontPanelTestManager::switchPanelOff() {
    // Only once the link was opened: before that there is nothing to send to.
    if (!m_panelOpened)
        return;
    m_panel->setLed(kAllLeds, kLedOff);
    m_panel->setHeadphones(false);
    m_panel->setSpeaker(false);
}

// ---- Test plan and run loop ----

void FrontPanelTestManager::addUnitTest(std::shared_ptr<UnitTest> test) {
    m_tests.push_back(std::move(test));
}

int FrontPanelTestManager::run() {
    if (!createLogFile())
        return -1;
    if (!m_panel->initialize())
        return -1;
    m_panelOpened = true;
    if (!m_keyboard->initialize() || !m_encoder->initialize())
        return -1;

    m_panel->setLed(kAllLeds, kLedOff);
    m_panel->setBrightness(kFullBrightness);
    initDisplay();
    processEvents(kStartupSettleMs);

    auto const count = static_cast<int32_t>(m_tests.size());
    auto const validIndex = [&](int32_t i) { return i >= 0 && i < count; };

    for (;;) {
        if (m_currentTest < 0 && count > 0)
            m_currentTest = 0;

        bool wantMenu = !validIndex(m_currentTest);
        if (!wantMenu) {
            int const code = m_tests[static_cast<std::size_t>(m_currentTest)]->run(*this);
            switch (code) {
            case UnitTest::RunQuit:
                closeDisplay();
                return -1;
            case UnitTest::RunFinished:
                showTestSummary();
                m_currentTest = nextIncompleteTest();
                continue;
            case UnitTest::RunDebug:
                debugFrontPanel();
                continue;
            case UnitTest::RunMenu:
                wantMenu = true;
                break;
            default:
                continue;
            }
        }

        for (;;) {
            int const selection = selectUnitTest();
            if (selection == kSelectQuit) {
                closeDisplay();
                logUnitTestResults();
                return 0;
            }
            if (selection == kSelectUploadAndQuit) {
                closeDisplay();
                logUnitTestResults();
                uploadResults();
                return 0;
            }
            if (validIndex(selection)) {
                m_currentTest = selection;
                break;
            }
        }
    }
}

int FrontPanelTestManager::nextIncompleteTest() const {
    auto const count = static_cast<int32_t>(m_tests.size());
    auto const incomplete = [&](int32_t i) {
        return m_tests[static_cast<std::size_t>(i)]->state != UnitTest::Passed;
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
    int const key = m_terminal->readKey();
    fpt::throwIfTerminationRequested();
    if (key == Terminal::kNoKey || key < 0)
        return -1;

    // The operator's panel controls, served whatever the test is waiting for.
    switch (key) {
    case 'c':
        setShaftEncoderMode(ShaftEncoderColours);
        return -1;
    case 'v':
        setShaftEncoderMode(ShaftEncoderVolume);
        return -1;
    case 'p':
        setShaftEncoderMode(ShaftEncoderPitch);
        return -1;
    case 'h':
        m_panel->setHeadphones(!m_panel->headphones);
        return -1;
    case 's':
        m_panel->setSpeaker(!m_panel->speaker);
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
    for (;;) {
        int const key = m_terminal->readKey();
        fpt::throwIfTerminationRequested();
        if (key != Terminal::kNoKey)
            return key;
    }
}

// ---- Panel state ----

void FrontPanelTestManager::processEvents(int32_t milliseconds) {
    m_panel->servicePort();
    m_keyboard->servicePort();
    m_encoder->servicePort();
    m_sleep(milliseconds);
}

void FrontPanelTestManager::processShaftEncoder() {
    switch (m_encoderMode) {
    case ShaftEncoderVolume:
        m_selfTest->setVolume(m_encoder->encoderValue);
        break;
    case ShaftEncoderPitch:
        m_selfTest->setPitch(m_encoder->encoderValue);
        break;
    case ShaftEncoderColours:
        m_ledColour = m_encoder->encoderValue & (kLedColours - 1);
        break;
    }
}

void FrontPanelTestManager::showLeds() {
    int32_t const pressed = m_keyboard->lastButton;
    int32_t const value = ledColourValue(m_ledColour);
    if (pressed != m_lastLed) {
        m_panel->setLed(m_lastLed, kLedOff);
        m_panel->setLed(pressed, value);
        m_lastLed = pressed;
    } else if (value != m_lastColourValue) {
        m_panel->setLed(m_lastLed, value);
        m_lastColourValue = value;
    }
}

int FrontPanelTestManager::buttonTestCheckForNoPress() const {
    for (int32_t s : m_keyboard->buttonState)
        if (s != 0)
            return 0;
    return 1;
}

int FrontPanelTestManager::buttonTestCheckForExpected(unsigned int index) const {
    if (index >= static_cast<unsigned int>(EventDeviceComms::kButtonCount))
        return 2;
    for (unsigned int i = 0; i < static_cast<unsigned int>(EventDeviceComms::kButtonCount); ++i)
        if (i != index && m_keyboard->buttonState[i] != 0)
            return 2;
    return m_keyboard->buttonState[index] != 0 ? 1 : 0;
}

void FrontPanelTestManager::setLEDColour(int colour) {
    m_ledColour = colour & (kLedColours - 1);
    if (m_encoderMode == ShaftEncoderColours)
        m_encoder->encoderValue = m_ledColour;
}

void FrontPanelTestManager::setShaftEncoderMode(ShaftEncoderMode mode) {
    switch (mode) {
    case ShaftEncoderColours:
        m_encoder->setShaftEncoderMode(m_ledColour, 0, kLedColours - 1, kEncoderStep, true);
        break;
    case ShaftEncoderVolume:
        m_encoder->setShaftEncoderMode(m_selfTest->volume, 0, kMaxVolume, kEncoderStep, false);
        break;
    case ShaftEncoderPitch:
        m_encoder->setShaftEncoderMode(m_selfTest->pitch, 0, kMaxPitch, kEncoderStep, false);
        break;
    default:
        return;
    }
    m_encoderMode = mode;
}

void FrontPanelTestManager::setupForAudioOutputTests(int route) {
    m_panel->setHeadphones((route & 1) != 0);
    m_panel->setSpeaker((route & 2) != 0);
    m_selfTest->setVolume(0);
    setShaftEncoderMode(ShaftEncoderVolume);
    m_selfTest->setPitch(kMaxPitch);
}

int32_t FrontPanelTestManager::headphoneState() const {
    return m_panel->headphoneState;
}

QString FrontPanelTestManager::ledColourName(int colour) {
    static char const* const names[kLedColours] = {"WHITE",   "YELLOW", "CYAN", "GREEN",
                                                   "MAGENTA", "RED",    "BLUE", "BLACK"};
    return QString::fromLatin1(names[colour & (kLedColours - 1)]);
}

int32_t FrontPanelTestManager::ledColourValue(int colour) {
    static constexpr int32_t values[kLedColours] = {0xFFFFFF, 0xFFFF00, 0x00FFFF, 0x00FF00,
                                                    0xFF00FF, 0xFF0000, 0x0000FF, 0x000000};
    return values[colour & (kLedColours - 1)];
}
