// The operator's screens: the test display and the debug display (redrawn on
// every key poll), the test menu, the summary and the board serial number
// entry (drawn when shown).

#include <QStringList>
#include <algorithm>
#include <cctype>

#include "app/FrontPanelTestManager.h"
#include "app/LedColours.h"
#include "app/Termination.h"

namespace {

using Attr = Terminal::Attr;

constexpr int kTitleRow = 0;
constexpr int kDescriptionRow = 2;
constexpr int kDescriptionCol = 2;
constexpr int kPromptRows[FrontPanelTestManager::kPromptLines] = {19, 21};
constexpr int kPromptCol = 4;

constexpr char kMenuAlphabet[] = "1234567890abcdefghijklmnop";

constexpr int kButtonRow = 5;
constexpr int kButtonCols[3] = {4, 23, 41};
char const* const kButtonLabels[EventDeviceComms::kButtonCount] = {
    "CalvBtn", "F1",  "F2",   "F3",   "F4", "F5",    "F6", "F7",     "F8",
    "F9",      "F10", "Down", "Left", "Up", "Right", "OK", "ShftEnc"};

constexpr int kSerialMaxChars = 80;

// Splits at each newline, empty pieces kept; the first lines.size() pieces
// are stored and the remaining lines emptied.
template <std::size_t N> void splitInto(std::array<QString, N>& lines, QString const& text) {
    QStringList const pieces = text.split(QLatin1Char('\n'));
    for (std::size_t i = 0; i < N; ++i)
        lines[i] = static_cast<int>(i) < pieces.size() ? pieces[static_cast<int>(i)] : QString();
}

char const* buttonStateText(int32_t state) {
    switch (state) {
    case 0:
        return "";
    case 1:
        return "Push";
    case 2:
        return "Auto";
    default:
        return "Error";
    }
}

} // namespace

void FrontPanelTestManager::print(int row, int col, QString const& text, Terminal::Attr attr) {
    m_devices.terminal->print(row, col, text.toStdString(), attr);
}

void FrontPanelTestManager::title(QString const& text) {
    m_title = text;
}

void FrontPanelTestManager::detail(QString const& text) {
    splitInto(m_description, text);
}

void FrontPanelTestManager::updatePrompt(QString const& text) {
    splitInto(m_prompt, text);
}

void FrontPanelTestManager::initDisplay() {
    if (m_devices.terminal->isStarted())
        return;
    m_devices.terminal->start();
    m_devices.terminal->setInputMode(false, false);
}

void FrontPanelTestManager::closeDisplay() {
    m_devices.terminal->stop();
}

void FrontPanelTestManager::show() {
    if (m_showTestDisplay)
        showTestDisplay();
    else
        showDebugDisplay();
}

void FrontPanelTestManager::showTestDisplay() {
    // erase(), not clear(): only the cells that changed are sent.
    m_devices.terminal->erase();
    showLeds();
    print(kTitleRow, 0, m_title, Attr::Bold);
    for (int i = 0; i < kDescriptionLines; ++i)
        print(kDescriptionRow + i, kDescriptionCol, m_description[static_cast<std::size_t>(i)]);
    for (int i = 0; i < kPromptLines; ++i)
        print(kPromptRows[i], kPromptCol, m_prompt[static_cast<std::size_t>(i)]);
    m_devices.terminal->refresh();
}

void FrontPanelTestManager::showDebugDisplay() {
    m_devices.terminal->erase();
    print(0, 0,
          QString::asprintf("Front Panel Test App - ARM Version : %s   FPGA  Version : %s",
                            m_devices.panel->version.toLocal8Bit().constData(),
                            m_devices.panel->fpgaVersion.toLocal8Bit().constData()));
    showDevs();
    showButtons();
    showAudio();
    showShaftEncoderMode();
    showColours();
    showLeds();
    print(21, 4, QStringLiteral("Press (Y) to return to tests : "));
    m_devices.terminal->refresh();
}

void FrontPanelTestManager::showDevs() {
    auto const line = [](QString const& path, uint32_t tx, uint32_t rx) {
        return QString::asprintf("%-28s  : TX(%8d) RX(%8d)", path.toLocal8Bit().constData(),
                                 static_cast<int>(tx), static_cast<int>(rx));
    };
    print(1, 4,
          line(m_devices.panel->devicePath, m_devices.panel->bytesSent,
               m_devices.panel->bytesReceived));
    print(2, 4,
          line(m_devices.keyboard->devicePath, m_devices.keyboard->bytesSent,
               m_devices.keyboard->bytesReceived));
    print(3, 4,
          line(m_devices.encoder->devicePath, m_devices.encoder->bytesSent,
               m_devices.encoder->bytesReceived));
}

void FrontPanelTestManager::showButtons() {
    for (int i = 0; i < EventDeviceComms::kButtonCount; ++i)
        print(kButtonRow + i / 3, kButtonCols[i % 3],
              QString::asprintf(
                  "%-7s : %-4s", kButtonLabels[i],
                  buttonStateText(m_devices.keyboard->buttonState[static_cast<std::size_t>(i)])));
}

