#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/bus/testing/RecordingI2c.h"
#include "platform/bus/testing/ScriptedAxi.h"
#include "platform/descriptor/PlatformDescriptor.h"
#include "platform/registers/AesSrcTestRegisterApi.h"
#include "platform/registers/AudioSelfTestToneRegisterApi.h"
#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"
#include "platform/registers/CommonAxiRegisterBlocks.h"
#include "platform/registers/EyeJitterAdcSelfTestRegisterApi.h"
#include "platform/registers/MainClockSynthesizerLmk04808RegisterApi.h"
#include "platform/registers/VyFrontPanelDacWm9081.h"
#include "platform/registers/VyRegisterBlocks.h"
#include "platform/sdk/PlatformSdkFactory.h"
#include "platform/sdk/PlatformSdkKm40.h"
#include "platform/sdk/PlatformSdkVy.h"

using Calvento::testing::axiRd;
using Calvento::testing::RecordingI2c;
using Calvento::testing::ScopedRecordingLogger;
using Calvento::testing::ScriptedAxi;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

SubsystemType type(int value) {
    return static_cast<SubsystemType>(value);
}

// An AXI window whose miscellaneous block reports the given design.
std::shared_ptr<ScriptedAxi> windowWithDesign(unsigned int design) {
    auto axi = std::make_shared<ScriptedAxi>();
    axi->set(0, 0x10, design << 16);
    axi->set(0, 0x11, 0x00010002);
    return axi;
}

std::shared_ptr<PlatformDescriptor> descriptor(Calvento::Vy::Device kind) {
    return std::make_shared<PlatformDescriptor>(kind);
}

struct Platform {
    std::shared_ptr<ScriptedAxi> axi;
    std::shared_ptr<RecordingI2c> i2c = std::make_shared<RecordingI2c>();
    std::shared_ptr<PlatformSdk> sdk;

    Platform(unsigned int design, std::shared_ptr<PlatformDescriptor const> platform)
        : axi(windowWithDesign(design)) {
        sdk = PlatformSdkFactory::create(std::move(platform), axi, i2c, nullptr);
    }

    unsigned int axiSubsystemOf(int kind, unsigned int index = 0) const {
        auto const block =
            std::dynamic_pointer_cast<AxiSubsystem>(sdk->getSubsystem(type(kind), index));
        return block ? block->getSubsystem() : 1000;
    }
};

TEST(PlatformSdk, SelfTestImageRegistersTheSelfTestBlocksOnSubsystemNine) {
    Platform p(11, descriptor(Calvento::Vy::DEVICE_VYL_VYP));
    ASSERT_TRUE(p.sdk);
    EXPECT_TRUE(p.sdk->inSelfTestMode());
    // The image's identity is read first, before any other register.
    ASSERT_GE(p.axi->accesses.size(), 2u);
    EXPECT_EQ(p.axi->accesses[0], axiRd(0, 0x10, 0x000B0000));
    EXPECT_EQ(p.axi->accesses[1], axiRd(0, 0x11, 0x00010002));

    EXPECT_TRUE(std::dynamic_pointer_cast<MiscellaneousRegisterApi>(
        p.sdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0)));
    EXPECT_TRUE(std::dynamic_pointer_cast<AesSrcTestRegisterApi>(p.sdk->getSubsystem(type(0), 0)));
    EXPECT_TRUE(
        std::dynamic_pointer_cast<AudioSelfTestToneRegisterApi>(p.sdk->getSubsystem(type(5), 0)));
    EXPECT_TRUE(std::dynamic_pointer_cast<EyeJitterAdcSelfTestRegisterApi>(
        p.sdk->getSubsystem(type(11), 0)));
    for (auto const& [kind, axiSubsystem] :
         std::map<int, unsigned int>{{28, 0u}, {0, 9u}, {5, 9u}, {11, 9u}, {26, 6u}, {38, 0u}}) {
        EXPECT_EQ(p.axiSubsystemOf(kind), axiSubsystem) << kind;
    }
    EXPECT_FALSE(p.sdk->getSubsystem(SubsystemType::JITTER, 0));
    EXPECT_FALSE(p.sdk->getSubsystem(SubsystemType::EYE, 0));

    auto const clock = std::dynamic_pointer_cast<Clock1001SynthesizerSi5367cRegisterApi>(
        p.sdk->getSubsystem(type(50), 0));
    ASSERT_TRUE(clock);
    EXPECT_EQ(clock->deviceId(), I2cDeviceId{21});
    EXPECT_EQ(clock->i2cInterface(), p.i2c);
    EXPECT_TRUE(std::dynamic_pointer_cast<VylMainClockSynthesizerLmk04808RegisterApi>(
        p.sdk->getSubsystem(type(73), 0)));
    // A CV084 front panel (board 5 or none) has no DAC block.
    EXPECT_FALSE(p.sdk->getSubsystem(type(55), 0));

    // The four converters, clocked for a self-test image, shared with the
    // converter test block in instance order.
    auto const test =
        std::dynamic_pointer_cast<AesSrcTestRegisterApi>(p.sdk->getSubsystem(type(0), 0));
    for (unsigned int i = 0; i < 4; ++i) {
        auto const converter =
            std::dynamic_pointer_cast<AesSrc4382RegisterApi>(p.sdk->getSubsystem(type(49), i));
        ASSERT_TRUE(converter) << i;
        EXPECT_EQ(converter->deviceId(), I2cDeviceId{16 + i});
        EXPECT_EQ(converter->getMclkRate(), AesSrc4382RegisterApi::MCLK_RATE_SELF_TEST_IMAGE);
        EXPECT_EQ(test->converters()[i], converter);
    }
    EXPECT_FALSE(p.sdk->getSubsystem(type(49), 4));
    // Registering touched no I2C device.
    EXPECT_THAT(p.i2c->operations, IsEmpty());
}

