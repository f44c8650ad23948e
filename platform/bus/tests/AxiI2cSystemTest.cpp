#include "platform/bus/AxiI2cSystem.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/bus/testing/ScriptedAxi.h"

using Calvento::testing::axiRd;
using Calvento::testing::axiWr;
using Calvento::testing::ScopedRecordingLogger;
using Calvento::testing::ScriptedAxi;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

constexpr unsigned int kStatus = 0x2A;
constexpr unsigned int kCommand = 0x2B;

struct Engine {
    std::shared_ptr<ScriptedAxi> axi = std::make_shared<ScriptedAxi>();
    AxiI2cSystem i2c{axi};
    void status(std::vector<unsigned int> values) { axi->script(0, kStatus, std::move(values)); }
    std::vector<unsigned long> commands() const {
        std::vector<unsigned long> result;
        for (auto const& access : axi->accesses) {
            if (!access.isRead && access.offset == kCommand) {
                result.push_back(access.value);
            }
        }
        return result;
    }
};

TEST(AxiI2cSystem, StatusPollingStopsOnItsConditionOrAfter1024MorePolls) {
    struct Case {
        char const* name;
        bool multiPhase;
        std::vector<unsigned int> script;
        std::size_t reads;
        unsigned int result;
    };
    std::vector<Case> const cases = {
        {"ready at once", false, {0x800}, 1, 0x800},
        {"ready on the third poll", false, {0x400, 0xC00, 0x800}, 3, 0x800},
        {"nothing to read", false, {}, 1, 0},
        {"stuck busy", false, {0x400}, 1025, 0x400},
        {"phase taken", true, {0x800, 0xC00, 0x400}, 3, 0x400},
        {"acknowledge error", true, {0x900}, 1, 0x900},
        {"busy with data valid is not taken", true, {0xC00}, 1025, 0xC00},
        {"idle is not taken", true, {0x000}, 1025, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        Engine engine;
        engine.status(c.script);
        unsigned int const status = c.multiPhase
                                        ? engine.i2c.i2cMultiPhaseBusySetAndGetStatusRegister()
                                        : engine.i2c.waitForI2cReadyAndGetStatusRegister();
        EXPECT_EQ(status, c.result);
        EXPECT_EQ(engine.axi->readCount(0, kStatus), c.reads);
        EXPECT_EQ(engine.axi->accesses.size(), c.reads); // nothing but status reads
    }
}

TEST(AxiI2cSystem, WritesSendOneCommandWordPerByte) {
    Engine engine;
    engine.status({0x800});
    EXPECT_TRUE(engine.i2c.i2cWrite(1, 0x68, 136, 0x40));
    EXPECT_THAT(engine.axi->accesses,
                ElementsAre(axiRd(0, kStatus, 0x800), axiWr(0, kCommand, 0x01D18840),
                            axiRd(0, kStatus, 0x800)));

    // Two bytes: the first word holds the bus; the engine takes it (busy,
    // phase clear) before the second word continues the transfer.
    Engine two;
    two.status({0x800, 0xC00, 0x400, 0x800});
    EXPECT_TRUE(two.i2c.i2cTwoByteWrite(3, 0x50, 0x10, 0xBEEF));
    EXPECT_THAT(two.axi->accesses,
                ElementsAre(axiRd(0, kStatus, 0x800), axiWr(0, kCommand, 0x13A110BE),
                            axiRd(0, kStatus, 0xC00), axiRd(0, kStatus, 0x400),
                            axiWr(0, kCommand, 0x0BA100EF), axiRd(0, kStatus, 0x800)));

    Engine multi;
    multi.status({0x800, 0x400, 0x400, 0x800});
    unsigned char const data[3] = {1, 2, 3};
    EXPECT_TRUE(multi.i2c.i2cMultiByteWrite(0, 0x39, 0xFF, data, 3));
    EXPECT_THAT(multi.commands(), ElementsAre(0x1073FF01, 0x18730002, 0x08730003));
}

TEST(AxiI2cSystem, FailedWritesAreLogged) {
    struct Case {
        char const* name;
        std::vector<unsigned int> script;
        bool twoBytes;
        char const* line;
    };
    std::vector<Case> const cases = {
        {"acknowledge error", {0x800, 0x900}, false, "i2cWrite Failed. Bus 1 Device 104"},
        {"still busy", {0x800, 0x400}, false, "i2cWrite Failed. Bus 1 Device 104"},
        {"no status at all", {0}, false, "i2cWrite Failed. Bus 1 Device 104"},
        // A refused first phase of a two-byte write stops the second.
        {"two bytes, first refused", {0x800, 0x900}, true, "i2cWrite Failed. Bus 6 Device 111"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScopedRecordingLogger log;
        Engine engine;
        engine.status(c.script);
        EXPECT_FALSE(c.twoBytes ? engine.i2c.i2cTwoByteWrite(6, 0x6F, 1, 0x1234)
                                : engine.i2c.i2cWrite(1, 0x68, 0, 0x34));
        EXPECT_EQ(engine.commands().size(), 1u);
        EXPECT_THAT(log.lines(), ElementsAre(c.line));
    }
}

TEST(AxiI2cSystem, ProbeRetriesTenTimesAndNeedsANonZeroStatusWithoutNak) {
    struct Case {
        char const* name;
        std::vector<unsigned int> script;
        bool present;
        std::size_t commands;
    };
    std::vector<Case> const cases = {
        {"answers at once", {0x800}, true, 1},
        {"answers on the third try", {0x800, 0x900, 0x900, 0x800}, true, 3},
        {"never answers", {0x800, 0x900}, false, 11},
        {"engine reads nothing", {0}, false, 11},
        {"a busy status without nak counts", {0x800, 0x400}, true, 1},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        Engine engine;
        engine.status(c.script);
        EXPECT_EQ(engine.i2c.i2cProbe(2, 0x1C), c.present);
        EXPECT_EQ(engine.commands(), std::vector<unsigned long>(c.commands, 0x02390000));
    }
}

TEST(AxiI2cSystem, ReadsCheckNakAndValidAndRetry) {
    std::string const nak = "Nak occured whilst reading i2c, readValue: 2304";
    struct Case {
        char const* name;
        bool twoBytes;
        bool quiet;
        std::vector<unsigned int> script;
        unsigned int value;
        bool ok;
        std::size_t commands;
        std::vector<std::string> log;
    };
    std::vector<std::string> exhausted(11, nak);
    exhausted.push_back("i2cRead: Too many i2c retries");
    std::vector<std::string> twoExhausted(11, "Status valid not set, readValue: 2066");
    twoExhausted.push_back("i2cTwoByteRead: Too many i2c retries");
    std::vector<Case> const cases = {
        {"byte", false, false, {0x800, 0x85A}, 0x5A, true, 1, {}},
        {"nak then byte", false, false, {0x800, 0x900, 0x85A}, 0x5A, true, 2, {nak}},
        {"valid missing then byte",
         false,
         false,
         {0x800, 0x05A, 0x85A},
         0x5A,
         true,
         2,
         {"Status valid not set, readValue: 90"}},
        {"retries exhausted", false, false, {0x800, 0x900}, 0, false, 11, exhausted},
        {"quiet says nothing", false, true, {0x800, 0x900}, 0, false, 11, {}},
        {"two bytes, high first", true, false, {0x800, 0xA12, 0x834}, 0x1234, true, 2, {}},
        {"two bytes, bus not held", true, false, {0x800, 0x812}, 0, false, 11, twoExhausted},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScopedRecordingLogger log;
        Engine engine;
        engine.status(c.script);
        bool ok = !c.ok;
        unsigned int const value = c.twoBytes
                                       ? engine.i2c.i2cTwoByteRead(4, 0x70, 0x07, &ok, c.quiet)
                                       : engine.i2c.i2cRead(4, 0x70, 0x07, &ok, c.quiet);
        EXPECT_EQ(value, c.value);
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(engine.commands().size(), c.commands);
        EXPECT_THAT(log.lines(), ElementsAreArray(c.log));
    }
}

TEST(AxiI2cSystem, ReadCommandWords) {
    Engine one;
    one.status({0x800, 0x85A});
    one.i2c.i2cRead(1, 0x68, 0x12, nullptr, false);
    EXPECT_THAT(one.axi->accesses,
                ElementsAre(axiRd(0, kStatus, 0x800), axiWr(0, kCommand, 0x21D11200),
                            axiRd(0, kStatus, 0x85A)));

    Engine two;
    two.status({0x800, 0xA12, 0x834});
    two.i2c.i2cTwoByteRead(4, 0x70, 0x07, nullptr, false);
    EXPECT_THAT(two.commands(), ElementsAre(0x34E10700, 0x2CE10000));
}

TEST(AxiI2cSystem, ResetWritesOneToTheResetRegisterAndNothingHappensWithoutAnInterface) {
    Engine engine;
    engine.i2c.i2cReset();
    EXPECT_THAT(engine.axi->accesses, ElementsAre(axiWr(0, 0x2C, 1)));

    ScopedRecordingLogger log;
    AxiI2cSystem i2c(nullptr);
    EXPECT_EQ(i2c.waitForI2cReadyAndGetStatusRegister(), 0u);
    EXPECT_FALSE(i2c.i2cProbe(0, 0x39));
    bool ok = true;
    EXPECT_EQ(i2c.i2cRead(0, 0x39, 0, &ok, true), 0u);
    EXPECT_FALSE(ok);
    EXPECT_THAT(log.lines(), IsEmpty());
}

} // namespace
