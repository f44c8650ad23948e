// The real program in a real terminal (tmux) on a machine without a front
// panel or FPGA: usage text, the missing self-test image, the serial number
// screen, a run that cannot open the panel, and an ending by SIGTERM.

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>

#include "app/tests/TestFiles.h"

namespace {

std::string shellQuote(std::string const& s) {
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string runCommand(std::string const& cmd) {
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return out;
    char buf[4096];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    pclose(p);
    return out;
}

// One tmux server on its own socket, 80x24, running the program under sh;
// the server is killed with the object.
class TmuxSession {
public:
    explicit TmuxSession(std::string const& args) {
        m_socket = "fpt-app-test-" + std::to_string(getpid()) + "-" + std::to_string(++s_count);
        std::string const inner =
            std::string(FPT_APP_BINARY) + " " + args + "; echo EXIT=$?; sleep 60";
        runCommand(tmux() + " new-session -d -s t -x 80 -y 24 " + shellQuote(inner));
    }
    ~TmuxSession() { runCommand(tmux() + " kill-server 2>/dev/null"); }
    TmuxSession(TmuxSession const&) = delete;
    TmuxSession& operator=(TmuxSession const&) = delete;

    std::string screen() const { return runCommand(tmux() + " capture-pane -p -t t"); }
    std::string row(int r) const {
        std::istringstream in(screen());
        std::string line;
        for (int i = 0; i <= r; ++i)
            if (!std::getline(in, line))
                return {};
        line.erase(line.find_last_not_of(' ') + 1);
        return line;
    }
    // Waits (up to 15 s) until the screen contains text.
    bool waitFor(std::string const& text) const {
        for (int i = 0; i < 150; ++i) {
            if (screen().find(text) != std::string::npos)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }
    void sendKeys(std::string const& keys) const { runCommand(tmux() + " send-keys -t t " + keys); }
    void resize(int columns, int rows) const {
        runCommand(tmux() + " resize-window -t t -x " + std::to_string(columns) + " -y " +
                   std::to_string(rows));
    }
    // The program's pid: the child of the pane's shell.
    std::string programPid() const {
        std::string const shell = runCommand(tmux() + " display -p -t t '#{pane_pid}'");
        std::string pid = runCommand("pgrep -P " + shell.substr(0, shell.find('\n')));
        return pid.substr(0, pid.find('\n'));
    }

private:
    std::string tmux() const { return "tmux -L " + m_socket; }
    std::string m_socket;
    static inline int s_count = 0;
};

// The program run with -x and a results file in a fresh directory, waiting at
// the serial number prompt.
class AtSerialPrompt : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(s.waitFor("Enter CV084 PCB Serial No:")) << s.screen(); }
    QTemporaryDir dir;
    std::string results = QDir(dir.path()).filePath(QStringLiteral("r.txt")).toStdString();
    TmuxSession s{"-x -f " + results};
};

} // namespace

TEST(RealProgram, HelpPrintsUsageAndExitsOne) {
    TmuxSession s("-h");
    ASSERT_TRUE(s.waitFor("EXIT=")) << s.screen();
    EXPECT_EQ(s.row(0), "Usage: front_panel_test -x -h -? -f output/filename.txt");
    EXPECT_EQ(s.row(1), "Where:-");
    EXPECT_EQ(s.row(2), "  -? or -h      Prints ths help message");
    EXPECT_EQ(s.row(3), "  -x            Runs the testapp even if a valid FPGA bitfile is not "
                        "loaded.");
    EXPECT_EQ(s.row(4),
              "  -f <filename> Writes the output to the passed filename instead of /home/transf");
    EXPECT_EQ(s.row(5), "er/log/front_panel_test_nnnnnn_nnnnnn.txt");
    EXPECT_EQ(s.row(6), "EXIT=1");
}

TEST(RealProgram, RefusesToRunWithoutTheSelfTestImage) {
    TmuxSession s("");
    ASSERT_TRUE(s.waitFor("EXIT=")) << s.screen();
    std::string const screen = s.screen();
    EXPECT_NE(screen.find("ERROR: You dont have the appropriate FPGA test bit file loaded\n"
                          "You can load the bit file by running...\n"
                          "program_fpga_selftest.sh\n"
                          "\n"
                          "EXIT=1\n"),
              std::string::npos)
        << screen;
}

