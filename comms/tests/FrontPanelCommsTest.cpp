#include "comms/FrontPanelComms.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <tuple>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

// The descriptor the next open() would get: the same before and after an
// operation that leaks none.
int lowestFreeDescriptor() {
    const int fd = ::open("/dev/null", O_RDONLY);
    ::close(fd);
    return fd;
}

std::string errnoText(char const* prefix, int error) {
    return std::string(prefix) + ": " + std::strerror(error) + "\n";
}

// The panel's device node as a pseudo-terminal: the test plays the panel on
// the master side, the link opens the slave by its path. The slave is held
// open here too, so that its settings can be set before and read after.
struct PanelPty {
    int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    int slave = ::grantpt(master) == 0 && ::unlockpt(master) == 0
                    ? ::open(::ptsname(master), O_RDWR | O_NOCTTY)
                    : -1;
    FrontPanelComms link{QString::fromLocal8Bit(slave < 0 ? "" : ::ptsname(master))};
    ~PanelPty() {
        ::close(slave);
        ::close(master);
    }
    bool waitReadable(int fd) {
        struct pollfd pfd {
            fd, POLLIN, 0
        };
        return ::poll(&pfd, 1, 2000) > 0;
    }
    // Everything the link wrote so far, fenced by a marker line it sends now.
    std::string linesSent() {
        link.sendLine(QStringLiteral("~\n"));
        std::string received;
        char chunk[256];
        while (received.find("~\n") == std::string::npos && waitReadable(master)) {
            received.append(chunk,
                            static_cast<size_t>(std::max<ssize_t>(::read(master, chunk, 256), 0)));
        }
        return received.substr(0, received.find("~\n"));
    }
};

TEST(FrontPanelCommsTest, EachCommandPutsItsExactBytesOnTheLine) {
    const int free = lowestFreeDescriptor();
    {
        PanelPty pty;
        auto& comms = pty.link;
        ASSERT_TRUE(comms.initialize());
        const int fd = comms.fd;
        EXPECT_TRUE(comms.openPort()); // already open: not opened again
        EXPECT_EQ(comms.fd, fd);
        std::string expected = "V\nH\nA0\n";
        const std::vector<std::tuple<int, int, const char*>> leds = {
            {3, 0x00FF00, "L0300ff00\n"},   {15, 0xFFFFFF, "L0fffffff\n"},
            {16, 0, "Lff000000\n"},         {256, 0x01234567, "L00234567\n"},
            {261, 0xABCDEF, "L05abcdef\n"}, {-1, -1, "Lffffffff\n"}};
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
        EXPECT_EQ(pty.linesSent(), expected);
        EXPECT_EQ(comms.bytesSent, expected.size() + 2); // and the marker line

        // A panel that stops taking bytes: the command is reported and
        // dropped within one poll; the line works again once it reads.
        ASSERT_EQ(::tcflow(pty.slave, TCOOFF), 0);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(comms.sendLine(QStringLiteral("B05\n")));
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  errnoText("FrontPanelComs::sendLine() failed", ETIMEDOUT));
        EXPECT_EQ(comms.bytesSent, expected.size() + 2);
        ASSERT_EQ(::tcflow(pty.slave, TCOON), 0);
        comms.setLed(1, 0xFFFFFF);
        EXPECT_EQ(pty.linesSent(), "L01ffffff\n");
    }
    EXPECT_EQ(lowestFreeDescriptor(), free) << "the link left its port open";
}

TEST(FrontPanelCommsTest, LineIsRawInBothDirectionsAndKeepsItsSpeed) {
    PanelPty pty;
    struct termios tty {};
    ASSERT_EQ(::tcgetattr(pty.slave, &tty), 0);
    const tcflag_t kept = BRKINT | IMAXBEL | IUTF8;
    tty.c_iflag = kept | IGNBRK | IXON | IXOFF | IXANY | ICRNL | INLCR | IGNCR | ISTRIP | PARMRK |
                  INPCK | IUCLC;
    tty.c_oflag = OPOST | ONLCR;
    tty.c_lflag = ECHO | ICANON | ISIG | IEXTEN;
    tty.c_cc[VMIN] = 1;
    tty.c_cc[VTIME] = 5;
    const tcflag_t control = tty.c_cflag;
    ASSERT_EQ(::cfsetspeed(&tty, B19200), 0);
    ASSERT_EQ(::tcsetattr(pty.slave, TCSANOW, &tty), 0);

    ASSERT_TRUE(pty.link.initialize());
    ASSERT_EQ(::tcgetattr(pty.slave, &tty), 0);
    EXPECT_EQ(tty.c_iflag, kept);
    EXPECT_EQ(tty.c_oflag | tty.c_lflag | tty.c_cc[VMIN] | tty.c_cc[VTIME], 0u);
    EXPECT_EQ(::cfgetospeed(&tty), B19200);
    EXPECT_EQ(tty.c_cflag & ~CBAUD, control & ~CBAUD);
    // Opened read-write and synchronous, and still blocking after the sends.
    EXPECT_EQ(::fcntl(pty.link.fd, F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), O_RDWR | O_SYNC);
}

