// The buses: the FPGA's I2C engine, the Vy device table and controller,
// the FPGA SPI engine, and the processor's Linux I2C adapters.

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/bus/AxiI2cSystem.h"
#include "platform/bus/I2cController.h"
#include "platform/bus/I2cDeviceFactoryVy.h"
#include "platform/bus/I2cRawDevice.h"
#include "platform/bus/LinuxI2cSystem.h"
#include "platform/bus/SpiController.h"
#include "platform/bus/VyAxiSpiBus.h"
#include "platform/descriptor/PlatformDescriptor.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

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

Calvento::PlatformPaths noLinuxAdapters() {
    Calvento::PlatformPaths paths;
    paths.i2cDevicePrefix = "/nonexistent/i2c-";
    return paths;
}

// The one device of the table the station drives, the Si5367, is checked
// where the station sets it up (SelfTestFPGAComms).
TEST(I2cDeviceFactoryVy, TheVyLFourPortController) {
    // Kind 1 probes for the FPC402 first; here it answers only on the VyL.
    for (auto const kind : {Calvento::Vy::DEVICE_VY, Calvento::Vy::DEVICE_VYL_VYP}) {
        auto axi = std::make_shared<AxiRegisterRam>();
        axi->script(0, 0x2A, {0x800});
        I2cDeviceFactoryVy factory(std::make_shared<PlatformDescriptor const>(kind), axi,
                                   noLinuxAdapters());
        EXPECT_EQ(factory.getDevice(I2cDeviceId::FourPortControllerFpc402) != nullptr,
                  kind == Calvento::Vy::DEVICE_VYL_VYP);
    }

    ScopedRecordingLogger log;
    auto axi = std::make_shared<AxiRegisterRam>();
    axi->script(0, 0x2A, {0x800, 0x900}); // the FPC402 never acknowledges
    I2cDeviceFactoryVy factory(
        std::make_shared<PlatformDescriptor const>(Calvento::Vy::DEVICE_VYL_VYP), axi,
        noLinuxAdapters());
    EXPECT_FALSE(factory.getDevice(I2cDeviceId::FourPortControllerFpc402));
    EXPECT_THAT(log.lines(), ElementsAre("Failed to find four port controller!"));
}

constexpr unsigned int kStatus = VyAxiSpiBus::kStatusRegister;

TEST(VyAxiSpiBus, ChipSelectTableSpeedMaskAndBusyLimit) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<AxiRegisterRam>();
    VyAxiSpiBus bus(axi, 25000);
    // The station's SPI devices: the LMK04808 (0) and the MachXO with its routed select (1, 2).
    for (auto const& [cs, engine] :
         std::vector<std::pair<int, int>>{{0, 0}, {1, 1}, {2, 1}, {16, -1}}) {
        EXPECT_EQ(bus.lookupBusFromChipSelect(cs), engine) << cs;
    }
    EXPECT_THAT(log.lines(), ElementsAre("ERROR: Cannot identify bus for cs 16"));

    axi->script(0, kStatus, {1, 0});
    bus.setSpeed(0x7FE);
    EXPECT_THAT(axi->accesses, ElementsAre(axiRd(0, kStatus, 1), axiRd(0, kStatus, 0),
                                           axiWr(0, VyAxiSpiBus::kSpeedRegister, 0x3FE)));
    axi->script(0, kStatus, {1});
    EXPECT_FALSE(bus.waitForSpiNotBusy());
    EXPECT_EQ(log.lines().back(), "ERROR: SPI still busy after 1000 tries");
}

TEST(Controllers, UnknownDeviceIdsAreRefusedWithoutBusTraffic) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<AxiRegisterRam>();
    I2cController i2c(std::make_shared<PlatformDescriptor const>(Calvento::Vy::DEVICE_VY), axi,
                      noLinuxAdapters());
    SpiController spi(axi);
    axi->accesses.clear();
    I2cDeviceId const fpc402 = I2cDeviceId::FourPortControllerFpc402; // not on a Vy
    bool ok = true;
    EXPECT_FALSE(i2c.i2cTwoByteWrite(fpc402, 0, 0));
    EXPECT_EQ(i2c.i2cRead(fpc402, 0, &ok, false), 0u);
    EXPECT_FALSE(ok);
    EXPECT_FALSE(i2c.i2cProbe(fpc402));
    SpiDeviceId const unknown{42};
    EXPECT_FALSE(spi.spiWriteWord(unknown, 1, SpiWordSizeBits::Bits8));
    EXPECT_EQ(spi.spiReadWord(unknown, SpiWordSizeBits::Bits8), 0u);
    EXPECT_EQ(spi.spiTransceiveWord(unknown, 1, SpiWordSizeBits::Bits8), 0u);
    EXPECT_THAT(log.lines(), ElementsAre("Cannot write to non-existent device (1)",
                                         "Cannot read from non-existent device (1)",
                                         "Cannot read from non-existent device (1)",
                                         "Cannot write to non-existent device (42)",
                                         "Cannot read from non-existent device (42)",
                                         "Cannot transceive to non-existent device (42)"));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

