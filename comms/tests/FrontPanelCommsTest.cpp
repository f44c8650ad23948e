#include "comms/FrontPanelComms.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

bool readable(int fd) {
    struct pollfd pfd {
        fd, POLLIN, 0
    };
    return ::poll(&pfd, 1, 2000) > 0;
}

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
// the master side, the link opens the slave by path. The slave is also held
// open here so that its settings can be set before and read after.
class PanelPty {
public:
    PanelPty() {
        master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        char name[PATH_MAX] = {};
        if (master_ >= 0 && ::grantpt(master_) == 0 && ::unlockpt(master_) == 0 &&
            ::ptsname_r(master_, name, sizeof name) == 0) {
            path_ = name;
            slave_ = ::open(name, O_RDWR | O_NOCTTY);
        }
    }
    ~PanelPty() {
        ::close(slave_);
        ::close(master_);
    }
    PanelPty(PanelPty const&) = delete;
    PanelPty& operator=(PanelPty const&) = delete;

    bool ok() const { return slave_ >= 0; }
    QString path() const { return QString::fromStdString(path_); }
    int slave() const { return slave_; }
    void send(std::string const& bytes) {
        ASSERT_EQ(::write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Everything the link wrote so far, fenced by a marker line it sends now.
    std::string linesSent(FrontPanelComms& comms) {
        comms.sendLine(QStringLiteral("~\n"));
        std::string received;
        char chunk[256];
        while (received.find("~\n") == std::string::npos && readable(master_)) {
            const ssize_t n = ::read(master_, chunk, sizeof chunk);
            received.append(chunk, static_cast<size_t>(std::max<ssize_t>(n, 0)));
        }
        return received.substr(0, received.find("~\n"));
    }

private:
    int master_ = -1;
    int slave_ = -1;
    std::string path_;
};

TEST(FrontPanelCommsTest, EachCommandPutsItsExactBytesOnTheLine) {
    using Act = std::function<void(FrontPanelComms&)>;
    const std::vector<std::pair<Act, std::string>> cases = {
        {[](FrontPanelComms& c) { c.setLed(3, 0x00FF00); }, "L0300ff00\n"},
        {[](FrontPanelComms& c) { c.setLed(15, 0xFFFFFF); }, "L0fffffff\n"},
        {[](FrontPanelComms& c) { c.setLed(16, 0); }, "Lff000000\n"},
        {[](FrontPanelComms& c) { c.setLed(256, 0x01234567); }, "L00234567\n"},
        {[](FrontPanelComms& c) { c.setLed(261, 0xABCDEF); }, "L05abcdef\n"},
        {[](FrontPanelComms& c) { c.setLed(-1, -1); }, "Lffffffff\n"},
        {[](FrontPanelComms& c) { c.setBrightness(300); }, "B2c\n"},
        {[](FrontPanelComms& c) { c.setBrightness(5); }, "B05\n"},
        {[](FrontPanelComms& c) {
             c.setSpeaker(true);
             c.setHeadphones(true);
             c.setSpeaker(false);
         },
         "A1\nA3\nA2\n"},
    };
    for (auto const& [act, bytes] : cases) {
        SCOPED_TRACE(bytes);
        PanelPty pty;
        ASSERT_TRUE(pty.ok());
        FrontPanelComms comms(pty.path());
        ASSERT_TRUE(comms.initialize());
        ASSERT_EQ(pty.linesSent(comms), "V\nH\nA0\n");
        const uint32_t before = comms.bytesSent;
        act(comms);
        EXPECT_EQ(pty.linesSent(comms), bytes);
        EXPECT_EQ(comms.bytesSent, before + bytes.size() + 2);
    }
}

TEST(FrontPanelCommsTest, LineIsRawInBothDirectionsAndKeepsItsSpeed) {
    PanelPty pty;
    ASSERT_TRUE(pty.ok());
    struct termios before {};
    ASSERT_EQ(::tcgetattr(pty.slave(), &before), 0);
    const tcflag_t kept = BRKINT | IMAXBEL | IUTF8;
    before.c_iflag = kept | IGNBRK | IXON | IXOFF | IXANY | ICRNL | INLCR | IGNCR | ISTRIP |
                     PARMRK | INPCK | IUCLC;
    before.c_oflag |= OPOST | ONLCR;
    before.c_lflag |= ECHO | ICANON | ISIG | IEXTEN;
    before.c_cc[VMIN] = 1;
    before.c_cc[VTIME] = 5;
    ASSERT_EQ(::cfsetspeed(&before, B19200), 0);
    ASSERT_EQ(::tcsetattr(pty.slave(), TCSANOW, &before), 0);

    FrontPanelComms comms(pty.path());
    ASSERT_TRUE(comms.initialize());
    struct termios after {};
    ASSERT_EQ(::tcgetattr(pty.slave(), &after), 0);
    EXPECT_EQ(after.c_iflag, kept);
    EXPECT_EQ(after.c_oflag, 0u);
    EXPECT_EQ(after.c_lflag, 0u);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(::cfgetospeed(&after), B19200);
    EXPECT_EQ(after.c_cc[VMIN], 0);
    EXPECT_EQ(after.c_cc[VTIME], 0);
    // Opened read-write and synchronous, and still blocking after the sends.
    EXPECT_EQ(::fcntl(comms.fd, F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), O_RDWR | O_SYNC);
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
        ASSERT_TRUE(pty.ok());
        FrontPanelComms comms(pty.path());
        ASSERT_TRUE(comms.initialize());
        uint32_t total = 0;
        for (auto const& step : steps) {
            pty.send(step.bytes);
            total += static_cast<uint32_t>(step.bytes.size());
            testing::internal::CaptureStderr();
            while (comms.bytesReceived < total && readable(comms.fd)) {
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

// A panel that stops taking bytes: the command is reported and dropped
// within one poll, and the line works again once the panel reads.
TEST(FrontPanelCommsTest, StalledLineDropsTheCommand) {
    PanelPty pty;
    ASSERT_TRUE(pty.ok());
    FrontPanelComms comms(pty.path());
    ASSERT_TRUE(comms.initialize());
    ASSERT_EQ(pty.linesSent(comms), "V\nH\nA0\n");
    const uint32_t before = comms.bytesSent;
    ASSERT_EQ(::tcflow(pty.slave(), TCOOFF), 0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(comms.sendLine(QStringLiteral("B05\n")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              errnoText("FrontPanelComs::sendLine() failed", ETIMEDOUT));
    EXPECT_EQ(comms.bytesSent, before);
    ASSERT_EQ(::tcflow(pty.slave(), TCOON), 0);
    comms.setLed(1, 0xFFFFFF);
    EXPECT_EQ(pty.linesSent(comms), "L01ffffff\n");
}

TEST(FrontPanelCommsTest, ClosedPortSendsAndReadsNothing) {
    // Descriptor 0 counts as closed too: the link is never standard input.
    for (int fd : {-1, 0}) {
        FrontPanelComms comms(QStringLiteral("/nonexistent/cv084_app"));
        comms.fd = fd;
        EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
        comms.setLed(3, 0x00FF00);
        comms.setSpeaker(true);
        EXPECT_EQ(comms.bytesSent, 0u);
        comms.fd = -1;
        EXPECT_TRUE(comms.servicePort());
        EXPECT_EQ(comms.bytesReceived, 0u);
    }
}

TEST(FrontPanelCommsTest, PortIsOpenedOnceAndClosedWithTheLink) {
    PanelPty pty;
    ASSERT_TRUE(pty.ok());
    int fd = -1;
    {
        FrontPanelComms comms(pty.path());
        ASSERT_TRUE(comms.initialize());
        fd = comms.fd;
        EXPECT_TRUE(comms.openPort());
        EXPECT_EQ(comms.fd, fd);
    }
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
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
        EXPECT_EQ(comms.fd, -1);
        EXPECT_EQ(lowestFreeDescriptor(), free);
    }
    ::unlink(notATerminal);
}

} // namespace