TEST_F(AtSerialPrompt, WithoutImageCheckAsksForTheSerialNumberThenFailsOnTheMissingPanel) {
    EXPECT_EQ(s.row(14), "          Enter CV084 PCB Serial No:");
    s.sendKeys("'  AB12 extra' Enter");
    ASSERT_TRUE(s.waitFor("Is that correct?")) << s.screen();
    EXPECT_EQ(s.row(14), "          Enter CV084 PCB Serial No:   AB12 extra");
    EXPECT_EQ(s.row(16), "          You Entered \"AB12\"");
    EXPECT_EQ(s.row(18), "          Is that correct? (Y/n):");
    s.sendKeys("y");
    // No /dev/cv084_app here: the run stops at once after creating the file.
    ASSERT_TRUE(s.waitFor("EXIT=")) << s.screen();
    std::string const screen = s.screen();
    EXPECT_NE(screen.find("Log filename: " + results + "\n"), std::string::npos) << screen;
    EXPECT_NE(screen.find("EXIT=255"), std::string::npos) << screen;
    std::string const log = fpt::testing::readWholeFile(QString::fromStdString(results));
    EXPECT_EQ(log.rfind("Front Panel Test Log\n~~~~~~~~~~~~~~~~~~~~\n\nTests Started: ", 0), 0u)
        << log;
    std::string const serialLine = "\nSerial No: AB12\n";
    ASSERT_GT(log.size(), serialLine.size()) << log;
    EXPECT_EQ(log.substr(log.size() - serialLine.size()), serialLine) << log;
}

// Operators resize or re-attach their terminal; the window changing size while
// they type the serial number must not end the answer early.
TEST_F(AtSerialPrompt, ResizeDuringSerialEntryKeepsWhatWasTyped) {
    s.sendKeys("-l SN12");
    ASSERT_TRUE(s.waitFor("Serial No: SN12")) << s.screen();
    s.resize(100, 30);
    s.sendKeys("-l 34");
    s.sendKeys("Enter");
    ASSERT_TRUE(s.waitFor("Is that correct?")) << s.screen();
    EXPECT_NE(s.screen().find("You Entered \"SN1234\""), std::string::npos) << s.screen();
}

// A window size change is not the operator's answer: at a one-key question
// (here the serial number's confirmation; the same read serves the summary,
// the menu and every test prompt) it must not be taken as a key.
TEST_F(AtSerialPrompt, ResizeIsNotAnAnswerToAOneKeyQuestion) {
    s.sendKeys("-l SN1");
    s.sendKeys("Enter");
    ASSERT_TRUE(s.waitFor("Is that correct?")) << s.screen();
    s.resize(100, 30);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    std::string const screen = s.screen();
    EXPECT_EQ(screen.find("EXIT="), std::string::npos) << screen;
    EXPECT_NE(screen.find("Is that correct? (Y/n):"), std::string::npos) << screen;
    // Still waiting for the answer: "n" asks for the number again.
    s.sendKeys("n");
    ASSERT_TRUE(s.waitFor("Enter CV084 PCB Serial No:")) << s.screen();
    EXPECT_EQ(s.screen().find("You Entered"), std::string::npos) << s.screen();
}

TEST_F(AtSerialPrompt, SigtermAtTheSerialPromptRestoresTheTerminal) {
    std::string const pid = s.programPid();
    ASSERT_FALSE(pid.empty());
    runCommand("kill -TERM " + pid);
    ASSERT_TRUE(s.waitFor("EXIT=")) << s.screen();
    std::string const screen = s.screen();
    EXPECT_NE(screen.find("EXIT=143"), std::string::npos) << screen;
    // The full-screen prompt is gone: the terminal is back in line mode.
    EXPECT_EQ(screen.find("Enter CV084 PCB Serial No:"), std::string::npos) << screen;
}
