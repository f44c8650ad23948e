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
using ::testing::ElementsAreArray;

namespace {

// ENABLE_AXI_TRACING, TRACE_FILTER_SUBSYSTEM, TRACE_FILTER_ADDR and
// TRACE_FILTER_SKIP_FIRST in that order; nullptr or missing: unset.
void setTraceEnvironment(std::vector<char const*> const& values) {
    char const* const names[] = {"ENABLE_AXI_TRACING", "TRACE_FILTER_SUBSYSTEM",
                                 "TRACE_FILTER_ADDR", "TRACE_FILTER_SKIP_FIRST"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        i < values.size() && values[i] ? setenv(names[i], values[i], 1) : unsetenv(names[i]);
    }
}

Calvento::PlatformPaths deviceAt(char const* path) {
    Calvento::PlatformPaths paths;
    paths.axiDevice = path;
    return paths;
}

} // namespace

TEST(PcieAxi, WordAddressInsideTheWindowAndRefusalBeyondIt) {
    struct Case {
        unsigned int subsystem, offset;
        std::int64_t wordIndex; // -1: outside the window
    };
    RegisterWindowFile window;
    PcieAxi axi(window.paths());
    unsigned int value = 0x1000;
    for (Case const& c : std::vector<Case>{{3, 0x10005, 0x30005}, // the offset wraps
                                           {31, 0xFFFF, 0x1FFFFF},
                                           {2, 0xFFFFFFFF, 0x2FFFF},
                                           {32, 0, -1},
                                           {0x10000, 7, -1}}) { // wraps onto 0 in 32 bits
        ++value;
        axi.axiWrite(c.subsystem, c.offset, value);
        if (c.wordIndex < 0) {
            EXPECT_EQ(axi.axiRead(c.subsystem, c.offset), 0xFFFFFFFFU);
            continue;
        }
        EXPECT_EQ(window.word(static_cast<std::uint64_t>(c.wordIndex)), value);
        window.setWord(static_cast<std::uint64_t>(c.wordIndex), ~value);
        EXPECT_EQ(axi.axiRead(c.subsystem, c.offset), ~value);
    }
    EXPECT_EQ(window.word(7) | window.word(0x30004) | window.word(0x40005), 0U);
    EXPECT_EQ(axi.getAccessCount(), 6); // refused accesses are not accesses
}

TEST(PcieAxi, WithoutAMappingReadsAllOnesRecordsNothingAndHoldsNoDescriptor) {
    auto const openDescriptors = [] {
        auto const entries = std::filesystem::directory_iterator("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    // /dev/null opens read/write but cannot be mapped.
    for (char const* device : {"/nonexistent/xdma0_user", "/dev/null"}) {
        auto const descriptorsBefore = openDescriptors();
        std::uint64_t const historyBefore = PcieAxi::accessHistoryPos;
        testing::internal::CaptureStderr();
        PcieAxi axi(deviceAt(device));
        PcieAxi another(deviceAt(device));
        std::string const err = testing::internal::GetCapturedStderr();
        std::string const each = device[1] == 'n' // no newline after the first
                                     ? "CALVLIB: Error opening device file "
                                       "/nonexistent/xdma0_user: No such file or directory"
                                     : "CALVLIB: failed to map memory: No such device\n";
        EXPECT_EQ(err, each + each);
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
        EXPECT_EQ(axi.axiRead(0, 0x10), 0xFFFFFFFFU);
        axi.axiWrite(0, 0x07, 42);
        EXPECT_EQ(PcieAxi::accessHistoryPos, historyBefore);
    }
}

TEST(PcieAxi, TraceFilterReadWhenBuilt) {
    std::vector<std::string> const all = {
        "[0]: axiRead(2, 0x10)", "[1]: axiWrite(3, 0x10, 0xab)", "[2]: axiRead(2, 0x20)",
        "[3]: axiRead(2, 0x21)", "[4]: axiWrite(2, 0xf, 0x1)",   "[5]: axiRead(3, 0x18)"};
    struct Case {
        std::vector<char const*> variables;
        std::vector<int> traced;
    };
    RegisterWindowFile window;
    for (Case const& c : std::vector<Case>{
             {{"0", "3"}, {}},
             {{"0x1"}, {1, 2, 3, 4, 5}}, // access 0 is not above the default skip of 0
             {{"1", "3"}, {1, 5}},
             {{"1", nullptr, "0x10"}, {1, 2, 3, 5}},
             {{"1", nullptr, "0x10:junk"}, {1, 2, 3, 5}},
             {{"1", nullptr, "0X10"}, {1, 2, 3, 4, 5}}, // only "0x" means hexadecimal
             {{"1", nullptr, nullptr, "-1"}, {0, 1, 2, 3, 4, 5}},
             {{"1", "2", nullptr, "2"}, {3, 4}}, // the skip counts every access
             {{"1", "2", "0x10:0x20", "1"}, {2}}}) {
        setTraceEnvironment(c.variables);
        ScopedRecordingLogger log;
        PcieAxi axi(window.paths());
        setTraceEnvironment({"1"}); // too late to matter
        axi.axiRead(2, 0x10);
        axi.axiWrite(3, 0x10, 0xab);
        axi.axiRead(2, 0x20);
        axi.axiRead(2, 0x21);
        axi.axiWrite(2, 0xF, 0x1);
        axi.axiRead(3, 0x18);
        std::vector<std::string> expected;
        for (int i : c.traced) {
            expected.push_back(all[static_cast<std::size_t>(i)]);
        }
        EXPECT_THAT(log.lines(), ElementsAreArray(expected));
    }
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

TEST(PcieAxiDeathTest, HistoryIsClassWideNewestFirstAtMostEight) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // nothing recorded yet
    EXPECT_EXIT(
        {
            PcieAxi::printAccesses();
            RegisterWindowFile window;
            PcieAxi first(window.paths());
            PcieAxi second(window.paths());
            first.axiRead(0, 0x10);
            second.axiWrite(9, 0x20, 5);
            PcieAxi::printAccesses(); // never further back than the first record
            for (unsigned int i = 2; i < 10; ++i) {
                PcieAxi& axi = i % 2 ? second : first;
                i % 3 ? static_cast<void>(axi.axiRead(i, 0xFFF0 + i))
                      : axi.axiWrite(i, 0x10000 + i, 1);
            }
            PcieAxi::printAccesses();
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "^Last few AXI accesses \\(newest first\\):\nNONE\n"
        "Last few AXI accesses \\(newest first\\):\n"
        "AXI W> Subsystem: 0x9 Register: 0x20\nAXI R> Subsystem: 0x0 Register: 0x10\n"
        "Last few AXI accesses \\(newest first\\):\n"
        "AXI W> Subsystem: 0x9 Register: 0x10009\nAXI R> Subsystem: 0x8 Register: 0xfff8\n"
        "AXI R> Subsystem: 0x7 Register: 0xfff7\nAXI W> Subsystem: 0x6 Register: 0x10006\n"
        "AXI R> Subsystem: 0x5 Register: 0xfff5\nAXI R> Subsystem: 0x4 Register: 0xfff4\n"
        "AXI W> Subsystem: 0x3 Register: 0x10003\nAXI R> Subsystem: 0x2 Register: 0xfff2\n$");
}
