#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/PcieAxi.h"
#include "platform/axi/testing/RegisterWindowFile.h"

using Calvento::testing::RegisterWindowFile;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

char const* const kTraceVariables[] = {"ENABLE_AXI_TRACING", "TRACE_FILTER_SUBSYSTEM",
                                       "TRACE_FILTER_ADDR", "TRACE_FILTER_SKIP_FIRST",
                                       "TRACE_SYNC"};

// Sets exactly the given trace variables (clearing the others) and puts the
// previous environment back afterwards.
class ScopedTraceEnvironment {
public:
    explicit ScopedTraceEnvironment(std::map<std::string, std::string> const& values) {
        for (char const* name : kTraceVariables) {
            if (char const* old = std::getenv(name)) {
                saved_[name] = old;
            }
            unsetenv(name);
        }
        for (auto const& [name, value] : values) {
            setenv(name.c_str(), value.c_str(), 1);
        }
    }
    ~ScopedTraceEnvironment() {
        for (char const* name : kTraceVariables) {
            unsetenv(name);
        }
        for (auto const& [name, value] : saved_) {
            setenv(name.c_str(), value.c_str(), 1);
        }
    }
    ScopedTraceEnvironment(ScopedTraceEnvironment const&) = delete;
    ScopedTraceEnvironment& operator=(ScopedTraceEnvironment const&) = delete;

private:
    std::map<std::string, std::string> saved_;
};

Calvento::PlatformPaths noDevice() {
    Calvento::PlatformPaths paths;
    paths.axiDevice = "/nonexistent/xdma0_user";
    return paths;
}

// The fixed access sequence the trace cases run.
void runTraceSequence(PcieAxi& axi) {
    axi.axiRead(2, 0x10);
    axi.axiWrite(3, 0x10, 0xab);
    axi.axiRead(2, 0x20);
    axi.axiRead(2, 0x21);
    axi.axiWrite(2, 0xF, 0x1);
    axi.axiRead(3, 0x18);
}

std::vector<std::string> const kAllTraceLines = {
    "[0]: axiRead(2, 0x10)", "[1]: axiWrite(3, 0x10, 0xab)", "[2]: axiRead(2, 0x20)",
    "[3]: axiRead(2, 0x21)", "[4]: axiWrite(2, 0xf, 0x1)",   "[5]: axiRead(3, 0x18)",
};

std::vector<std::string> traceLines(std::vector<int> const& which) {
    std::vector<std::string> lines;
    for (int i : which) {
        lines.push_back(kAllTraceLines.at(static_cast<std::size_t>(i)));
    }
    return lines;
}

class FlushCountingSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    int flushes = 0;
    int lines = 0;

protected:
    void sink_it_(spdlog::details::log_msg const&) override { ++lines; }
    void flush_() override { ++flushes; }
};

} // namespace

TEST(PcieAxi, WordIndexUsesLow16OffsetBitsInsideTheSubsystem) {
    struct Case {
        unsigned int subsystem, offset;
        std::uint64_t wordIndex;
    };
    std::vector<Case> const cases = {
        {0, 0, 0},
        {0, 0x10, 0x10},
        {1, 5, 0x10005},
        {3, 0x10005, 0x30005},    // offset wraps inside sub-system 3
        {31, 0xFFFF, 0x1FFFFF},   // last word of the window
        {2, 0xFFFFFFFF, 0x2FFFF}, // all high bits dropped
    };
    RegisterWindowFile window;
    PcieAxi axi(window.paths());
    ASSERT_TRUE(axi.isMapped());
    unsigned int value = 0x1000;
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.subsystem << ":" << std::hex << c.offset);
        ++value;
        axi.axiWrite(c.subsystem, c.offset, value);
        EXPECT_EQ(window.word(c.wordIndex), value);

        window.setWord(c.wordIndex, ~value);
        EXPECT_EQ(axi.axiRead(c.subsystem, c.offset), ~value);
    }
    // The neighbours of a wrapped offset are untouched.
    EXPECT_EQ(window.word(0x30004), 0U);
    EXPECT_EQ(window.word(0x30006), 0U);
    EXPECT_EQ(window.word(0x40005), 0U);
    EXPECT_EQ(axi.getAccessCount(), static_cast<int>(2 * cases.size()));
}

TEST(PcieAxi, WithoutADeviceReadsAllOnesAndRecordsNothing) {
    for (char const* device : {"/nonexistent/xdma0_user", "/dev/null"}) {
        SCOPED_TRACE(device);
        Calvento::PlatformPaths paths;
        paths.axiDevice = device;
        testing::internal::CaptureStderr();
        PcieAxi axi(paths);
        testing::internal::GetCapturedStderr();
        std::uint64_t const before = PcieAxi::accessHistoryPos;

        EXPECT_FALSE(axi.isMapped());
        EXPECT_EQ(axi.axiRead(0, 0x10), 0xFFFFFFFFU);
        axi.axiWrite(0, 0x07, 42);
        EXPECT_EQ(axi.axiRead(5, 0x07), 0xFFFFFFFFU);
        EXPECT_EQ(PcieAxi::accessHistoryPos, before);
        EXPECT_EQ(axi.getAccessCount(), 0);
    }
}

