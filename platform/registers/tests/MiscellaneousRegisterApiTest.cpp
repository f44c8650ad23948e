#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/registers/MiscellaneousRegisterApi.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using ::testing::ElementsAre;

namespace {

// The block sits at sub-system 0 in every image; use another number here so
// that a block ignoring its own sub-system shows up.
constexpr unsigned int kSub = 5;

struct Fixture {
    std::shared_ptr<AxiRegisterRam> axi = std::make_shared<AxiRegisterRam>();
    MiscellaneousRegisterApi misc{kSub, axi};
};

} // namespace

TEST(MiscellaneousRegisterApi, FirmwareVersionDecodesBothWordsInOrder) {
    struct Case {
        unsigned int versionWord;
        unsigned int buildWord;
        unsigned int flag, design, version, buildHigh, buildLow, designCode;
        std::string name;
    };
    std::vector<Case> const cases = {
        {0x800B3412, 0x00070203, 1, 11, 0x1234, 0x0007, 0x0203, 11, "25G_Self_Test"},
        {0x00020000, 0xFFFF0000, 0, 2, 0x0000, 0xFFFF, 0x0000, 2, "Self_test"},
        {0x00010100, 0, 0, 1, 0x0001, 0, 0, 1, "SDI_main"},
        {0x00050001, 0, 0, 5, 0x0100, 0, 0, 5, "IP_2022_6"},
        {0x00080000, 0, 0, 8, 0, 0, 0, 8, "IP_2110"},
        {0x00090000, 0, 0, 9, 0, 0, 0, 9, "Korusys_ptp_only"},
        {0x000D0000, 0, 0, 13, 0, 0, 0, 13, "25G_Master"},
        {0x000E0000, 0, 0, 14, 0, 0, 0, 14, "40KM_Master"},
        // Codes outside the table, including the gaps, read as unknown.
        {0x00000000, 0, 0, 0, 0, 0, 0, 0, "*unknown*"},
        {0x00030000, 0, 0, 3, 0, 0, 0, 0, "*unknown*"},
        {0x000A0000, 0, 0, 10, 0, 0, 0, 0, "*unknown*"},
        {0x000F0000, 0, 0, 15, 0, 0, 0, 0, "*unknown*"},
        {0x7FFFFFFF, 0x12345678, 0, 0x7FFF, 0xFFFF, 0x1234, 0x5678, 0, "*unknown*"},
        // Bit 31 is the flag, never part of the design.
        {0x808BABCD, 0, 1, 0x8B, 0xCDAB, 0, 0, 0, "*unknown*"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.versionWord);
        Fixture f;
        f.axi->set(kSub, 0x10, c.versionWord);
        f.axi->set(kSub, 0x11, c.buildWord);
        MiscellaneousRegisterApi::FirmwareVersion const fw = f.misc.getFirmwareVersion();
        EXPECT_EQ(fw.flag, c.flag);
        EXPECT_EQ(fw.design, c.design);
        EXPECT_EQ(fw.version, c.version);
        EXPECT_EQ(fw.buildHigh, c.buildHigh);
        EXPECT_EQ(fw.buildLow, c.buildLow);
        EXPECT_EQ(fw.getFirmwareDesign(), c.designCode);
        EXPECT_EQ(fw.getFirmwareDesignString(), c.name);
        EXPECT_THAT(f.axi->accesses,
                    ElementsAre(axiRd(kSub, 0x10, c.versionWord), axiRd(kSub, 0x11, c.buildWord)));
    }
}

TEST(MiscellaneousRegisterApi, FirmwareVersionIsReadAfreshEveryTime) {
    Fixture f;
    f.axi->set(kSub, 0x10, 0x00020000);
    EXPECT_EQ(f.misc.getFirmwareVersion().getFirmwareDesign(), 2U);
    f.axi->set(kSub, 0x10, 0x000B0000);
    EXPECT_EQ(f.misc.getFirmwareVersion().getFirmwareDesign(), 11U);
    EXPECT_EQ(f.axi->accesses.size(), 4U);
}

TEST(MiscellaneousRegisterApi, VolumeIsA22BitFractionThatWraps) {
    std::vector<std::pair<int, unsigned int>> const cases = {
        {0, 0},       {1, 41943},    {50, 2097150}, {100, 4194300},
        {101, 41939}, {-1, 4152361}, {200, 4194296}};
    for (auto const& [volume, written] : cases) {
        SCOPED_TRACE(volume);
        Fixture f;
        f.misc.setFrontPanelAudioVolume(volume);
        EXPECT_THAT(f.axi->accesses, ElementsAre(axiWr(kSub, 0x07, written)));
    }
}

