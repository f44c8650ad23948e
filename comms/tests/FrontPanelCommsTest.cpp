#include "comms/FrontPanelComms.h"
#include "comms/tests/LinksTestSupport.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace links_test;

// Waits up to 2 s for `fd` to have something to read.
bool readable(int fd) {
    struct pollfd pfd {
        fd, POLLIN, 0
    };
    return ::poll(&pfd, 1, 2000) > 0;
}

const std::string kMarker = "~\n";

// A pseudo-terminal for the panel's device node: the test plays the panel on
// the master side; the link opens the slave by path.
class PanelPty {
public:
    PanelPty() {
        master_ = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) {
            return;
        }
        char name[PATH_MAX] = {};
        if (::ptsname_r(master_, name, sizeof name) != 0) {
            return;
        }
        slavePath_ = name;
        ::fcntl(master_, F_SETFL, O_NONBLOCK);
        // Held open (never read) so the line keeps its settings for inspection.
        slave_ = ::open(name, O_RDWR | O_NOCTTY);
    }
    ~PanelPty() {
        if (slave_ >= 0) {
            ::close(slave_);
        }
        if (master_ >= 0) {
            ::close(master_);
        }
    }
    PanelPty(PanelPty const&) = delete;
    PanelPty& operator=(PanelPty const&) = delete;

    bool ok() const { return master_ >= 0 && slave_ >= 0; }
    QString path() const { return QString::fromLocal8Bit(slavePath_.c_str()); }
    int slave() const { return slave_; }

    // No CR-to-LF mapping on input, like the real device.
    void passCarriageReturns() {
        struct termios tty {};
        ::tcgetattr(slave_, &tty);
        tty.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR);
        ::tcsetattr(slave_, TCSANOW, &tty);
    }

    void send(std::string const& bytes) {
        ASSERT_EQ(::write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // Everything the link wrote since the last call, fenced by a marker line;
    // gives up after 2 s of silence.
    std::string linesSent(FrontPanelComms& comms) {
        comms.sendLine(QString::fromLatin1(kMarker.c_str()));
        std::string received;
        char chunk[256];
        ssize_t n = 1;
        while (received.find(kMarker) == std::string::npos && n > 0 && readable(master_)) {
            n = ::read(master_, chunk, sizeof chunk);
            received.append(chunk, static_cast<size_t>(std::max<ssize_t>(n, 0)));
        }
        const size_t at = received.find(kMarker);
        return at == std::string::npos ? "<no marker in: " + received + ">"
                                       : received.substr(0, at);
    }

private:
    int master_ = -1;
    int slave_ = -1;
    std::string slavePath_;
};

// Polls the link until `count` more bytes are taken off the line (the kernel
// may hand one write over in pieces).
void serviceUntilReceived(FrontPanelComms& comms, uint32_t count) {
    const uint32_t target = comms.bytesReceived + count;
    while (comms.bytesReceived < target && readable(comms.fd)) {
        EXPECT_TRUE(comms.servicePort());
    }
}

std::string unexpected(std::string const& utf8Line) {
    return "bool FrontPanelComms::processReceivedLine(const QString&): \"" + utf8Line +
           "\" Unexpected\n";
}

TEST(FrontPanelCommsTest, EachCommandPutsItsExactBytesOnTheLine) {
    struct Case {
        const char* name;
        std::function<void(FrontPanelComms&)> act;
        std::string bytes;
    };
    const std::vector<Case> cases = {
        {"led 15 white", [](FrontPanelComms& c) { c.setLed(15, 0xFFFFFF); }, "L0fffffff\n"},
        {"led 16 is all", [](FrontPanelComms& c) { c.setLed(16, 0); }, "Lff000000\n"},
        {"led 255 is all", [](FrontPanelComms& c) { c.setLed(255, 0x123456); }, "Lff123456\n"},
        {"led 256 wraps", [](FrontPanelComms& c) { c.setLed(256, 0x01234567); }, "L00234567\n"},
        {"led 261 wraps", [](FrontPanelComms& c) { c.setLed(261, 0xABCDEF); }, "L05abcdef\n"},
        {"led negative", [](FrontPanelComms& c) { c.setLed(-1, -1); }, "Lffffffff\n"},
        {"led 3 green", [](FrontPanelComms& c) { c.setLed(3, 0x00FF00); }, "L0300ff00\n"},
        {"brightness 300", [](FrontPanelComms& c) { c.setBrightness(300); }, "B2c\n"},
        {"brightness 128", [](FrontPanelComms& c) { c.setBrightness(128); }, "B80\n"},
        {"brightness 5", [](FrontPanelComms& c) { c.setBrightness(5); }, "B05\n"},
        {"brightness -1", [](FrontPanelComms& c) { c.setBrightness(-1); }, "Bff\n"},
        {"speaker, headphones, speaker off",
         [](FrontPanelComms& c) {
             c.setSpeaker(true);
             c.setHeadphones(true);
             c.setSpeaker(false);
         },
         "A1\nA3\nA2\n"},
        {"headphones off keeps speaker",
         [](FrontPanelComms& c) {
             c.setSpeaker(true);
             c.setHeadphones(false);
         },
         "A1\nA1\n"},
        {"line sent verbatim", [](FrontPanelComms& c) { c.sendLine("X 1\r\n"); }, "X 1\r\n"},
    };
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.name);
        PanelPty pty;
        ASSERT_TRUE(pty.ok());
        FrontPanelComms comms(pty.path());
        ASSERT_TRUE(comms.initialize());
        // initialize() asks version and headphones, then routes audio off.
        ASSERT_EQ(pty.linesSent(comms), "V\nH\nA0\n");
        const uint32_t before = comms.bytesSent;
        EXPECT_EQ(before, 7u + kMarker.size());

        tc.act(comms);

        EXPECT_EQ(pty.linesSent(comms), tc.bytes);
        EXPECT_EQ(comms.bytesSent, before + tc.bytes.size() + kMarker.size());
    }
}

