#include "logging/Logging.h"
#include "logging/VyLog.h"
#include "logging/testing/RecordingSink.h"

#include <cctype>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <syslog.h>

// What the syslog sink passed to openlog(). This definition in the test
// executable takes the place of the C library's, so the tag, options and
// facility that syslogd will see can be checked; syslog() itself still goes
// to the C library.
struct OpenlogCall {
    std::string ident;
    int option;
    int facility;
    bool operator==(OpenlogCall const& other) const {
        return ident == other.ident && option == other.option && facility == other.facility;
    }
};

void PrintTo(OpenlogCall const& call, std::ostream* os) {
    *os << "openlog(\"" << call.ident << "\", " << call.option << ", " << call.facility << ")";
}

std::vector<OpenlogCall>& openlogCalls() {
    static std::vector<OpenlogCall> calls;
    return calls;
}

extern "C" void openlog(char const* ident, int option, int facility) {
    openlogCalls().push_back({ident ? ident : "<null>", option, facility});
}

namespace {

// Redirects file descriptor 1 into a temporary file for its lifetime, so the
// test reads back exactly what the standard-output sink wrote.
class CapturedStdout {
public:
    CapturedStdout() {
        std::fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        file_ = std::tmpfile();
        dup2(fileno(file_), STDOUT_FILENO);
    }
    ~CapturedStdout() {
        restore();
        std::fclose(file_);
    }
    std::string text() {
        restore();
        std::rewind(file_);
        std::string out;
        char buffer[512];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, file_)) > 0) {
            out.append(buffer, n);
        }
        return out;
    }

private:
    void restore() {
        if (saved_ >= 0) {
            std::fflush(stdout);
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
            saved_ = -1;
        }
    }
    int saved_ = -1;
    std::FILE* file_ = nullptr;
};

// True when every line of text is "[<date>][tid:<digits>][<tail>" with the
// tails given in order.
bool matchesPattern(std::string const& text, std::string const& date,
                    std::vector<std::string> const& tails) {
    std::istringstream lines(text);
    std::string line;
    size_t index = 0;
    while (std::getline(lines, line)) {
        if (index >= tails.size()) {
            return false;
        }
        std::string const head = "[" + date + "][tid:";
        if (line.compare(0, head.size(), head) != 0) {
            return false;
        }
        size_t pos = head.size();
        size_t const digitsStart = pos;
        while (pos < line.size() && std::isdigit(static_cast<unsigned char>(line[pos]))) {
            ++pos;
        }
        if (pos == digitsStart || line.compare(pos, std::string::npos, "][" + tails[index]) != 0) {
            return false;
        }
        ++index;
    }
    return index == tails.size() && !text.empty() && text.back() == '\n';
}

class LoggingTest : public ::testing::Test {
protected:
    void SetUp() override { openlogCalls().clear(); }
    void TearDown() override { spdlog::drop_all(); }
};

TEST_F(LoggingTest, StdoutSinkComesBeforeSyslogSink) {
    Calvento::initLogging(true, "/home/transfer/log/");
    auto logger = spdlog::get("VYLOG");
    ASSERT_NE(logger, nullptr);
    auto const& sinks = logger->sinks();
    ASSERT_EQ(sinks.size(), 2u);
    EXPECT_NE(std::dynamic_pointer_cast<spdlog::sinks::stdout_sink_mt>(sinks[0]), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<spdlog::sinks::syslog_sink_mt>(sinks[1]), nullptr);
    // The directory is only a prefix of the tag, with no separator added;
    // options 0, facility user (8).
    EXPECT_EQ(openlogCalls(), (std::vector<OpenlogCall>{{"/home/transfer/log/vyapp", 0, 8}}));
}

TEST_F(LoggingTest, WithoutStdoutOnlySyslogSink) {
    Calvento::initLogging(false, nullptr);
    auto logger = spdlog::get("VYLOG");
    ASSERT_NE(logger, nullptr);
    ASSERT_EQ(logger->sinks().size(), 1u);
    EXPECT_NE(std::dynamic_pointer_cast<spdlog::sinks::syslog_sink_mt>(logger->sinks()[0]),
              nullptr);
    EXPECT_EQ(openlogCalls(), (std::vector<OpenlogCall>{{"vyapp", 0, 8}}));
}

TEST_F(LoggingTest, SecondInitialisationIsRefused) {
    Calvento::initLogging(false, nullptr);
    EXPECT_THROW(Calvento::initLogging(false, nullptr), spdlog::spdlog_ex);
}

TEST_F(LoggingTest, LinesFollowThePattern) {
    Calvento::initLogging(true, "/tmp/");
    std::string text;
    {
        CapturedStdout capture;
        Calvento::vyLogError("ERROR: value {} out of range", 42);
        Calvento::vyLogInfo("plain");
        text = capture.text();
    }
    char today[64];
    std::time_t now = std::time(nullptr);
    // spdlog's %C is the two-digit year.
    std::tm const* local = std::localtime(&now);
    std::snprintf(today, sizeof today, "%02d/%02d/%02d", local->tm_year % 100, local->tm_mon + 1,
                  local->tm_mday);
    EXPECT_TRUE(matchesPattern(text, today, {"E]> ERROR: value 42 out of range", "I]> plain"}))
        << text;
}

TEST_F(LoggingTest, CeaseEmptiesTheRegistryAndLaterLoggingIsSilent) {
    Calvento::initLogging(true, "/tmp/");
    spdlog::stdout_logger_mt("other");
    Calvento::ceaseLogging();
    EXPECT_EQ(spdlog::get("VYLOG"), nullptr);
    EXPECT_EQ(Calvento::vyLogger(), nullptr);
    int registered = 0;
    spdlog::apply_all([&](std::shared_ptr<spdlog::logger>) { ++registered; });
    EXPECT_EQ(registered, 0);

    CapturedStdout capture;
    Calvento::vyLogError("ERROR: nobody hears this");
    EXPECT_EQ(capture.text(), "");
}

TEST_F(LoggingTest, RecordingLoggerSeesPlatformMessages) {
    Calvento::testing::ScopedRecordingLogger recorder;
    Calvento::vyLogError("ERROR: {} of {}", 1, "two");
    Calvento::vyLogDebug("debug {}", 3);
    EXPECT_EQ(recorder.lines(), (std::vector<std::string>{"ERROR: 1 of two", "debug 3"}));
}

} // namespace
