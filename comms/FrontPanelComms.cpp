#include "comms/FrontPanelComms.h"
#include "comms/PolledRead.h"

#include <QByteArray>
#include <QChar>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace {

// The panel is the board under test and may stop reading (or, on a line that
// honours flow control, send XOFF). A command that the line cannot take
// within one pass of the manager's loop is dropped instead of freezing it.
constexpr int kSendTimeoutMs = 100;

// Upper to lower case on input: not in POSIX, so not on every system.
#ifdef IUCLC
constexpr tcflag_t kCaseFolding = IUCLC;
#else
constexpr tcflag_t kCaseFolding = 0;
#endif

// Input bits with which the kernel would interpret or drop the panel's bytes:
// XON/XOFF flow control (an XOFF from a faulty board would stop all our
// output), carriage return and line feed translation (a CR stays part of the
// line), stripping, parity marking and checking, case folding.
constexpr tcflag_t kCookedInput =
    IXON | IXOFF | IXANY | ICRNL | INLCR | IGNCR | ISTRIP | PARMRK | INPCK | kCaseFolding;

// O_NONBLOCK for one write only: the port itself stays blocking, as opened.
class NonBlockingScope {
public:
    explicit NonBlockingScope(int fd) : fd_(fd), flags_(::fcntl(fd, F_GETFL)) {
        if (flags_ != -1) {
            ::fcntl(fd_, F_SETFL, flags_ | O_NONBLOCK);
        }
    }
    ~NonBlockingScope() {
        if (flags_ != -1) {
            ::fcntl(fd_, F_SETFL, flags_);
        }
    }
    NonBlockingScope(NonBlockingScope const&) = delete;
    NonBlockingScope& operator=(NonBlockingScope const&) = delete;

private:
    int fd_;
    int flags_;
};

// Writes as much of the data as the line takes within timeoutMs and returns
// how much that was; errno tells why it stopped short (ETIMEDOUT when the
// line stayed full). A write is tried before each wait: a pty can take a few
// bytes without ever reporting itself writable.
size_t boundedWrite(int fd, char const* data, size_t size, int timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    const NonBlockingScope nonBlocking(fd);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, data + done, size - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n == -1 && errno != EAGAIN && errno != EINTR) {
            break;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            errno = ETIMEDOUT;
            break;
        }
        struct pollfd writable {
            fd, POLLOUT, 0
        };
        ::poll(&writable, 1, static_cast<int>(left));
    }
    return done;
}

// Whether the later command leaves nothing of the earlier one's effect on
// the panel: the same LED (or all of them), the brightness, the routing, the
// same question. Only then may an earlier command still owed be left out.
bool supersedes(QByteArray const& later, QByteArray const& earlier) {
    if (later.isEmpty() || earlier.isEmpty() || later[0] != earlier[0]) {
        return false;
    }
    switch (later[0]) {
    case 'L':
        return later.startsWith("Lff") || later.left(3) == earlier.left(3);
    case 'B':
    case 'A':
    case 'V':
    case 'H':
        return true;
    default:
        return false;
    }
}

} // namespace

FrontPanelComms::FrontPanelComms(QString path) : devicePath(std::move(path)) {}

FrontPanelComms::~FrontPanelComms() {
    if (fd > 0) {
        ::close(fd);
    }
}

bool FrontPanelComms::initialize() {
    if (!openPort() || !setTTY()) {
        return false;
    }
    // An earlier run may have ended with part of a command on the line (killed
    // mid-write, or its rest never taken): the panel would glue it to our
    // first command. A line feed ends it first, as a line the panel does not
    // understand and stays silent on, or an empty one; should a lenient panel
    // act on it, the set-up below puts everything it can change back.
    sendLine(QStringLiteral("\n"));
    // Ask the panel who it is and where the jack stands, and put the audio
    // routing into a known state (both outputs off at start). A lost request
    // only leaves "Uninitialised" on the screen, so the results are not checked.
    sendLine(QStringLiteral("V\n"));
    sendLine(QStringLiteral("H\n"));
    setAudioOutput();
    return true;
}

