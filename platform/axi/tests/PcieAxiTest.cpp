#include "platform/axi/PcieAxi.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/RegisterWindowFile.h"

using Calvento::testing::RegisterWindowFile;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

char const* const kTraceVariables[] = {"ENABLE_AXI_TRACING", "TRACE_FILTER_SUBSYSTEM",
                                       "TRACE_FILTER_ADDR", "TRACE_FILTER_SKIP_FIRST",
                                       "TRACE_SYNC"};

// Sets the trace variables in kTraceVariables order (nullptr: unset).
void setTraceEnvironment(std::vector<char const*> const& values) {
    for (std::size_t i = 0; i < std::size(kTraceVariables); ++i) {
        if (i < values.size() && values[i] != nullptr) {
            setenv(kTraceVariables[i], values[i], 1);
        } else {
            unsetenv(kTraceVariables[i]);
        }
    }
}

Calvento::PlatformPaths deviceAt(char const* path) {
    Calvento::PlatformPaths paths;
    paths.axiDevice = path;
    return paths;
}

// Traced as "[0]: axiRead(2, 0x10)", "[1]: axiWrite(3, 0x10, 0xab)", ...
void runTraceSequence(PcieAxi& axi) {
    axi.axiRead(2, 0x10);
    axi.axiWrite(3, 0x10, 0xab);
    axi.axiRead(2, 0x20);
    axi.axiRead(2, 0x21);
    axi.axiWrite(2, 0xF, 0x1);
    axi.axiRead(3, 0x18);
}

std::vector<std::string> traceLines(std::vector<int> const& which) {
    static std::vector<std::string> const all = {
        "[0]: axiRead(2, 0x10)", "[1]: axiWrite(3, 0x10, 0xab)", "[2]: axiRead(2, 0x20)",
        "[3]: axiRead(2, 0x21)", "[4]: axiWrite(2, 0xf, 0x1)",   "[5]: axiRead(3, 0x18)"};
    std::vector<std::string> lines;
    for (int i : which) {
        lines.push_back(all.at(static_cast<std::size_t>(i)));
    }
    return lines;
}

std::size_t openDescriptors() {
    auto const entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace

TEST(PcieAxi, WordAddressInsideTheWindowAndRefusalBeyondIt) {
    struct Case {
        unsigned int subsystem, offset;
        std::int64_t wordIndex; // -1: outside the window
    };
    std::vector<Case> const cases = {
        {1, 5, 0x10005},        {3, 0x10005, 0x30005}, // offset wraps inside sub-system 3
        {31, 0xFFFF, 0x1FFFFF}, {2, 0xFFFFFFFF, 0x2FFFF}, {32, 0, -1},
        {0x10000, 7, -1}, // would wrap onto sub-system 0 in 32 bits
        {0xFFFFFFFF, 7, -1},
    };
    RegisterWindowFile window;
    PcieAxi axi(window.paths());
    ScopedRecordingLogger log;
    unsigned int value = 0x1000;
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.subsystem << ":" << std::hex << c.offset);
        log.clear();
        ++value;
        axi.axiWrite(c.subsystem, c.offset, value);
        if (c.wordIndex < 0) {
            EXPECT_EQ(axi.axiRead(c.subsystem, c.offset), 0xFFFFFFFFU);
            std::string const line = fmt::format("AXI access to subsystem {} offset 0x{:x} is "
                                                 "outside the register window - refused",
                                                 c.subsystem, c.offset);
            EXPECT_THAT(log.lines(), ElementsAre(line, line));
            continue;
        }
        EXPECT_EQ(window.word(static_cast<std::uint64_t>(c.wordIndex)), value);
        window.setWord(static_cast<std::uint64_t>(c.wordIndex), ~value);
        EXPECT_EQ(axi.axiRead(c.subsystem, c.offset), ~value);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
    EXPECT_EQ(window.word(7), 0U);
    EXPECT_EQ(window.word(0x30004) | window.word(0x30006) | window.word(0x40005), 0U);
    EXPECT_EQ(axi.getAccessCount(), 8); // refused accesses are not accesses
}

TEST(PcieAxi, WithoutAMappingReadsAllOnesRecordsNothingAndHoldsNoDescriptor) {
    // /dev/null opens read/write but cannot be mapped.
    for (char const* device : {"/nonexistent/xdma0_user", "/dev/null"}) {
        SCOPED_TRACE(device);
        std::size_t const descriptorsBefore = openDescriptors();
        std::uint64_t const historyBefore = PcieAxi::accessHistoryPos;
        testing::internal::CaptureStderr();
        std::vector<std::unique_ptr<PcieAxi>> five;
        for (int i = 0; i < 5; ++i) {
            five.push_back(std::make_unique<PcieAxi>(deviceAt(device)));
        }
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
        EXPECT_EQ(five[0]->axiRead(0, 0x10), 0xFFFFFFFFU);
        five[0]->axiWrite(0, 0x07, 42);
        EXPECT_EQ(PcieAxi::accessHistoryPos, historyBefore);
    }
}

