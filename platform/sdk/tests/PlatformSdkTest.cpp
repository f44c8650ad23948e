// The registry and the register blocks this program drives: which blocks
// each FPGA image has, the lookup tables, the miscellaneous block's words and
// the Si5367 set-up.

#include <chrono>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/bus/I2cInterface.h"
#include "platform/descriptor/PlatformDescriptor.h"
#include "platform/registers/AesSrcTestRegisterApi.h"
#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"
#include "platform/registers/MiscellaneousRegisterApi.h"
#include "platform/sdk/PlatformSdkFactory.h"
#include "platform/sdk/PlatformSdkVy.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAre;

namespace {

// Records every single-byte write as (device, register, value) and counts
// every other operation. Writes succeed unless writeResult is false.
class RecordingI2c : public I2cInterface {
public:
    using Write = std::tuple<unsigned int, unsigned int, unsigned int>;

    bool i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override {
        writes.emplace_back(toNumber(device), reg, value);
        return writeResult;
    }
    bool i2cProbe(I2cDeviceId) override { return other(); }
    unsigned int i2cRead(I2cDeviceId, unsigned int, bool*, bool) override { return other(); }
    bool i2cTwoByteWrite(I2cDeviceId, unsigned int, unsigned int) override { return other(); }
    bool i2cMultiByteWrite(I2cDeviceId, unsigned int, unsigned char const*, unsigned int) override {
        return other();
    }
    unsigned int i2cTwoByteRead(I2cDeviceId, unsigned int, bool*, bool) override { return other(); }

    std::vector<Write> writes;
    int otherOperations = 0;
    bool writeResult = true;

private:
    bool other() {
        ++otherOperations;
        return false;
    }
};

SubsystemType type(int value) {
    return static_cast<SubsystemType>(value);
}

// A platform whose miscellaneous block reports the given firmware design.
struct Platform {
    Platform(unsigned int design, Calvento::Vy::Device kind, int frontPanel = 0,
             unsigned int attribute = 0) {
        axi->set(0, 0x10, design << 16);
        auto descriptor = std::make_shared<PlatformDescriptor>(kind);
        if (frontPanel != 0) {
            descriptor->addBoard(std::make_shared<BoardDescriptor const>(
                BoardDescriptor::BoardId(frontPanel), 1, attribute, 7));
        }
        sdk = PlatformSdkFactory::create(descriptor, axi, i2c, nullptr);
    }
    // The AXI sub-system of a registered block; 1000 when there is none.
    unsigned int axiSubsystemOf(int kind) const {
        auto const block =
            std::dynamic_pointer_cast<AxiSubsystem>(sdk->getSubsystem(type(kind), 0));
        return block ? block->getSubsystem() : 1000;
    }
    std::shared_ptr<AxiRegisterRam> axi = std::make_shared<AxiRegisterRam>();
    std::shared_ptr<RecordingI2c> i2c = std::make_shared<RecordingI2c>();
    std::shared_ptr<PlatformSdk> sdk;
};

TEST(PlatformSdk, TheImageDecidesWhichBlocksExist) {
    Platform selfTest(11, Calvento::Vy::DEVICE_VYL_VYP);
    Platform production(1, Calvento::Vy::DEVICE_VY);
    // The image's identity is read before any other register.
    EXPECT_THAT(std::vector(selfTest.axi->accesses.begin(), selfTest.axi->accesses.begin() + 2),
                ElementsAre(axiRd(0, 0x10, 0x000B0000), axiRd(0, 0x11, 0)));
    for (auto const& [kind, inSelfTest, inProduction] : std::vector<std::tuple<int, int, int>>{
             {28, 0, 0}, {0, 9, 1000}, {5, 9, 1000}, {11, 9, 1000}, {21, 1000, 8}, {26, 6, 1000}}) {
        EXPECT_EQ(selfTest.axiSubsystemOf(kind), static_cast<unsigned int>(inSelfTest)) << kind;
        EXPECT_EQ(production.axiSubsystemOf(kind), static_cast<unsigned int>(inProduction)) << kind;
    }
    auto const test =
        std::dynamic_pointer_cast<AesSrcTestRegisterApi>(selfTest.sdk->getSubsystem(type(0), 0));
    ASSERT_TRUE(test);
    for (unsigned int i = 0; i < 4; ++i) {
        auto const converter = test->converters()[i];
        EXPECT_EQ(selfTest.sdk->getSubsystem(type(49), i), converter);
        EXPECT_EQ(converter->deviceId(), I2cDeviceId{16 + i});
        EXPECT_EQ(converter->getMclkRate(), AesSrc4382RegisterApi::MCLK_RATE_SELF_TEST_IMAGE);
    }
}

TEST(PlatformSdk, FrontPanelDacOnlyOnACv072WithAttributeThreeOrFour) {
    for (auto const& [board, attribute, hasDac] : std::vector<std::tuple<int, unsigned int, bool>>{
             {4, 2, false}, {4, 3, true}, {4, 4, true}, {4, 5, false}, {5, 3, false}}) {
        Platform p(11, Calvento::Vy::DEVICE_VYL_VYP, board, attribute);
        auto const dac = std::dynamic_pointer_cast<I2cSubsystem>(p.sdk->getSubsystem(type(55), 0));
        EXPECT_EQ(dac ? toNumber(dac->deviceId()) : 0u, hasDac ? 20u : 0u) << board << attribute;
    }
}

TEST(PlatformSdk, RegisteringEmptyOrDuplicateBlocksIsRefusedAndLogged) {
    Platform p(11, Calvento::Vy::DEVICE_VYL_VYP);
    ScopedRecordingLogger log;
    auto const first = p.sdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0);
    EXPECT_FALSE(p.sdk->registerSubsystem(SubsystemType::MISCELLANEOUS, 0,
                                          std::make_shared<MiscellaneousRegisterApi>(0, p.axi)));
    EXPECT_FALSE(p.sdk->registerSubsystem(type(50), 3, nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR: Registering duplicate subsystem/index for type 28 index 0",
                            "ERROR: Registering empty subsystem for type 50 index 3"));
    EXPECT_EQ(p.sdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0), first);
}

