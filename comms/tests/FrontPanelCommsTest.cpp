#include "comms/FrontPanelComms.h"
#include "comms/PolledRead.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <termios.h>
#include <tuple>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string errnoText(char const* prefix, int error) {
    return std::string(prefix) + ": " + std::strerror(error) + "\n";
}

// The link on one end of a local stream socket, the test playing the panel
// on the other: bytes cross at once, so one poll sees everything sent.
struct SocketPanel {
    int ends[2] = {-1, -1};
    FrontPanelComms link{QString{}};
    SocketPanel() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        link.fd = ends[0]; // closed by the link
    }
    ~SocketPanel() { ::close(ends[1]); }
    void send(std::string const& bytes) {
        ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    std::string received() {
        char buffer[4096];
        return std::string(buffer, size_t(std::max<ssize_t>(::read(ends[1], buffer, 4096), 0)));
    }
};

TEST(FrontPanelCommsTest, EachCommandPutsItsExactBytesOnTheLine) {
    SocketPanel panel;
    auto& comms = panel.link;
    std::string expected;
    const std::vector<std::tuple<int, int, const char*>> leds = {
        {3, 0x00FF00, "L0300ff00\n"},     {15, 0xFFFFFF, "L0fffffff\n"},  {16, 0, "Lff000000\n"},
        {256, 0x01234567, "L00234567\n"}, {261, 0xABCDEF, "L05abcdef\n"}, {128, -1, "Lffffffff\n"}};
    for (auto const& [led, colour, bytes] : leds) {
        comms.setLed(led, colour);
        expected += bytes;
    }
    comms.setBrightness(300);
    comms.setBrightness(5);
    comms.setSpeaker(true);
    comms.setHeadphones(true);
    comms.setSpeaker(false);
    expected += "B2c\nB05\nA1\nA3\nA2\n";
    EXPECT_EQ(panel.received(), expected);
    EXPECT_EQ(comms.bytesSent, expected.size());
}

// A panel that stops reading, on a pty filled from the test until the line
// has room for 3 bytes: "L0fffffff\n" goes out in part, and neither it nor a
// later command may leave a fragment on the line. Commands the full line did
// not take are owed: they go out, less those a later one replaced, before the
// next command, or at the next poll. (The kernel hands bytes on to the reader
// in the background: the test lets it settle.)
TEST(FrontPanelCommsTest, ACommandGoesOutWholeAndNoneIsLost) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_EQ(::grantpt(master) | ::unlockpt(master), 0);
    FrontPanelComms comms(QString::fromLocal8Bit(::ptsname(master)));
    ASSERT_TRUE(comms.openPort() && comms.setTTY());
    ::fcntl(comms.fd, F_SETFL, O_NONBLOCK);
    auto fill = [&](size_t limit, size_t n = 0) {
        while (n < limit && (::write(comms.fd, "x", 1) == 1 ||
                             (::usleep(50000), ::write(comms.fd, "x", 1) == 1)))
            ++n;
        return n;
    };
    auto drain = [&](std::string bytes = {}) {
        char buffer[4096];
        for (ssize_t n; ::usleep(50000), (n = ::read(master, buffer, sizeof buffer)) > 0;)
            bytes.append(buffer, size_t(n));
        return bytes;
    };
    const size_t room = fill(SIZE_MAX);
    drain();
    fill(room - 3);
    testing::internal::CaptureStderr();
    comms.setLed(15, 0xFFFFFF);
    comms.setBrightness(5); // the line is still full: none of these goes out
    comms.setLed(3, 0x00FF00);
    comms.setBrightness(7);
    const std::string failed = errnoText("FrontPanelComs::sendLine() failed", ETIMEDOUT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), failed + failed + failed + failed);
    EXPECT_EQ(drain().substr(room - 3), "L0f");
    EXPECT_TRUE(comms.sendLine(QStringLiteral("A0\n")));
    EXPECT_EQ(drain(), "ffffff\nL0300ff00\nB07\nA0\n");

    fill(SIZE_MAX);
    comms.setLed(4, 0xFF0000);
    drain();
    comms.servicePort();
    EXPECT_EQ(drain(), "L04ff0000\n");
    ::close(master);
}

