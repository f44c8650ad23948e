#include "logging/Logging.h"
#include "logging/VyLog.h"

#include <cstdio>
#include <ctime>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <spdlog/sinks/stdout_sinks.h>

// What the syslog sink passed to openlog(): this definition in the test
// program takes the place of the C library's, so the tag, options and
// facility that syslogd would see can be checked.
static std::string openlogCall;
extern "C" void openlog(char const* ident, int option, int facility) {
    openlogCall =
        std::string(ident) + " " + std::to_string(option) + " " + std::to_string(facility);
}

namespace {

TEST(LoggingTest, VylogGoesToStdoutInItsPatternAndToSyslogUnderItsIdentity) {
    testing::internal::CaptureStdout();
    Calvento::initLogging(true, "/home/transfer/log/");
    Calvento::vyLogError("value {} out of range", 42);
    const std::time_t now = std::time(nullptr);
    const std::tm* today = std::localtime(&now);
    char line[128];
    std::snprintf(line, sizeof line, "[%02d/%02d/%02d][tid:%ld][E]> value 42 out of range\n",
                  today->tm_year % 100, today->tm_mon + 1, today->tm_mday, ::syscall(SYS_gettid));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line);
    EXPECT_EQ(openlogCall, "/home/transfer/log/vyapp 0 8");
    Calvento::ceaseLogging();

    // Without stdout only syslog hears it; after ceasing nobody does, and
    // every logger is gone.
    testing::internal::CaptureStdout();
    Calvento::initLogging(false, nullptr);
    Calvento::vyLogError("syslog only");
    EXPECT_EQ(openlogCall, "vyapp 0 8");
    spdlog::stdout_logger_mt("other");
    Calvento::ceaseLogging();
    Calvento::vyLogError("nobody hears this");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    int registered = 0;
    spdlog::apply_all([&](std::shared_ptr<spdlog::logger> const&) { ++registered; });
    EXPECT_EQ(registered, 0);
}

} // namespace