TEST(PlatformSdk, ProductionImageHasNoSelfTestBlocks) {
    for (unsigned int design : {1u, 13u, 10u}) {
        SCOPED_TRACE(design);
        Platform p(design, descriptor(Calvento::Vy::DEVICE_VY));
        ASSERT_TRUE(p.sdk);
        EXPECT_FALSE(p.sdk->inSelfTestMode());
        for (int selfTestKind : {0, 5, 11}) {
            EXPECT_FALSE(p.sdk->getSubsystem(type(selfTestKind), 0)) << selfTestKind;
        }
        EXPECT_EQ(p.axiSubsystemOf(28), 0u);
        EXPECT_EQ(p.axiSubsystemOf(21), 8u);
        EXPECT_EQ(p.axiSubsystemOf(10), 8u);
        EXPECT_TRUE(p.sdk->getSubsystem(type(50), 0));
        EXPECT_TRUE(std::dynamic_pointer_cast<VyMainClockSynthesizerLmk04808RegisterApi>(
            p.sdk->getSubsystem(type(73), 0)));
        auto const converter =
            std::dynamic_pointer_cast<AesSrc4382RegisterApi>(p.sdk->getSubsystem(type(49), 3));
        ASSERT_TRUE(converter);
        EXPECT_EQ(converter->getMclkRate(), AesSrc4382RegisterApi::MCLK_RATE_PRODUCTION_IMAGE);
    }
}