TEST(FrontPanelCommsTest, LineIsPutInRawPollingModeAndKeepsItsOtherSettings) {
    PanelPty pty;
    ASSERT_TRUE(pty.ok());
    struct termios before {};
    ASSERT_EQ(::tcgetattr(pty.slave(), &before), 0);
    before.c_iflag |= IGNBRK | ICRNL | IXON | ISTRIP;
    before.c_oflag |= OPOST | ONLCR;
    before.c_lflag |= ECHO | ICANON | ISIG | IEXTEN;
    before.c_cc[VMIN] = 1;
    before.c_cc[VTIME] = 5;
    ASSERT_EQ(::cfsetspeed(&before, B19200), 0);
    ASSERT_EQ(::tcsetattr(pty.slave(), TCSANOW, &before), 0);
    ASSERT_EQ(::tcgetattr(pty.slave(), &before), 0);

    FrontPanelComms comms(pty.path());
    ASSERT_TRUE(comms.initialize());

    struct termios after {};
    ASSERT_EQ(::tcgetattr(pty.slave(), &after), 0);
    EXPECT_EQ(after.c_iflag, before.c_iflag & ~static_cast<tcflag_t>(IGNBRK));
    EXPECT_EQ(after.c_oflag, 0u);
    EXPECT_EQ(after.c_lflag, 0u);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(::cfgetospeed(&after), ::cfgetospeed(&before));
    EXPECT_EQ(after.c_cc[VMIN], 0);
    EXPECT_EQ(after.c_cc[VTIME], 0);

    // Read-write, synchronous writes; no O_NONBLOCK (VMIN/VTIME do the job).
    const int flags = ::fcntl(comms.fd, F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_EQ(flags & O_SYNC, O_SYNC);
    EXPECT_EQ(flags & O_NONBLOCK, 0);
}

TEST(FrontPanelCommsTest, ReceivedLinesAreSplitAndDispatched) {
    struct Step {
        std::string bytes;
        std::string version;
        std::string fpgaVersion;
        int headphoneState;
        size_t queued;
        std::string stderrText;
    };
    const std::string U = "Uninitialised";
    const std::string longVersion = "V" + std::string(100, 'x');
    struct Case {
        const char* name;
        std::vector<Step> steps;
    };
    const std::vector<Case> cases = {
        {"line split across reads",
         {{"V1.2\nH", "V1.2", U, -1, 1, ""}, {"1\n", "V1.2", U, 1, 0, ""}}},
        {"partial line waits",
         {{"Fpga", U, U, -1, 4, ""}, {" 7.1", U, U, -1, 8, ""}, {"\n", U, "Fpga 7.1", -1, 0, ""}}},
        {"several lines in one read", {{"H0\nV9\nF3\nH1\n", "V9", "F3", 1, 0, ""}}},
        {"later lines replace earlier", {{"V1\nV2\nH1\nH0\n", "V2", U, 0, 0, ""}}},
        {"line longer than one read", {{longVersion + "\n", longVersion, U, -1, 0, ""}}},
        {"carriage returns kept", {{"V2.0\r\nF7\r\n", "V2.0\r", "F7\r", -1, 0, ""}}},
        {"headphones with carriage return", {{"H1\r\n", U, U, 1, 0, ""}}},
        {"Hx reads as out", {{"H1\n", U, U, 1, 0, ""}, {"Hx\n", U, U, 0, 0, ""}}},
        {"H alone rejected", {{"H1\n", U, U, 1, 0, ""}, {"H\n", U, U, 1, 0, ""}}},
        {"H alone before any state", {{"H\n", U, U, -1, 0, ""}}},
        {"headphone number", {{"H12\n", U, U, 12, 0, ""}, {"H-3\n", U, U, -3, 0, ""}}},
        {"empty lines skipped", {{"\n\n\nV3\n\n", "V3", U, -1, 0, ""}}},
        {"OK silent", {{"OK\n", U, U, -1, 0, ""}}},
        {"ok reported", {{"ok\n", U, U, -1, 0, unexpected("ok")}}},
        {"OKAY reported", {{"OKAY\n", U, U, -1, 0, unexpected("OKAY")}}},
        {"OK with carriage return reported", {{"OK\r\n", U, U, -1, 0, unexpected("OK\r")}}},
        {"unknown letter reported then next line handled",
         {{"Zap 1\nV5\n", "V5", U, -1, 0, unexpected("Zap 1")}}},
        {"lower-case v reported", {{"v1\n", U, U, -1, 0, unexpected("v1")}}},
        {"Latin-1 bytes reported as UTF-8",
         {{"\xe9t\xe9\n", U, U, -1, 0, unexpected("\xc3\xa9t\xc3\xa9")}}},
    };
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.name);
        PanelPty pty;
        ASSERT_TRUE(pty.ok());
        pty.passCarriageReturns();
        FrontPanelComms comms(pty.path());
        ASSERT_TRUE(comms.initialize());
        uint32_t total = 0;
        for (size_t i = 0; i < tc.steps.size(); ++i) {
            auto const& step = tc.steps[i];
            SCOPED_TRACE("step " + std::to_string(i));
            pty.send(step.bytes);
            testing::internal::CaptureStderr();
            serviceUntilReceived(comms, static_cast<uint32_t>(step.bytes.size()));
            const std::string err = testing::internal::GetCapturedStderr();
            total += static_cast<uint32_t>(step.bytes.size());

            EXPECT_EQ(comms.bytesReceived, total);
            EXPECT_EQ(comms.version.toLatin1().toStdString(), step.version);
            EXPECT_EQ(comms.fpgaVersion.toLatin1().toStdString(), step.fpgaVersion);
            EXPECT_EQ(comms.headphoneState, step.headphoneState);
            EXPECT_EQ(comms.readQueue.size(), step.queued);
            EXPECT_EQ(err, step.stderrText);
        }
    }
}