TEST(PcieAxi, HistoryIsClassWideNewestFirstAtMostEight) {
    RegisterWindowFile window;
    PcieAxi first(window.paths());
    PcieAxi second(window.paths());
    std::uint64_t const before = PcieAxi::accessHistoryPos;

    // Ten accesses, alternating objects: only the last eight are kept.
    first.axiWrite(0, 0x1, 1);
    second.axiRead(1, 0x2);
    first.axiRead(2, 0x3);
    second.axiWrite(3, 0x4, 4);
    first.axiRead(4, 0xABCD);
    second.axiWrite(5, 0x10006, 6);
    first.axiRead(6, 0x7);
    second.axiRead(7, 0x8);
    first.axiWrite(0x1F, 0xFFFF, 9);
    second.axiRead(0x10, 0x10);

    EXPECT_EQ(PcieAxi::accessHistoryPos, before + 10);
    EXPECT_EQ(first.getAccessCount(), 5);
    EXPECT_EQ(second.getAccessCount(), 5);
    EXPECT_EQ(PcieAxi::printAccessesToString(), "Last few AXI accesses (newest first):\n"
                                                "AXI R> Subsystem: 0x10 Register: 0x10\n"
                                                "AXI W> Subsystem: 0x1f Register: 0xffff\n"
                                                "AXI R> Subsystem: 0x7 Register: 0x8\n"
                                                "AXI R> Subsystem: 0x6 Register: 0x7\n"
                                                "AXI W> Subsystem: 0x5 Register: 0x10006\n"
                                                "AXI R> Subsystem: 0x4 Register: 0xabcd\n"
                                                "AXI W> Subsystem: 0x3 Register: 0x4\n"
                                                "AXI R> Subsystem: 0x2 Register: 0x3\n");

    testing::internal::CaptureStderr();
    PcieAxi::printAccesses();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), PcieAxi::printAccessesToString());
}

TEST(PcieAxi, TraceFilter) {
    struct Case {
        char const* what;
        // ENABLE_AXI_TRACING, TRACE_FILTER_SUBSYSTEM, _ADDR, _SKIP_FIRST; nullptr: unset
        char const* variables[4];
        std::vector<int> traced;
    };
    std::vector<Case> const cases = {
        {"tracing not enabled", {}, {}},
        {"tracing set to 0", {"0"}, {}},
        {"filters without tracing", {nullptr, "3"}, {}},
        {"everything", {"1"}, {1, 2, 3, 4, 5}},
        {"hex enable", {"0x1"}, {1, 2, 3, 4, 5}},
        {"sub-system 3", {"1", "3"}, {1, 5}},
        {"offset 0x10 and above", {"1", nullptr, "0x10"}, {1, 2, 3, 5}},
        {"offsets 0x10 to 0x20", {"1", nullptr, "0x10:0x20"}, {1, 2, 5}},
        {"offsets 16 to 32", {"1", nullptr, "16:32"}, {1, 2, 5}},
        {"offsets 0x18 to 0x18", {"1", nullptr, "0x18:0x18"}, {5}},
        {"low bound not a number", {"1", nullptr, "zz"}, {1, 2, 3, 4, 5}},
        {"high bound not a number", {"1", nullptr, "0x10:junk"}, {1, 2, 3, 5}},
        // The very first access (count 0) is never above the default skip
        // count of 0, so it is not traced.
        {"skip nothing", {"1", nullptr, nullptr, "-1"}, {0, 1, 2, 3, 4, 5}},
        {"skip first two", {"1", nullptr, nullptr, "2"}, {3, 4, 5}},
        {"skip counts every access", {"1", "2", nullptr, "2"}, {3, 4}},
        {"all filters", {"1", "2", "0x10:0x20", "1"}, {2}},
    };
    RegisterWindowFile window;
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        std::map<std::string, std::string> variables;
        for (int i = 0; i < 4; ++i) {
            if (c.variables[i] != nullptr) {
                variables[kTraceVariables[i]] = c.variables[i];
            }
        }
        ScopedTraceEnvironment environment(variables);
        ScopedRecordingLogger log;
        PcieAxi axi(window.paths());
        runTraceSequence(axi);
        EXPECT_THAT(log.lines(), ElementsAreArray(traceLines(c.traced)));
    }
}