TEST(FrontPanelCommsTest, ReceivedLinesAreSplitAndDispatched) {
    struct Step {
        std::string bytes, version, fpgaVersion;
        int headphoneState;
        size_t queued;
        std::string unexpected; // the line as reported on stderr, if any
    };
    const std::string U = "Uninitialised";
    const std::string longVersion = "V" + std::string(100, 'x');
    const std::vector<std::vector<Step>> cases = {
        {{"V1.2\nH", "V1.2", U, -1, 1, ""}, {"1\n", "V1.2", U, 1, 0, ""}},
        {{"Fpga 7", U, U, -1, 6, ""}, {".1\n", U, "Fpga 7.1", -1, 0, ""}},
        {{"H0\nV1\nF3\nV9\nH1\n", "V9", "F3", 1, 0, ""}},
        {{longVersion + "\n", longVersion, U, -1, 0, ""}},
        {{"H1\r\n", U, U, 1, 0, ""}},
        {{"H1\n", U, U, 1, 0, ""}, {"Hx\n", U, U, 0, 0, ""}},
        {{"H1\n", U, U, 1, 0, ""}, {"H\n", U, U, 1, 0, ""}},
        {{"H-3\n", U, U, -3, 0, ""}},
        {{"\n\n\nV3\n\n", "V3", U, -1, 0, ""}},
        {{"OK\n", U, U, -1, 0, ""}},
        {{"ok\n", U, U, -1, 0, "ok"}},
        {{"OKAY\n", U, U, -1, 0, "OKAY"}},
        {{"Zap 1\nV5\n", "V5", U, -1, 0, "Zap 1"}},
        {{"\xe9t\xe9\n", U, U, -1, 0, "\xc3\xa9t\xc3\xa9"}},
    };
    for (auto const& steps : cases) {
        SCOPED_TRACE(steps.front().bytes);
        PanelPty pty;
        auto& comms = pty.link;
        ASSERT_TRUE(comms.initialize());
        uint32_t total = 0;
        for (auto const& step : steps) {
            ASSERT_EQ(::write(pty.master, step.bytes.data(), step.bytes.size()),
                      static_cast<ssize_t>(step.bytes.size()));
            total += static_cast<uint32_t>(step.bytes.size());
            testing::internal::CaptureStderr();
            while (comms.bytesReceived < total && pty.waitReadable(comms.fd)) {
                EXPECT_TRUE(comms.servicePort());
            }
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      step.unexpected.empty()
                          ? ""
                          : "bool FrontPanelComms::processReceivedLine(const QString&): \"" +
                                step.unexpected + "\" Unexpected\n");
            EXPECT_EQ(comms.bytesReceived, total);
            EXPECT_EQ(comms.version.toLatin1().toStdString(), step.version);
            EXPECT_EQ(comms.fpgaVersion.toLatin1().toStdString(), step.fpgaVersion);
            EXPECT_EQ(comms.headphoneState, step.headphoneState);
            EXPECT_EQ(comms.readQueue.size(), step.queued);
        }
    }
}

TEST(FrontPanelCommsTest, FailedSetUpIsReportedAndLeavesThePortClosed) {
    char notATerminal[] = "/tmp/fpt_cv084_XXXXXX";
    ::close(::mkstemp(notATerminal));
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"/nonexistent/cv084_app", errnoText("FrontPanelComs::openPort() failed", ENOENT)},
        {notATerminal, errnoText("FrontPanelComs::setTTY() tcgetattr() failed", ENOTTY)},
    };
    for (auto const& [path, report] : cases) {
        FrontPanelComms comms(QString::fromLocal8Bit(path));
        const int free = lowestFreeDescriptor();
        testing::internal::CaptureStderr();
        EXPECT_FALSE(comms.initialize());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), report);
        EXPECT_EQ(lowestFreeDescriptor(), free);
        // Closed: nothing is sent or read.
        EXPECT_EQ(comms.fd, -1);
        EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
        EXPECT_TRUE(comms.servicePort());
        EXPECT_EQ(comms.bytesSent + comms.bytesReceived, 0u);
    }
    ::unlink(notATerminal);
    // Descriptor 0 counts as closed too: the link is never standard input.
    FrontPanelComms comms(QString{});
    comms.fd = 0;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
    EXPECT_EQ(testing::internal::GetCapturedStderr() + std::to_string(comms.bytesSent), "0");
}

} // namespace