// Address, flags, and the bytes sent (for a read, as many zeros as asked for).
using Message = std::tuple<unsigned int, unsigned int, std::vector<unsigned int>>;

// "/proc/self/fd/<n>" stands in for "/dev/i2c-<n>": bus n is an open
// descriptor of /dev/null; every I2C_RDWR request is recorded instead of sent.
struct Adapter {
    int bus = open("/dev/null", O_RDWR);
    std::vector<std::vector<Message>> requests;
    int result = 1;
    LinuxI2cSystem system{"/proc/self/fd/", [this](int, i2c_rdwr_ioctl_data& request) {
                              std::vector<Message> messages;
                              for (unsigned int i = 0; i < request.nmsgs; ++i) {
                                  i2c_msg& msg = request.msgs[i];
                                  bool const read = (msg.flags & I2C_M_RD) != 0;
                                  std::vector<unsigned int> bytes(msg.len, 0);
                                  for (unsigned int b = 0; b < msg.len; ++b) {
                                      if (read) {
                                          msg.buf[b] = static_cast<unsigned char>(0x5A + b);
                                      } else {
                                          bytes[b] = msg.buf[b];
                                      }
                                  }
                                  messages.emplace_back(msg.addr, msg.flags, bytes);
                              }
                              requests.push_back(messages);
                              return result;
                          }};
    ~Adapter() { close(bus); }
};

TEST(LinuxI2cSystem, EachOperationIsOneTransferWithExactMessages) {
    Adapter adapter;
    LinuxI2cSystem& i2c = adapter.system;
    unsigned int const bus = static_cast<unsigned int>(adapter.bus);
    unsigned char const block[3] = {0xDE, 0xAD, 0x01};
    EXPECT_TRUE(i2c.i2cWrite(bus, 0x1C, 0x12, 0x1AB));
    EXPECT_TRUE(i2c.i2cTwoByteWrite(bus, 0x2B, 0x05, 0xBEEF));
    EXPECT_TRUE(i2c.i2cMultiByteWrite(bus, 0x19, 0x40, block, 3));
    EXPECT_EQ(i2c.i2cRead(bus, 0x1D, 0x33, nullptr, false), 0x5Au);
    EXPECT_EQ(i2c.i2cTwoByteRead(bus, 0x1E, 0x07, nullptr, false), 0x5A5Bu);
    EXPECT_TRUE(i2c.i2cProbe(bus, 0x18));
    // A read continues without a repeated start: I2C_M_RD | I2C_M_NOSTART.
    EXPECT_EQ(adapter.requests,
              (std::vector<std::vector<Message>>{{{0x1C, 0, {0x12, 0xAB}}},
                                                 {{0x2B, 0, {0x05, 0xBE, 0xEF}}},
                                                 {{0x19, 0, {0x40, 0xDE, 0xAD, 0x01}}},
                                                 {{0x1D, 0, {0x33}}, {0x1D, 0x4001, {0}}},
                                                 {{0x1E, 0, {0x07}}, {0x1E, 0x4001, {0, 0}}},
                                                 {{0x18, 0, {0x00}}, {0x18, 0x4001, {0}}}}));
}

TEST(LinuxI2cSystem, FailuresCallTheErrorCallbackAndAMissingNodeSendsNothing) {
    Adapter adapter;
    int calls = 0;
    adapter.system.setErrorCallback([&calls] { ++calls; });
    adapter.result = -EREMOTEIO;
    EXPECT_FALSE(adapter.system.i2cWrite(static_cast<unsigned int>(adapter.bus), 0x2B, 1, 2));
    EXPECT_EQ(calls, 1);
    unsigned char byte = 0;
    LinuxI2cSystem none("/nonexistent/i2c-");
    EXPECT_FALSE(none.i2cWrite(4, 0x10, 1, 2));
    EXPECT_EQ(none.i2cReadBytes(0x10, 0, &byte, 1), -19);
}

TEST(I2cProcessStateDeathTest, FactoryMustBeInitialisedAndEngineTimingIsWrittenOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process nothing has touched yet
    EXPECT_EXIT(
        {
            try {
                I2cDeviceFactoryVy::getInstance();
            } catch (std::logic_error const& error) {
                std::cerr << error.what() << "\n";
            }
            auto first = std::make_shared<AxiRegisterRam>();
            auto second = std::make_shared<AxiRegisterRam>();
            AxiI2cSystem(first).i2cInit();
            AxiI2cSystem(second).i2cInit(); // another engine object finds it done
            std::exit(first->accesses == std::vector{axiWr(0, 0x2D, 0x032A03B8),
                                                     axiWr(0, 0x2E, 0x01FB03F6),
                                                     axiWr(0, 0x2F, 0x03B8032A),
                                                     axiWr(0, 0x2C, 1)} &&
                              second->accesses.empty()
                          ? 0
                          : 1);
        },
        testing::ExitedWithCode(0),
        "^You must call initialise before calling getInstance\\(\\)\n$");
}

} // namespace