// The block sits at sub-system 0 in every image; another number here shows
// a block that ignores its own sub-system.
constexpr unsigned int kSub = 5;

struct Block {
    std::shared_ptr<AxiRegisterRam> axi = std::make_shared<AxiRegisterRam>();
    MiscellaneousRegisterApi misc{kSub, axi};
};

TEST(MiscellaneousRegisterApi, FirmwareVersionWords) {
    struct Case {
        unsigned int versionWord, flag, design, version, designCode;
        std::string name;
    };
    // clang-format off
    for (Case const& c : std::vector<Case>{
             {0x800B3412, 1, 11, 0x1234, 11, "25G_Self_Test"}, {0x00020000, 0, 2, 0, 2, "Self_test"},
             {0x00010100, 0, 1, 0x0001, 1, "SDI_main"}, {0x00050001, 0, 5, 0x0100, 5, "IP_2022_6"},
             {0x00080000, 0, 8, 0, 8, "IP_2110"}, {0x00090000, 0, 9, 0, 9, "Korusys_ptp_only"},
             {0x000D0000, 0, 13, 0, 13, "25G_Master"}, {0x000E0000, 0, 14, 0, 14, "40KM_Master"},
             {0x00000000, 0, 0, 0, 0, "*unknown*"}, {0x00030000, 0, 3, 0, 0, "*unknown*"},
             {0x000F0000, 0, 15, 0, 0, "*unknown*"}, {0x7FFFFFFF, 0, 0x7FFF, 0xFFFF, 0, "*unknown*"}}) {
        // clang-format on
        Block b;
        b.axi->set(kSub, 0x10, c.versionWord);
        b.axi->set(kSub, 0x11, 0x00070203);
        auto const fw = b.misc.getFirmwareVersion();
        EXPECT_EQ(
            std::vector<unsigned int>({fw.flag, fw.design, fw.version, fw.buildHigh, fw.buildLow,
                                       fw.getFirmwareDesign()}),
            std::vector<unsigned int>({c.flag, c.design, c.version, 0x0007, 0x0203, c.designCode}))
            << std::hex << c.versionWord;
        EXPECT_EQ(fw.getFirmwareDesignString(), c.name);
        EXPECT_THAT(b.axi->accesses,
                    ElementsAre(axiRd(kSub, 0x10, c.versionWord), axiRd(kSub, 0x11, 0x00070203)));
    }
}

