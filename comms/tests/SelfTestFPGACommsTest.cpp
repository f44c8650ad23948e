#include "comms/SelfTestFPGAComms.h"

#include <cstdint>

#include <gtest/gtest.h>

#include "platform/axi/testing/RegisterWindowFile.h"
#include "platform/descriptor/testing/GpioTree.h"

namespace {

// A VyP (baseboard 65) with the CV084 front panel (5), its FPGA register
// window holding the firmware version word of `design`.
struct Instrument {
    Calvento::testing::RegisterWindowFile window;
    Calvento::testing::GpioTree gpio;
    Calvento::PlatformPaths paths = gpio.paths();
    explicit Instrument(std::uint32_t design) {
        paths.axiDevice = window.paths().axiDevice;
        paths.i2cDevicePrefix = gpio.dir() + "/i2c-";
        gpio.setGroup(0, 65);
        gpio.setGroup(2, 5);
        window.setWord(0x10, design << 16);
    }
};

TEST(SelfTestFPGAComms, SelfTestImageDrivesToneAndVolumeRegisters) {
    Instrument instrument(11);
    SelfTestFPGAComms comms(instrument.paths);
    ASSERT_TRUE(comms.valid);
    // The Si5367 audio clock was set up: its last write through the FPGA's
    // I2C engine (bus 1, address 0x68) starts the calibration (136 <- 0x40).
    EXPECT_EQ(instrument.window.word(0x2B), 0x01D18840u);

    // Tone generator words 0x08 (high time) and 0x09 (period) for the
    // clamped pitch's frequency: 256 Hz times 2^(index/12), truncated (pitch
    // 4 is 322.54 Hz).
    struct Case {
        int index, stored;
        std::uint32_t high, period;
    };
    for (Case const c :
         {Case{60, 48, 24718, 49437}, Case{-5, 0, 395507, 791014}, Case{4, 4, 314440, 628880}}) {
        SCOPED_TRACE(c.index);
        comms.setPitch(c.index);
        EXPECT_EQ(comms.pitch, c.stored);
        EXPECT_EQ(instrument.window.word(0x08), c.high);
        EXPECT_EQ(instrument.window.word(0x09), c.period);
    }
    // Volume word 0x07, passed on unclamped (the block wraps it in 22 bits).
    comms.setVolume(101);
    EXPECT_EQ(comms.volume, 101);
    EXPECT_EQ(instrument.window.word(0x07), 41939u);
}

TEST(SelfTestFPGAComms, AnyOtherImageOrNoInstrumentLeavesItInert) {
    // Design 2 is the older self-test image: it has the tone blocks, but it
    // is not the one this station tests with.
    for (std::uint32_t design : {10u, 2u}) {
        SCOPED_TRACE(design);
        Instrument instrument(design);
        SelfTestFPGAComms comms(instrument.paths);
        EXPECT_FALSE(comms.valid);
        comms.setVolume(50);
        comms.setPitch(12);
        for (unsigned word : {0x07, 0x08, 0x09}) {
            EXPECT_EQ(instrument.window.word(word), 0u) << word;
        }
    }
    Calvento::testing::GpioTree noBoard; // no straps: no platform is built
    EXPECT_FALSE(SelfTestFPGAComms(noBoard.paths()).valid);
}

} // namespace