bool FrontPanelComms::openPort() {
    if (fd != -1) {
        return true;
    }
    // No O_NONBLOCK: reads are kept from blocking by VMIN = VTIME = 0 (setTTY).
    fd = ::open(devicePath.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_SYNC);
    if (fd == -1) {
        std::perror("FrontPanelComs::openPort() failed");
        return false;
    }
    return true;
}

bool FrontPanelComms::setTTY() {
    struct termios tty {};
    if (::tcgetattr(fd, &tty) != 0) {
        std::perror("FrontPanelComs::setTTY() tcgetattr() failed");
        ::close(fd);
        fd = -1;
        return false;
    }

    // Raw polling mode: every byte as it came, no output processing, no echo,
    // no canonical line editing, no signal characters; a read returns at once
    // with whatever has arrived (VMIN = VTIME = 0). The control flags, and so
    // the line speed, are the device's own: the panel link's speed is fixed by
    // its driver.
    tty.c_iflag &= ~(static_cast<tcflag_t>(IGNBRK) | kCookedInput);
    tty.c_oflag = 0;
    tty.c_lflag = 0;
    tty.c_cc[VTIME] = 0;
    tty.c_cc[VMIN] = 0;

    if (::tcsetattr(fd, TCSANOW, &tty) != 0) {
        std::perror("FrontPanelComs::setTTY() tcsetattr() failed");
        ::close(fd);
        fd = -1;
        return false;
    }
    return true;
}

bool FrontPanelComms::sendLine(QString const& line) {
    // Descriptor 0 is treated as closed too: the link is never standard input.
    if (fd < 1) {
        return false;
    }
    // The panel must end up as the screen shows it, so a command the line
    // did not take is owed, not dropped: it goes out before the next one (and
    // at the next poll), unless a later command replaces its effect.
    const QByteArray command = line.toLocal8Bit();
    unsentCommands.erase(
        std::remove_if(unsentCommands.begin(), unsentCommands.end(),
                       [&](QByteArray const& earlier) { return supersedes(command, earlier); }),
        unsentCommands.end());
    unsentCommands.push_back(command);
    if (sendOwed(kSendTimeoutMs)) {
        return true;
    }
    std::perror("FrontPanelComs::sendLine() failed");
    return false;
}

bool FrontPanelComms::sendOwed(int timeoutMs) {
    // The panel reads lines. Once part of a command is on the line it cannot
    // be taken back, and a line feed to cut it short could turn "A1" into "A"
    // or "B05" into "B0", commands of their own. So the rest of a command cut
    // short goes out first, ahead of everything else: the panel only ever
    // sees whole commands, one to a line.
    QByteArray bytes = unsentTail;
    for (QByteArray const& command : unsentCommands) {
        bytes += command;
    }
    if (bytes.isEmpty()) {
        return true;
    }
    const int written = static_cast<int>(
        boundedWrite(fd, bytes.constData(), static_cast<size_t>(bytes.size()), timeoutMs));
    bytesSent += static_cast<uint32_t>(written);
    int taken = written - unsentTail.size();
    unsentTail = unsentTail.mid(std::min(written, unsentTail.size()));
    while (taken > 0 && !unsentCommands.empty()) {
        const QByteArray first = unsentCommands.front();
        unsentCommands.erase(unsentCommands.begin());
        if (taken < first.size()) {
            unsentTail = first.mid(taken);
        }
        taken -= first.size();
    }
    return unsentTail.isEmpty() && unsentCommands.empty();
}