TEST(FrontPanelCommsTest, IdleLineCostsOneReadPerPoll) {
    PanelPty pty;
    ASSERT_TRUE(pty.ok());
    FrontPanelComms comms(pty.path());
    ASSERT_TRUE(comms.initialize());
    expectIdlePollIsOneRead(comms);
    // With one line waiting: the line, then the empty read.
    pty.send("V7\n");
    ASSERT_TRUE(readable(comms.fd));
    EXPECT_EQ(countReadSyscalls([&] { comms.servicePort(); }), 2);
    EXPECT_EQ(comms.version, "V7");
}

TEST(FrontPanelCommsTest, SendsAreRefusedWhileClosed) {
    struct Case {
        const char* name;
        int fd;
    };
    // Descriptor 0 counts as closed too: the link is never standard input.
    for (auto const& tc : {Case{"never opened", -1}, Case{"descriptor 0", 0}}) {
        SCOPED_TRACE(tc.name);
        FrontPanelComms comms(QStringLiteral("/nonexistent/cv084_app"));
        comms.fd = tc.fd;
        EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
        comms.setLed(3, 0x00FF00);
        comms.setBrightness(128);
        comms.setSpeaker(true);
        comms.setHeadphones(true);
        EXPECT_EQ(comms.bytesSent, 0u);
        EXPECT_TRUE(comms.speaker);
        EXPECT_TRUE(comms.headphones);
        comms.fd = -1;
        // Nothing to read either.
        EXPECT_TRUE(comms.servicePort());
        EXPECT_EQ(comms.bytesReceived, 0u);
    }
}

