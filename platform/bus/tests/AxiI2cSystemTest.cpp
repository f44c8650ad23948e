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

// The FPGA engine over a register RAM whose status register (0x2A) follows
// a script.
struct Engine {
    explicit Engine(std::vector<unsigned int> status) { axi->script(0, 0x2A, std::move(status)); }
    std::shared_ptr<AxiRegisterRam> axi = std::make_shared<AxiRegisterRam>();
    AxiI2cSystem i2c{axi};
    ScopedRecordingLogger log;
};

TEST(AxiI2cSystem, StatusPollingAndProbe) {
    struct Case {
        int operation; // 0 wait for ready, 1 multi-phase wait, 2 probe
        std::vector<unsigned int> script;
        std::size_t accesses; // status reads, and command writes of a probe
        unsigned int result;
    };
    for (Case const& c : std::vector<Case>{{0, {0x400, 0xC00, 0x800}, 3, 0x800},
                                           {0, {0x400}, 1025, 0x400},
                                           {1, {0x800, 0xC00, 0x400}, 3, 0x400},
                                           {1, {0x900}, 1, 0x900},
                                           {1, {0xC00}, 1025, 0xC00},
                                           {2, {0x800, 0x900, 0x900, 0x800}, 7, 1},
                                           {2, {0x800, 0x900}, 23, 0},
                                           {2, {0}, 23, 0}}) {
        Engine engine(c.script);
        unsigned int const result =
            c.operation == 0   ? engine.i2c.waitForI2cReadyAndGetStatusRegister()
            : c.operation == 1 ? engine.i2c.i2cMultiPhaseBusySetAndGetStatusRegister()
                               : engine.i2c.i2cProbe(2, 0x1C);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(engine.axi->accesses.size(), c.accesses);
        for (auto const& access : engine.axi->accesses) {
            EXPECT_EQ(access.offset, access.isRead ? 0x2Au : 0x2Bu);
            if (!access.isRead) {
                EXPECT_EQ(access.value, 0x02390000u); // the probe's command word
            }
        }
    }
}

TEST(AxiI2cSystem, FailedTransfersAreLogged) {
    std::string const nak = "Nak occured whilst reading i2c, readValue: 2304";
    std::vector<std::string> exhausted(11, nak);
    exhausted.push_back("i2cRead: Too many i2c retries");
    std::vector<std::string> twoExhausted(11, "Status valid not set, readValue: 2066");
    twoExhausted.push_back("i2cTwoByteRead: Too many i2c retries");
    struct Case {
        char operation; // 'w'rite, 'r'ead, 'q'uiet read, 't'wo-byte read
        std::vector<unsigned int> script;
        bool ok;
        std::vector<std::string> log;
    };
    for (Case const& c : std::vector<Case>{
             {'w', {0x800, 0x900}, false, {"i2cWrite Failed. Bus 1 Device 104"}},
             {'w', {0x800, 0x400}, false, {"i2cWrite Failed. Bus 1 Device 104"}},
             {'r', {0x800, 0x900, 0x85A}, true, {nak}},
             {'r', {0x800, 0x05A, 0x85A}, true, {"Status valid not set, readValue: 90"}},
             {'r', {0x800, 0x900}, false, exhausted},
             {'q', {0x800, 0x900}, false, {}},
             {'t', {0x800, 0x812}, false, twoExhausted}}) {
        Engine engine(c.script);
        bool ok = !c.ok;
        if (c.operation == 'w') {
            ok = engine.i2c.i2cWrite(1, 0x68, 0, 0x34);
        } else if (c.operation == 't') {
            engine.i2c.i2cTwoByteRead(4, 0x70, 0x07, &ok, false);
        } else {
            engine.i2c.i2cRead(4, 0x70, 0x07, &ok, c.operation == 'q');
        }
        EXPECT_EQ(ok, c.ok);
        EXPECT_THAT(engine.log.lines(), ElementsAreArray(c.log));
    }
}

} // namespace
