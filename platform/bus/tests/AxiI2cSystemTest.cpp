#include "platform/bus/AxiI2cSystem.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/AxiRegisterRam.h"

using Calvento::testing::AxiRegisterRam;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAreArray;

namespace {

constexpr unsigned int kStatus = 0x2A;
constexpr unsigned int kCommand = 0x2B;

// The FPGA engine over a register RAM whose status register follows a script.
struct Engine {
    explicit Engine(std::vector<unsigned int> status) {
        axi->script(0, kStatus, std::move(status));
    }
    std::size_t count(bool isRead, unsigned int offset) const {
        return static_cast<std::size_t>(
            std::count_if(axi->accesses.begin(), axi->accesses.end(),
                          [&](auto const& a) { return a.isRead == isRead && a.offset == offset; }));
    }
    std::shared_ptr<AxiRegisterRam> axi = std::make_shared<AxiRegisterRam>();
    AxiI2cSystem i2c{axi};
    ScopedRecordingLogger log;
};

TEST(AxiI2cSystem, StatusPollingStopsOnItsConditionOrAfter1024MorePolls) {
    struct Case {
        bool multiPhase;
        std::vector<unsigned int> script;
        std::size_t reads;
        unsigned int result;
    };
    for (Case const& c : std::vector<Case>{{false, {0x400, 0xC00, 0x800}, 3, 0x800},
                                           {false, {0x400}, 1025, 0x400},
                                           {true, {0x800, 0xC00, 0x400}, 3, 0x400},
                                           {true, {0x900}, 1, 0x900},
                                           {true, {0xC00}, 1025, 0xC00},
                                           {true, {0x000}, 1025, 0}}) {
        Engine engine(c.script);
        EXPECT_EQ(c.multiPhase ? engine.i2c.i2cMultiPhaseBusySetAndGetStatusRegister()
                               : engine.i2c.waitForI2cReadyAndGetStatusRegister(),
                  c.result);
        EXPECT_EQ(engine.axi->accesses.size(), c.reads);
    }
}

TEST(AxiI2cSystem, ProbeTriesElevenTimesForANonZeroStatusWithoutNak) {
    struct Case {
        std::vector<unsigned int> script;
        bool present;
        std::size_t commands;
    };
    for (Case const& c : std::vector<Case>{{{0x800}, true, 1},
                                           {{0x800, 0x900, 0x900, 0x800}, true, 3},
                                           {{0x800, 0x900}, false, 11},
                                           {{0}, false, 11}}) {
        Engine engine(c.script);
        EXPECT_EQ(engine.i2c.i2cProbe(2, 0x1C), c.present);
        EXPECT_EQ(engine.count(false, kCommand), c.commands);
        EXPECT_EQ(engine.axi->accesses[1], Calvento::testing::axiWr(0, kCommand, 0x02390000));
    }
}

TEST(AxiI2cSystem, FailedTransfersAreLogged) {
    std::string const nak = "Nak occured whilst reading i2c, readValue: 2304";
    std::vector<std::string> exhausted(11, nak);
    exhausted.push_back("i2cRead: Too many i2c retries");
    std::vector<std::string> twoExhausted(11, "Status valid not set, readValue: 2066");
    twoExhausted.push_back("i2cTwoByteRead: Too many i2c retries");
    struct Case {
        int operation; // 0 write, 1 read, 2 quiet read, 3 two-byte read
        std::vector<unsigned int> script;
        bool ok;
        std::vector<std::string> log;
    };
    for (Case const& c : std::vector<Case>{
             {0, {0x800, 0x900}, false, {"i2cWrite Failed. Bus 1 Device 104"}},
             {0, {0x800, 0x400}, false, {"i2cWrite Failed. Bus 1 Device 104"}},
             {1, {0x800, 0x900, 0x85A}, true, {nak}},
             {1, {0x800, 0x05A, 0x85A}, true, {"Status valid not set, readValue: 90"}},
             {1, {0x800, 0x900}, false, exhausted},
             {2, {0x800, 0x900}, false, {}},
             {3, {0x800, 0x812}, false, twoExhausted}}) {
        Engine engine(c.script);
        bool ok = !c.ok;
        switch (c.operation) {
        case 0:
            ok = engine.i2c.i2cWrite(1, 0x68, 0, 0x34);
            break;
        case 3:
            engine.i2c.i2cTwoByteRead(4, 0x70, 0x07, &ok, false);
            break;
        default:
            engine.i2c.i2cRead(4, 0x70, 0x07, &ok, c.operation == 2);
        }
        EXPECT_EQ(ok, c.ok);
        EXPECT_THAT(engine.log.lines(), ElementsAreArray(c.log));
    }
}

} // namespace