TEST(FrontPanelCommsTest, StartSetsTheLineUpRawOnAFreshLine) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(::grantpt(master) | ::unlockpt(master), 0);
    const int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY); // to set and read the line
    struct termios tty {};
    ASSERT_EQ(::tcgetattr(slave, &tty), 0);
    const tcflag_t kept = BRKINT | IMAXBEL | IUTF8;
    tty.c_iflag = kept | IGNBRK | IXON | IXOFF | IXANY | ICRNL | INLCR | IGNCR | ISTRIP | PARMRK |
                  INPCK | IUCLC;
    tty.c_oflag = OPOST | ONLCR;
    tty.c_lflag = ECHO | ICANON | ISIG | IEXTEN;
    tty.c_cc[VTIME] = 5;
    ASSERT_EQ(::cfsetspeed(&tty, B19200), 0);
    ASSERT_EQ(::tcsetattr(slave, TCSANOW, &tty), 0);

    FrontPanelComms comms(QString::fromLocal8Bit(::ptsname(master)));
    ASSERT_TRUE(comms.initialize());
    const int fd = comms.fd;
    EXPECT_TRUE(comms.openPort()); // already open: not opened again
    EXPECT_EQ(comms.fd, fd);
    // A line feed first: whatever an earlier run left on the line is ended
    // before the first question.
    char sent[64];
    ::usleep(50000); // the kernel hands the bytes on in the background
    EXPECT_EQ(std::string(sent, size_t(std::max<ssize_t>(::read(master, sent, sizeof sent), 0))),
              "\nV\nH\nA0\n");
    ASSERT_EQ(::tcgetattr(slave, &tty), 0);
    EXPECT_EQ(tty.c_iflag, kept);
    EXPECT_EQ(tty.c_oflag | tty.c_lflag | tty.c_cc[VMIN] | tty.c_cc[VTIME], 0u);
    EXPECT_EQ(::cfgetospeed(&tty), B19200);
    // Opened read-write and synchronous, and still blocking after the sends.
    EXPECT_EQ(::fcntl(fd, F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), O_RDWR | O_SYNC);

    ::close(slave);
    ::close(master);
}

// The panel sends these bytes in turn, each followed by one poll of the link.
TEST(FrontPanelCommsTest, ReceivedLinesAreSplitAndDispatched) {
    struct Step {
        std::string bytes, version, fpgaVersion;
        int headphoneState;
        std::vector<std::string> unexpected;
    };
    const std::string U = "Uninitialised";
    const std::string longVersion = "V" + std::string(100, 'x');
    const std::vector<Step> steps = {
        {"V1.2\nH", "V1.2", U, -1, {}},
        {"1\n", "V1.2", U, 1, {}},
        {"Fpga 7", "V1.2", U, 1, {}},
        {".1\nHx\n", "V1.2", "Fpga 7.1", 0, {}},   // a garbled number reads as out
        {"H1\r\nH\n", "V1.2", "Fpga 7.1", 1, {}},  // H alone is rejected
        {"H-3\n\n\nF3\n\n", "V1.2", "F3", -3, {}}, // empty lines are skipped
        {longVersion + "\n", longVersion, "F3", -3, {}},
        {"OK\nok\nOKAY\nZap 1\nV5\n", "V5", "F3", -3, {"ok", "OKAY", "Zap 1"}},
        {"\xe9t\xe9\n", "V5", "F3", -3, {"\xc3\xa9t\xc3\xa9"}}, // Latin-1 in, UTF-8 out
    };
    SocketPanel panel;
    auto& comms = panel.link;
    uint32_t total = 0;
    for (auto const& step : steps) {
        SCOPED_TRACE(step.bytes);
        panel.send(step.bytes);
        total += static_cast<uint32_t>(step.bytes.size());
        testing::internal::CaptureStderr();
        comms.servicePort();
        std::string reports;
        for (auto const& line : step.unexpected) {
            reports += "bool FrontPanelComms::processReceivedLine(const QString&): \"" + line +
                       "\" Unexpected\n";
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), reports);
        EXPECT_EQ(comms.bytesReceived, total);
        EXPECT_EQ(comms.version.toLatin1().toStdString(), step.version);
        EXPECT_EQ(comms.fpgaVersion.toLatin1().toStdString(), step.fpgaVersion);
        EXPECT_EQ(comms.headphoneState, step.headphoneState);
    }
}

TEST(FrontPanelCommsTest, FailedSetUpIsReportedAndLeavesThePortClosed) {
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"/nonexistent/cv084_app", errnoText("FrontPanelComs::openPort() failed", ENOENT)},
        {"/dev/null", errnoText("FrontPanelComs::setTTY() tcgetattr() failed", ENOTTY)},
    };
    for (auto const& [path, report] : cases) {
        FrontPanelComms comms(QString::fromLocal8Bit(path));
        testing::internal::CaptureStderr();
        EXPECT_FALSE(comms.initialize());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), report);
        // Closed: nothing is sent or read.
        EXPECT_EQ(comms.fd, -1);
        EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
        comms.servicePort();
        EXPECT_EQ(comms.bytesSent + comms.bytesReceived, 0u);
    }
}

} // namespace

// A line that came after the key the operator typed waits until that key
// has been served; one that came before it does not.
TEST(FrontPanelCommsTest, ALineThatCameAfterTheHoldMomentWaits) {
    SocketPanel panel;
    auto& comms = panel.link;
    panel.send("H1\nH");
    comms.holdLinesAfterUs = comms::arrivalClockUs() - 1000000;
    comms.servicePort();
    EXPECT_EQ(comms.headphoneState, -1);
    panel.send("0\n");
    comms.holdLinesAfterUs = comms::arrivalClockUs() + 1000000;
    comms.servicePort();
    EXPECT_EQ(comms.headphoneState, 0);
    EXPECT_TRUE(comms.readQueue.empty());
}