TEST(MiscellaneousRegisterApi, VolumeAndTestToneWords) {
    struct Case {
        int volume; // a tone when 0
        unsigned long frequency;
        float highPercent;
        std::vector<Calvento::testing::AxiTransfer> writes;
    };
    for (Case const& c : std::vector<Case>{
             {100, 0, 0, {axiWr(kSub, 0x07, 4194300)}}, // 22-bit gain fraction, 41943 a percent
             {-1, 0, 0, {axiWr(kSub, 0x07, 4152361)}},  // wraps, no clamping
             {0, 1000, 25.0F, {axiWr(kSub, 0x08, 50624), axiWr(kSub, 0x09, 202499)}},
             {0, 202500001, 50.0F, {axiWr(kSub, 0x08, 0), axiWr(kSub, 0x09, 0x0FFFFFFF)}},
             {0, 1000, 150.0F, {axiWr(kSub, 0x08, 303748), axiWr(kSub, 0x09, 202499)}},
             {0, 48000, 33.3F, {axiWr(kSub, 0x08, 1404), axiWr(kSub, 0x09, 4217)}}}) {
        Block b;
        c.volume != 0 ? b.misc.setFrontPanelAudioVolume(c.volume)
                      : b.misc.testPatternGeneratorFrequency(c.frequency, c.highPercent);
        EXPECT_EQ(b.axi->accesses, c.writes) << c.volume << " " << c.frequency;
    }
}

TEST(MiscellaneousRegisterApi, GpioPtpAndPpsRegisters) {
    Block b;
    MiscellaneousRegisterApi::GpioSetup setup{0xDEADBEEF, {1, 2, 3, 63, 0x45, 0xFFFFFFFF, 0, 0x2A}};
    b.misc.write_gpio(setup);
    b.axi->set(kSub, 0x0A, 0xA5A5F00F);
    EXPECT_EQ(b.misc.read_gpio(), 0xA5A5F00FU);
    for (auto const& [word, fields] :
         std::vector<std::pair<unsigned int, std::vector<unsigned int>>>{
             {0xA0000005U, {1, 0, 0x20000005}}, {0x5FFFFFFFU, {0, 1, 0x1FFFFFFF}}}) {
        b.axi->set(kSub, 0x13, word);
        auto const delay = b.misc.readPtpDelay();
        EXPECT_EQ(std::vector<unsigned int>({delay.flagHigh, delay.flagLow, delay.delay}), fields);
    }
    b.misc.setPpsRelativeSource(MiscellaneousRegisterApi::PPS_RELATIVE_PTP);
    EXPECT_THAT(b.axi->accesses,
                ElementsAre(axiWr(kSub, 0x0B, 0x00FC3081), axiWr(kSub, 0x0C, 0x00A80FC5),
                            axiWr(kSub, 0x0D, 0xDEADBEEF), axiRd(kSub, 0x0A, 0xA5A5F00F),
                            axiRd(kSub, 0x13, 0xA0000005), axiRd(kSub, 0x13, 0x5FFFFFFF),
                            axiWr(kSub, 0x12, MiscellaneousRegisterApi::PPS_RELATIVE_PTP)));
}

// The Si5367 set-up of the board's clock plan, as (register, value), on I2C
// device 21; ICAL (136) last.
TEST(Clock1001SynthesizerSi5367c, WritesTheConfigurationInOrderAfterTenMilliseconds) {
    std::vector<std::pair<unsigned int, unsigned int>> const sequence = {
        {0, 0x34},   {1, 0xE4},   {2, 0x72},   {3, 0x15},   {4, 0x12},   {5, 0xED},   {6, 0x3F},
        {7, 0x2A},   {8, 0x00},   {9, 0xC0},   {10, 0x00},  {11, 0x42},  {19, 0x29},  {20, 0x37},
        {21, 0xFF},  {22, 0xDD},  {23, 0x1F},  {24, 0x3F},  {25, 0x40},  {31, 0x00},  {32, 0x00},
        {33, 0x05},  {34, 0x00},  {35, 0x00},  {36, 0x05},  {40, 0xA0},  {41, 0x0F},  {42, 0x9F},
        {43, 0x00},  {44, 0x03},  {45, 0xE8},  {46, 0x00},  {47, 0x03},  {48, 0xE8},  {55, 0x00},
        {131, 0x1F}, {132, 0x02}, {137, 0x00}, {138, 0x0D}, {139, 0xDD}, {142, 0x00}, {143, 0x00},
        {136, 0x40}};
    std::vector<RecordingI2c::Write> expected;
    for (int run = 0; run < 2; ++run) {
        for (auto const& [reg, value] : sequence) {
            expected.emplace_back(21, reg, value);
        }
    }
    auto i2c = std::make_shared<RecordingI2c>();
    i2c->writeResult = false; // a failed write does not stop the sequence
    Clock1001SynthesizerSi5367cRegisterApi clock(i2c);
    auto const start = std::chrono::steady_clock::now();
    clock.setupClockSynthesizer();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
    clock.setupClockSynthesizer();
    EXPECT_EQ(i2c->writes, expected);
    EXPECT_EQ(i2c->otherOperations, 0);
}

} // namespace