TEST(PcieAxi, EnvironmentIsReadOnlyAtConstruction) {
    RegisterWindowFile window;
    ScopedRecordingLogger log;
    {
        ScopedTraceEnvironment environment({});
        PcieAxi quiet(window.paths());
        setenv("ENABLE_AXI_TRACING", "1", 1);
        runTraceSequence(quiet);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
    {
        ScopedTraceEnvironment environment(
            {{"ENABLE_AXI_TRACING", "1"}, {"TRACE_FILTER_SUBSYSTEM", "3"}});
        PcieAxi tracing(window.paths());
        unsetenv("ENABLE_AXI_TRACING");
        setenv("TRACE_FILTER_SUBSYSTEM", "2", 1);
        runTraceSequence(tracing);
        EXPECT_THAT(log.lines(), ElementsAreArray(traceLines({1, 5})));
    }
}

TEST(PcieAxi, TraceSyncFlushesEveryLine) {
    RegisterWindowFile window;
    for (bool sync : {false, true}) {
        SCOPED_TRACE(sync);
        ScopedTraceEnvironment environment(
            {{"ENABLE_AXI_TRACING", "1"}, {"TRACE_SYNC", sync ? "1" : "0"}});
        auto sink = std::make_shared<FlushCountingSink>();
        spdlog::drop("VYLOG");
        spdlog::register_logger(std::make_shared<spdlog::logger>("VYLOG", sink));
        PcieAxi axi(window.paths());
        EXPECT_EQ(axi.isTraceSync(), sync);
        runTraceSequence(axi);
        spdlog::drop("VYLOG");
        EXPECT_EQ(sink->lines, 5);
        EXPECT_EQ(sink->flushes, sync ? 5 : 0);
    }
}

TEST(PcieAxi, ReadIntEnvVar) {
    struct Case {
        char const* text; // nullptr: unset
        int index;
        int expected;
    };
    std::vector<Case> const cases = {
        {nullptr, 0, -7},
        {"16", 0, 16},
        {"0x1ff", 0, 0x1ff},
        {"0x100:0x1ff", 0, 0x100},
        {"0x100:0x1ff", 1, 0x1ff},
        {"0x100:0x1ff", 2, -7},
        {"16", 1, -7},
        {"zz", 0, -7},
        {"0x", 0, -7},
        {"0X10", 0, -7},
        {"-5", 0, -5},
        {"", 0, -7},
        {":12", 1, 12},
        {"1:2:3", 2, 3},
        {"0xzz", 0, -7},
        {"99999999999", 0, -7},
    };
    PcieAxi axi(noDevice());
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << (c.text ? c.text : "(unset)") << " #" << c.index);
        if (c.text != nullptr) {
            setenv("FPT_TEST_INT_VARIABLE", c.text, 1);
        } else {
            unsetenv("FPT_TEST_INT_VARIABLE");
        }
        EXPECT_EQ(axi.readIntEnvVar("FPT_TEST_INT_VARIABLE", -7, c.index, ':'), c.expected);
    }
    unsetenv("FPT_TEST_INT_VARIABLE");
}

TEST(PcieAxi, FiltersStayOffUnlessTracing) {
    ScopedTraceEnvironment environment({{"TRACE_FILTER_SUBSYSTEM", "3"},
                                        {"TRACE_FILTER_ADDR", "1:2"},
                                        {"TRACE_FILTER_SKIP_FIRST", "4"},
                                        {"TRACE_SYNC", "1"}});
    PcieAxi axi(noDevice());
    EXPECT_FALSE(axi.isTracingEnabled());
    EXPECT_EQ(axi.getFilterSubsystem(), -1);
    EXPECT_EQ(axi.getFilterAddrLow(), -1);
    EXPECT_EQ(axi.getFilterAddrHigh(), -1);
    EXPECT_EQ(axi.getSkipFirst(), -1);
    EXPECT_FALSE(axi.isTraceSync());
    EXPECT_FALSE(axi.shouldPrintAxiTrace(3, 1));
}

namespace {
void logToStderr() {
    spdlog::drop("VYLOG");
    spdlog::register_logger(std::make_shared<spdlog::logger>(
        "VYLOG", std::make_shared<spdlog::sinks::stderr_sink_st>()));
}
} // namespace

TEST(PcieAxiDeathTest, UnassignedSubsystemAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    RegisterWindowFile window;
    // The last case has no device: that does not save it, the check comes first.
    struct Case {
        Calvento::PlatformPaths paths;
        bool write;
        unsigned int offset;
    };
    for (Case const& c : {Case{window.paths(), false, 0}, Case{window.paths(), true, 0x10},
                          Case{noDevice(), true, 0}}) {
        SCOPED_TRACE(c.offset);
        EXPECT_DEATH(
            {
                logToStderr();
                PcieAxi axi(c.paths);
                c.write ? axi.axiWrite(99, c.offset, 1) : static_cast<void>(axi.axiRead(99, 0));
            },
            "Attempting AXI access to unassigned subsystem - unable to continue - aborting.*"
            "Last few AXI accesses");
    }
}