TEST(MiscellaneousRegisterApi, TestToneWritesHighTimeThenPeriod) {
    struct Case {
        unsigned long frequency;
        float highPercent;
        unsigned int high;
        unsigned int period;
    };
    std::vector<Case> const cases = {
        {256, 50.0F, 395507, 791014},
        {1000, 50.0F, 101249, 202499},
        {1000, 25.0F, 50624, 202499},
        {202500000, 50.0F, 0, 0},
        {101250000, 50.0F, 0, 1},
        // 0 - 1 masked to 28 bits; the float product 2^31 loses everything
        // above bit 27.
        {202500001, 50.0F, 0, 0x0FFFFFFF},
        // Longer than the period: written as computed.
        {1000, 150.0F, 303748, 202499},
        // 1 Hz: 202,499,999 rounds to 202,500,000 as a float, so the high
        // time is not half the period truncated.
        {1, 50.0F, 101250000, 202499999},
        // Single precision: 48,000 Hz gives period 4217, and
        // 4217 * 0.333 (as floats) truncates to 1404.
        {48000, 33.3F, 1404, 4217},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.frequency << " Hz " << c.highPercent << " %");
        Fixture f;
        f.misc.testPatternGeneratorFrequency(c.frequency, c.highPercent);
        EXPECT_THAT(f.axi->accesses,
                    ElementsAre(axiWr(kSub, 0x08, c.high), axiWr(kSub, 0x09, c.period)));
    }
}

TEST(MiscellaneousRegisterApi, GpioSetupPacksSixBitSelectsThenControl) {
    Fixture f;
    MiscellaneousRegisterApi::GpioSetup setup;
    setup.control = 0xDEADBEEF;
    unsigned int const selects[8] = {1, 2, 3, 63, 0x40 | 5, 0xFFFFFFFF, 0, 0x2A};
    std::copy(std::begin(selects), std::end(selects), std::begin(setup.select));
    f.misc.write_gpio(setup);
    unsigned int const low = 1U | (2U << 6) | (3U << 12) | (63U << 18);
    unsigned int const high = 5U | (63U << 6) | (0U << 12) | (0x2AU << 18);
    EXPECT_EQ(low & 0xFF000000U, 0U);
    EXPECT_THAT(f.axi->accesses, ElementsAre(axiWr(kSub, 0x0B, low), axiWr(kSub, 0x0C, high),
                                             axiWr(kSub, 0x0D, 0xDEADBEEF)));
}

TEST(MiscellaneousRegisterApi, ReadsAndSingleWrites) {
    Fixture f;
    f.axi->set(kSub, 0x0A, 0xA5A5F00F);
    f.axi->set(kSub, 0x13, 0x80000000 | 0x12345678);
    EXPECT_EQ(f.misc.read_gpio(), 0xA5A5F00FU);
    MiscellaneousRegisterApi::PtpDelay const delay = f.misc.readPtpDelay();
    EXPECT_EQ(delay.flagHigh, 1);
    EXPECT_EQ(delay.flagLow, 0);
    EXPECT_EQ(delay.delay, 0x12345678U);
    f.misc.setPpsRelativeSource(MiscellaneousRegisterApi::PPS_RELATIVE_PTP);
    EXPECT_THAT(f.axi->accesses,
                ElementsAre(axiRd(kSub, 0x0A, 0xA5A5F00F), axiRd(kSub, 0x13, 0x92345678),
                            axiWr(kSub, 0x12, MiscellaneousRegisterApi::PPS_RELATIVE_PTP)));

    f.axi->set(kSub, 0x13, 0x7FFFFFFF);
    MiscellaneousRegisterApi::PtpDelay const other = f.misc.readPtpDelay();
    EXPECT_EQ(other.flagHigh, 0);
    EXPECT_EQ(other.flagLow, 1);
    EXPECT_EQ(other.delay, 0x3FFFFFFFU);
}

TEST(MiscellaneousRegisterApi, BorrowedInterfaceAndNoInterface) {
    AxiRegisterRam axi;
    axi.set(0, 0x10, 0x000B0000);
    MiscellaneousRegisterApi borrowed(0, &axi);
    EXPECT_EQ(borrowed.getFirmwareVersion().getFirmwareDesign(), 11U);
    borrowed.setFrontPanelAudioVolume(100);
    EXPECT_EQ(axi.accesses.back(), axiWr(0, 0x07, 4194300));

    // With no interface reads give 0 and writes go nowhere.
    MiscellaneousRegisterApi none(0, static_cast<AxiInterface*>(nullptr));
    EXPECT_EQ(none.getFirmwareVersion().getFirmwareDesignString(), "*unknown*");
    EXPECT_EQ(none.read_gpio(), 0U);
    none.setFrontPanelAudioVolume(50);
}