TEST(PcieAxi, HistoryIsClassWideNewestFirstAtMostEight) {
    RegisterWindowFile window;
    PcieAxi first(window.paths());
    PcieAxi second(window.paths());
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

    std::string const dump = "Last few AXI accesses (newest first):\n"
                             "AXI R> Subsystem: 0x10 Register: 0x10\n"
                             "AXI W> Subsystem: 0x1f Register: 0xffff\n"
                             "AXI R> Subsystem: 0x7 Register: 0x8\n"
                             "AXI R> Subsystem: 0x6 Register: 0x7\n"
                             "AXI W> Subsystem: 0x5 Register: 0x10006\n"
                             "AXI R> Subsystem: 0x4 Register: 0xabcd\n"
                             "AXI W> Subsystem: 0x3 Register: 0x4\n"
                             "AXI R> Subsystem: 0x2 Register: 0x3\n";
    EXPECT_EQ(PcieAxi::printAccessesToString(), dump);
    testing::internal::CaptureStderr();
    PcieAxi::printAccesses();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), dump);
}

TEST(PcieAxi, TraceFilter) {
    struct Case {
        // ENABLE_AXI_TRACING, TRACE_FILTER_SUBSYSTEM, _ADDR, _SKIP_FIRST
        std::vector<char const*> variables;
        std::vector<int> traced;
    };
    std::vector<Case> const cases = {
        {{}, {}},
        {{"0"}, {}},
        {{nullptr, "3"}, {}},
        {{"1"}, {1, 2, 3, 4, 5}}, // access 0 is not above the default skip of 0
        {{"0x1"}, {1, 2, 3, 4, 5}},
        {{"1", "3"}, {1, 5}},
        {{"1", nullptr, "0x10"}, {1, 2, 3, 5}},
        {{"1", nullptr, "0x10:0x20"}, {1, 2, 5}},
        {{"1", nullptr, "16:32"}, {1, 2, 5}},
        {{"1", nullptr, "zz"}, {1, 2, 3, 4, 5}},
        {{"1", nullptr, "0x10:junk"}, {1, 2, 3, 5}},
        {{"1", nullptr, "0X10"}, {1, 2, 3, 4, 5}}, // only "0x" means hexadecimal
        {{"1", nullptr, nullptr, "-1"}, {0, 1, 2, 3, 4, 5}},
        {{"1", nullptr, nullptr, "2"}, {3, 4, 5}},
        {{"1", "2", nullptr, "2"}, {3, 4}}, // the skip counts every access
        {{"1", "2", "0x10:0x20", "1"}, {2}},
    };
    RegisterWindowFile window;
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.traced));
        setTraceEnvironment(c.variables);
        ScopedRecordingLogger log;
        PcieAxi axi(window.paths());
        runTraceSequence(axi);
        EXPECT_THAT(log.lines(), ElementsAreArray(traceLines(c.traced)));
    }
    // The environment counts only when the object is built.
    ScopedRecordingLogger log;
    setTraceEnvironment({"1", "3"});
    PcieAxi tracing(window.paths());
    setTraceEnvironment({nullptr, "2"});
    PcieAxi quiet(window.paths());
    setTraceEnvironment({"1"});
    runTraceSequence(tracing);
    runTraceSequence(quiet);
    EXPECT_THAT(log.lines(), ElementsAreArray(traceLines({1, 5})));
    setTraceEnvironment({});
}

TEST(PcieAxiDeathTest, UnassignedSubsystemAbortsBeforeAnythingElse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    RegisterWindowFile window;
    for (bool const mapped : {true, false}) {
        EXPECT_DEATH(
            {
                spdlog::drop("VYLOG");
                spdlog::register_logger(std::make_shared<spdlog::logger>(
                    "VYLOG", std::make_shared<spdlog::sinks::stderr_sink_st>()));
                PcieAxi axi(mapped ? window.paths() : deviceAt("/nonexistent"));
                mapped ? static_cast<void>(axi.axiRead(99, 0)) : axi.axiWrite(99, 0x10, 1);
            },
            "Attempting AXI access to unassigned subsystem - unable to continue - aborting.*"
            "Last few AXI accesses");
    }
}