TEST(FrontPanelCommsTest, PortIsOpenedOnceAndClosedByTheDestructor) {
    PanelPty pty;
    ASSERT_TRUE(pty.ok());
    int fd = -1;
    {
        FrontPanelComms comms(pty.path());
        ASSERT_TRUE(comms.initialize());
        fd = comms.fd;
        const int descriptors = openDescriptorCount();
        EXPECT_TRUE(comms.openPort());
        EXPECT_EQ(comms.fd, fd);
        EXPECT_EQ(openDescriptorCount(), descriptors);
    }
    EXPECT_FALSE(isOpenDescriptor(fd));
}

TEST(FrontPanelCommsTest, FailedOpenLeavesThePortClosedAndSendsNothing) {
    TempFile file;
    ASSERT_TRUE(file.ok);
    struct Case {
        const char* path;
        std::string stderrText;
    };
    const std::vector<Case> cases = {
        {"/nonexistent/cv084_app", errnoText("FrontPanelComs::openPort() failed", ENOENT)},
        // Not a terminal: opened, then closed again.
        {file.path, errnoText("FrontPanelComs::setTTY() tcgetattr() failed", ENOTTY)},
    };
    for (auto const& tc : cases) {
        SCOPED_TRACE(tc.path);
        const int descriptors = openDescriptorCount();
        FrontPanelComms comms(QString::fromLocal8Bit(tc.path));
        testing::internal::CaptureStderr();
        EXPECT_FALSE(comms.initialize());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), tc.stderrText);
        EXPECT_EQ(comms.fd, -1);
        EXPECT_EQ(openDescriptorCount(), descriptors);
        EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
        EXPECT_EQ(comms.bytesSent, 0u);
    }
    struct stat info {};
    ASSERT_EQ(::stat(file.path, &info), 0);
    EXPECT_EQ(info.st_size, 0);
}

TEST(FrontPanelCommsTest, WriteFailureIsReportedAndNotCounted) {
    TempFile file;
    ASSERT_TRUE(file.ok);
    FrontPanelComms comms(QString::fromLocal8Bit(file.path));
    comms.fd = ::open(file.path, O_RDONLY);
    ASSERT_GT(comms.fd, 0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(comms.sendLine(QStringLiteral("V\n")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              errnoText("FrontPanelComs::sendLine() failed", EBADF));
    EXPECT_EQ(comms.bytesSent, 0u);
}

} // namespace