void FrontPanelTestManager::showAudio() {
    print(12, 0,
          m_devices.panel->headphones ? QStringLiteral("(H)eadphones: On ")
                                      : QStringLiteral("(H)eadphones: Off"));
    print(12, 18,
          m_devices.panel->speaker ? QStringLiteral("(S)peaker: On ")
                                   : QStringLiteral("(S)peaker: Off"));
    QString detector;
    switch (m_devices.panel->headphoneState) {
    case 0:
        detector = QStringLiteral("Headphones: Out");
        break;
    case 1:
        detector = QStringLiteral("Headphones: In");
        break;
    default:
        detector = QStringLiteral("Headphones: ERR");
        break;
    }
    print(12, 35, detector);
}

void FrontPanelTestManager::showShaftEncoderMode() {
    auto const attr = [this](ShaftEncoderMode mode) {
        return m_encoderMode == mode ? Attr::Highlight : Attr::Normal;
    };
    print(14, 0, QStringLiteral(" (C)olours "), attr(ShaftEncoderColours));
    print(14, 15, QStringLiteral(" (V)olume: %1 ").arg(m_devices.selfTest->volume, 3),
          attr(ShaftEncoderVolume));
    print(14, 33, QStringLiteral(" (P)itch: %1 ").arg(m_devices.selfTest->pitch, 3),
          attr(ShaftEncoderPitch));
}

void FrontPanelTestManager::showColours() {
    for (int i = 0; i < static_cast<int>(kLedColours.size()); ++i) {
        bool const current = i == m_ledColour;
        LedColour const& colour = ledColour(i);
        print(15, 2 + 9 * i, QString::fromLatin1(current ? colour.currentLabel : colour.label),
              current ? Attr::Bold : Attr::Normal);
    }
}

int FrontPanelTestManager::selectUnitTest() {
    initDisplay();
    m_devices.terminal->setInputMode(true, true);
    auto const shown = std::min<std::size_t>(m_tests.size(), kMaxMenuTests);
    QString const alphabet = QString::fromLatin1(kMenuAlphabet);
    int selection = 0;
    for (;;) {
        m_devices.terminal->erase();
        print(0, 0, QStringLiteral("Select Front Panel Test"), Attr::Bold);
        for (std::size_t i = 0; i < shown; ++i) {
            UnitTest const& test = *m_tests[i];
            print(static_cast<int>(i) + 2, 2,
                  QString::asprintf("%c) %s - %s", kMenuAlphabet[i], test.getTestStateStr(),
                                    test.name.toLocal8Bit().constData()));
        }
        print(21, 6, QStringLiteral("Selection, (Q)uit, (U)pload and quit : "));
        m_devices.terminal->refresh();

        int key = readKeyBlocking();
        if (key < 256)
            key = std::tolower(key);
        if (key == 'q') {
            selection = kSelectQuit;
            break;
        }
        if (key == 'u') {
            selection = kSelectUploadAndQuit;
            break;
        }
        int const position = key > 0 && key < 256 ? alphabet.indexOf(QChar(key)) : -1;
        if (position >= 0) {
            selection = position;
            break;
        }
    }
    m_devices.terminal->setInputMode(false, false);
    return selection;
}

void FrontPanelTestManager::showTestSummary() {
    m_devices.terminal->erase();
    if (m_currentTest >= 0 && m_currentTest < static_cast<int32_t>(m_tests.size())) {
        UnitTest const& test = *m_tests[static_cast<std::size_t>(m_currentTest)];
        print(0, 0, test.name, Attr::Bold);
        print(2, 2, test.result, Attr::Bold);
    }
    print(21, 4, QStringLiteral("Press Any Key to continue : "));
    m_devices.terminal->refresh();
    // The devices are not serviced while the operator reads the summary.
    m_devices.terminal->setInputMode(true, false);
    readKeyBlocking();
    m_devices.terminal->setInputMode(false, false);
}

void FrontPanelTestManager::debugFrontPanel() {
    m_showTestDisplay = false;
    show();
    getLowerCh("y");
    m_showTestDisplay = true;
    show();
}

QString FrontPanelTestManager::enterBoardSerialNumber() {
    initDisplay();
    m_devices.terminal->setInputMode(true, true);
    for (;;) {
        m_devices.terminal->erase();
        print(14, 10, QStringLiteral("Enter CV084 PCB Serial No: "));
        m_devices.terminal->refresh();
        // A signal that came during start-up would otherwise wait for the
        // operator's first key: the line read below waits for input alone.
        fpt::throwIfTerminationRequested();
        std::string const word = m_devices.terminal->readWord(kSerialMaxChars);
        fpt::throwIfTerminationRequested();
        m_serialNumber = QString::fromStdString(word);
        if (m_serialNumber.isEmpty())
            m_serialNumber = QStringLiteral("Unassigned");

        // No erase here: the number as typed stays on row 14 above the question.
        print(16, 10, QStringLiteral("You Entered \"%1\"").arg(m_serialNumber));
        print(18, 10, QStringLiteral("Is that correct? (Y/n): "));
        m_devices.terminal->refresh();
        int const key = readKeyBlocking();
        if (key != 'n' && key != 'N')
            break;
    }
    m_devices.terminal->setInputMode(false, false);
    return m_serialNumber;
}