void FrontPanelComms::setLed(int led, int colour) {
    // LEDs 0-15 are single LEDs; ff is the panel's number for all of them.
    // Any number with bits 4-7 set goes out as ff (so the encoder knob's
    // index 16 lights everything), while bits above 7 are simply dropped:
    // 256 addresses LED 0. The mapping is deliberate; keep it.
    const unsigned ledCode = (led & 0xF0) != 0 ? 0xFFu : static_cast<unsigned>(led & 0xFF);
    const unsigned rgb = static_cast<unsigned>(colour) & 0xFFFFFFu;
    sendLine(QStringLiteral("L%1%2\n")
                 .arg(ledCode, 2, 16, QLatin1Char('0'))
                 .arg(rgb, 6, 16, QLatin1Char('0')));
}

void FrontPanelComms::setBrightness(int level) {
    const unsigned code = static_cast<unsigned>(level) & 0xFFu;
    sendLine(QStringLiteral("B%1\n").arg(code, 2, 16, QLatin1Char('0')));
}

void FrontPanelComms::setAudioOutput() {
    const int routing = (speaker ? 1 : 0) + (headphones ? 2 : 0);
    sendLine(QStringLiteral("A%1\n").arg(routing));
}

void FrontPanelComms::setSpeaker(bool on) {
    speaker = on;
    setAudioOutput();
}

void FrontPanelComms::setHeadphones(bool on) {
    headphones = on;
    setAudioOutput();
}

bool FrontPanelComms::servicePort() {
    // What the line would not take is tried again at every poll, without
    // waiting: the panel catches up as soon as it reads again.
    if (fd > 0) {
        sendOwed(0);
    }
    const bool ok = fillReadQueue();
    if (ok && !readQueue.empty()) {
        processReadQueue();
    }
    return ok;
}

bool FrontPanelComms::fillReadQueue() {
    comms::drainInto(fd, readQueue, bytesReceived);
    // The line carries no time of its own: it came at the latest now.
    readStampsUs.resize(readQueue.size(), comms::arrivalClockUs());
    return true;
}

void FrontPanelComms::processReadQueue() {
    for (;;) {
        const auto newline = std::find(readQueue.begin(), readQueue.end(), '\n');
        if (newline == readQueue.end()) {
            return; // partial line: wait for the rest
        }
        auto const end = static_cast<std::size_t>(newline - readQueue.begin());
        if (holdLinesAfterUs && end < readStampsUs.size() &&
            readStampsUs[end] > *holdLinesAfterUs) {
            return; // came after the key being served
        }
        QString line;
        line.reserve(static_cast<int>(newline - readQueue.begin()));
        for (auto it = readQueue.begin(); it != newline; ++it) {
            line.append(QChar::fromLatin1(*it));
        }
        if (!line.isEmpty()) {
            processReceivedLine(line);
        }
        readQueue.erase(readQueue.begin(), newline + 1);
        readStampsUs.erase(readStampsUs.begin(),
                           readStampsUs.begin() +
                               static_cast<std::ptrdiff_t>(std::min(end + 1, readStampsUs.size())));
    }
}

bool FrontPanelComms::processReceivedLine(QString const& line) {
    const char first = line.isEmpty() ? '\0' : line.at(0).toLatin1();
    switch (first) {
    case 'V':
        return RXVersion(line);
    case 'F':
        return RXFPGAVersion(line);
    case 'H':
        return RXHeadphone(line);
    case 'O':
        if (line == QLatin1String("OK")) {
            return true;
        }
        break;
    default:
        break;
    }
    std::cerr << "bool FrontPanelComms::processReceivedLine(const QString&)"
              << ": \"" << line.toUtf8().constData() << "\" Unexpected" << std::endl;
    return true;
}

bool FrontPanelComms::RXVersion(QString const& line) {
    version = line;
    return true;
}

bool FrontPanelComms::RXFPGAVersion(QString const& line) {
    fpgaVersion = line;
    return true;
}

bool FrontPanelComms::RXHeadphone(QString const& line) {
    if (line.size() < 2) {
        return false;
    }
    // A garbled number reads as 0, "out". A trailing carriage return from a
    // CR-LF panel is tolerated by the conversion.
    headphoneState = line.mid(1).toInt(nullptr, 10);
    return true;
}