TEST(PlatformSdk, RegisteringEmptyOrDuplicateBlocksIsRefusedAndLogged) {
    Platform p(11, descriptor(Calvento::Vy::DEVICE_VYL_VYP));
    ASSERT_TRUE(p.sdk);
    ScopedRecordingLogger log;
    auto const first = p.sdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0);
    auto const size = p.sdk->getRegistry().size();

    EXPECT_FALSE(p.sdk->registerSubsystem(SubsystemType::MISCELLANEOUS, 0,
                                          std::make_shared<MiscellaneousRegisterApi>(0, p.axi)));
    EXPECT_FALSE(p.sdk->registerSubsystem(type(50), 3, nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR: Registering duplicate subsystem/index for type 28 index 0",
                            "ERROR: Registering empty subsystem for type 50 index 3"));
    EXPECT_EQ(p.sdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0), first);
    EXPECT_EQ(p.sdk->getRegistry().size(), size);

    log.clear();
    EXPECT_TRUE(
        p.sdk->registerSubsystem(type(50), 3, std::make_shared<VyFrontPanelDacWm9081>(p.i2c)));
    EXPECT_FALSE(
        p.sdk->createAndRegisterAxiSubsystem<JitterRegisterApi>(SubsystemType::JITTER, 0, p.axi));
    EXPECT_TRUE(p.sdk->createAndRegisterAxiSubsystem<JitterRegisterApi>(type(37), 1, p.axi));
    EXPECT_EQ(p.axiSubsystemOf(37, 1), 10u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

std::map<int, unsigned int> expand(int first, std::vector<unsigned int> const& values) {
    std::map<int, unsigned int> table;
    for (std::size_t i = 0; i < values.size(); ++i) {
        table[first + static_cast<int>(i)] = values[i];
    }
    return table;
}

TEST(PlatformSdk, SubsystemLookupTablesAreByteExact) {
    std::map<int, unsigned int> selfTest = {
        {0, 9},   {5, 9},   {11, 9},  {12, 15}, {13, 2},  {14, 2}, {15, 14}, {16, 13},
        {17, 12}, {18, 11}, {20, 14}, {26, 6},  {27, 7},  {28, 0}, {33, 9},  {34, 8},
        {35, 8},  {37, 10}, {38, 0},  {40, 14}, {41, 14}, {42, 14}};
    auto const production =
        expand(1, {6,  12, 16, 13, 99, 17, 10, 9,  25, 8,  99, 22, 1,  1,  15, 23,
                   21, 20, 16, 15, 8,  8,  4,  3,  5,  99, 99, 0,  16, 99, 18, 19,
                   99, 11, 11, 2,  99, 0,  8,  15, 15, 15, 7,  16, 16, 24});
    auto const km40 = expand(1, {6,  12, 16, 13, 99, 17, 10, 9,  27, 8,  99, 22, 1,  99, 15, 23,
                                 21, 20, 16, 15, 8,  8,  4,  3,  5,  99, 99, 0,  16, 25, 18, 19,
                                 99, 11, 99, 2,  99, 0,  8,  15, 99, 15, 7,  16, 16, 24, 15});
    auto const at = [](std::map<int, unsigned int> const& table, int kind) {
        auto const found = table.find(kind);
        return found == table.end() ? 99u : found->second;
    };
    Platform vyProduction(1, descriptor(Calvento::Vy::DEVICE_VY));
    Platform vySelfTest(2, descriptor(Calvento::Vy::DEVICE_VY));
    Platform km(14, descriptor(Calvento::Vy::DEVICE_KM40));
    ASSERT_TRUE(vyProduction.sdk && vySelfTest.sdk && km.sdk);
    ASSERT_TRUE(vySelfTest.sdk->inSelfTestMode());
    for (int kind = -3; kind < 80; ++kind) {
        SCOPED_TRACE(kind);
        EXPECT_EQ(PlatformSdkVy::lookupSelfTestAxiSubSystemIndex(type(kind)), at(selfTest, kind));
        EXPECT_EQ(PlatformSdkVy::lookupProdFirmwareAxiSubSystemIndex(type(kind)),
                  at(production, kind));
        EXPECT_EQ(km.sdk->lookupAxiSubSystemIndex(type(kind)), at(km40, kind));
        unsigned int const misc = kind == 28 ? 0u : 1000u;
        EXPECT_EQ(vyProduction.sdk->lookupAxiSubSystemIndex(type(kind)),
                  kind == 28 ? misc : at(production, kind));
        EXPECT_EQ(vySelfTest.sdk->lookupAxiSubSystemIndex(type(kind)),
                  kind == 28 ? misc : at(selfTest, kind));
        EXPECT_EQ(vySelfTest.sdk->hasValidAxiSubsystem(type(kind)), at(selfTest, kind) != 99);
    }
    EXPECT_TRUE(vySelfTest.sdk->isValidAxiSubsystem(98));
    EXPECT_FALSE(vySelfTest.sdk->isValidAxiSubsystem(99));
}

TEST(PlatformSdk, FrontPanelDacOnlyOnCv072BuildsThreeAndFour) {
    auto const cv072 = BoardDescriptor::CV072_VY_VYL_FRONT_PANEL;
    auto const cv084 = BoardDescriptor::CV084_VYP_FRONT_PANEL;
    std::vector<std::tuple<BoardDescriptor::BoardId, unsigned int, bool>> const cases = {
        {cv072, 2, false}, {cv072, 3, true},  {cv072, 4, true},
        {cv072, 5, false}, {cv084, 3, false}, {cv084, 5, false}};
    for (auto const& [board, secondAttribute, hasDac] : cases) {
        SCOPED_TRACE(testing::Message() << board << "/" << secondAttribute);
        auto platform = descriptor(Calvento::Vy::DEVICE_VYL_VYP);
        // Attribute words: variant, then the one that selects the DAC.
        ASSERT_TRUE(platform->addBoard(
            std::make_shared<BoardDescriptor const>(board, 1, secondAttribute, 7)));
        Platform p(11, platform);
        ASSERT_TRUE(p.sdk);
        auto const dac =
            std::dynamic_pointer_cast<VyFrontPanelDacWm9081>(p.sdk->getSubsystem(type(55), 0));
        EXPECT_EQ(static_cast<bool>(dac), hasDac);
        if (dac) {
            EXPECT_EQ(dac->deviceId(), I2cDeviceId{20});
        }
    }
}

TEST(PlatformSdkFactory, MakesTheProductOfTheDeviceKind) {
    Platform vy(11, descriptor(Calvento::Vy::DEVICE_VY));
    Platform vyl(11, descriptor(Calvento::Vy::DEVICE_VYL_VYP));
    Platform km(2, descriptor(Calvento::Vy::DEVICE_KM40));
    EXPECT_TRUE(std::dynamic_pointer_cast<PlatformSdkVy>(vy.sdk));
    EXPECT_TRUE(std::dynamic_pointer_cast<PlatformSdkVy>(vyl.sdk));
    EXPECT_TRUE(std::dynamic_pointer_cast<PlatformSdkKm40>(km.sdk));
    ASSERT_TRUE(km.sdk);
    EXPECT_TRUE(km.sdk->inSelfTestMode());
    EXPECT_FALSE(km.sdk->getSubsystem(type(50), 0)); // the Si5367 is a Vy-family part
    EXPECT_EQ(km.axiSubsystemOf(28), 0u);
    EXPECT_EQ(km.axiSubsystemOf(47), 15u);
    // The Vy's product step (kind 0) differs from the VyL/VyP's (kind 1).
    EXPECT_TRUE(vy.sdk->getSubsystem(SubsystemType::REF_ADC, 0));
    EXPECT_FALSE(vyl.sdk->getSubsystem(SubsystemType::REF_ADC, 0));
    EXPECT_TRUE(vyl.sdk->getSubsystem(SubsystemType::TFT_LCD, 0));
    EXPECT_FALSE(vy.sdk->getSubsystem(SubsystemType::TFT_LCD, 0));

    auto const axi = windowWithDesign(11);
    EXPECT_FALSE(PlatformSdkFactory::create(nullptr, axi, nullptr, nullptr));
    EXPECT_FALSE(
        PlatformSdkFactory::create(descriptor(Calvento::Vy::Device(3)), axi, nullptr, nullptr));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

// A product whose table and hooks the test controls, recording what the
// start-up asks of it.
class ScriptedProduct final : public PlatformSdk {
public:
    ScriptedProduct(std::shared_ptr<AxiInterface> axi, std::map<int, unsigned int> table)
        : PlatformSdk(nullptr, axi, nullptr, nullptr), table_(std::move(table)) {
        registered = registerSubsystems(axi, nullptr, nullptr);
    }
    ~ScriptedProduct() = default;

    unsigned int getNetworkClockFrequency() const override { return 0; }
    bool inSelfTestMode() const override { return false; }
    SdiEqualiserM23554Properties getSdiEqualiserM23554Properties(int) const override { return {}; }
    unsigned int lookupAxiSubSystemIndex(SubsystemType kind) const override {
        if (lookups.empty() || lookups.back() != toNumber(kind)) {
            lookups.push_back(toNumber(kind));
        }
        auto const found = table_.find(toNumber(kind));
        return found == table_.end() ? 99 : found->second;
    }
    bool registerProductSpecificSubsystems(std::shared_ptr<AxiInterface>,
                                           std::shared_ptr<I2cInterface>,
                                           std::shared_ptr<SpiInterface>) override {
        steps.push_back("product " + std::to_string(getRegistry().size()));
        return true;
    }
    bool registerProductSpecificCompoundSubsystems(std::shared_ptr<AxiInterface>,
                                                   std::shared_ptr<I2cInterface>,
                                                   std::shared_ptr<SpiInterface>) override {
        steps.push_back("compound " + std::to_string(getRegistry().size()));
        return true;
    }
    bool setupPlatformFeatures() override {
        steps.push_back("features " + std::to_string(getRegistry().size()));
        if (!getStartupFirmwareVersion()) {
            return false;
        }
        setPlatformFeatures(std::make_shared<PlatformFeatures const>(*getStartupFirmwareVersion()));
        return true;
    }

    mutable std::vector<int> lookups;
    std::vector<std::string> steps;

private:
    std::map<int, unsigned int> table_;
};

TEST(PlatformSdk, StartUpOrder) {
    std::map<int, unsigned int> everything;
    for (int kind = 0; kind < 74; ++kind) {
        everything[kind] = 3;
    }
    everything[28] = 0;
    ScriptedProduct product(windowWithDesign(11), everything);
    EXPECT_TRUE(product.registrationSucceeded());
    EXPECT_THAT(product.lookups, ElementsAre(28, 1, 2, 3, 4, 6, 7, 8, 9, 21, 22, 39, 12, 17, 18, 19,
                                             45, 23, 24, 25, 29, 26, 27, 36, 37, 38, 43, 44, 46));
    // Features right after the miscellaneous block; the product's own blocks
    // after the 28 common ones and the miscellaneous block.
    EXPECT_THAT(product.steps, ElementsAre("features 1", "product 29", "compound 29"));
    ASSERT_TRUE(product.getPlatformFeatures());
    EXPECT_TRUE(product.getPlatformFeatures()->isSelfTestFirmware());
}

TEST(PlatformSdk, WithoutTheMiscellaneousBlockStartUpStops) {
    ScopedRecordingLogger log;
    auto const axi = windowWithDesign(11);
    ScriptedProduct product(axi, {{1, 6}}); // 28 absent from this table
    EXPECT_FALSE(product.registrationSucceeded());
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR: Failed to setup platform features - cannot continue"));
    EXPECT_THAT(product.steps, ElementsAre("features 0"));
    EXPECT_TRUE(product.getRegistry().isEmpty());
    EXPECT_THAT(product.lookups, ElementsAre(28));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

} // namespace
