#include <map>
#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/bus/testing/RecordingI2c.h"
#include "platform/descriptor/PlatformDescriptor.h"
#include "platform/registers/AesSrcTestRegisterApi.h"
#include "platform/registers/MiscellaneousRegisterApi.h"
#include "platform/sdk/PlatformSdkFactory.h"
#include "platform/sdk/PlatformSdkVy.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::RecordingI2c;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAre;

namespace {

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
    auto const clock =
        std::dynamic_pointer_cast<I2cSubsystem>(production.sdk->getSubsystem(type(50), 0));
    ASSERT_TRUE(clock);
    EXPECT_EQ(clock->deviceId(), I2cDeviceId{21});
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

TEST(PlatformSdk, SubsystemLookupTables) {
    std::map<int, unsigned int> const selfTest = {
        {0, 9},   {5, 9},   {11, 9},  {12, 15}, {13, 2},  {14, 2}, {15, 14}, {16, 13},
        {17, 12}, {18, 11}, {20, 14}, {26, 6},  {27, 7},  {28, 0}, {33, 9},  {34, 8},
        {35, 8},  {37, 10}, {38, 0},  {40, 14}, {41, 14}, {42, 14}};
    // Types 1 to 46 (Vy production image) and 1 to 47 (KM40); 99 elsewhere.
    std::vector<unsigned int> const production = {
        6, 12, 16, 13, 99, 17, 10, 9,  25, 8,  99, 22, 1, 1,  15, 23, 21, 20, 16, 15, 8,  8,  4,
        3, 5,  99, 99, 0,  16, 99, 18, 19, 99, 11, 11, 2, 99, 0,  8,  15, 15, 15, 7,  16, 16, 24};
    std::vector<unsigned int> const km40 = {
        6, 12, 16, 13, 99, 17, 10, 9,  27, 8,  99, 22, 1,  99, 15, 23, 21, 20, 16, 15, 8,  8,  4, 3,
        5, 99, 99, 0,  16, 25, 18, 19, 99, 11, 99, 2,  99, 0,  8,  15, 99, 15, 7,  16, 16, 24, 15};
    auto const at = [](std::vector<unsigned int> const& table, int kind) {
        return kind >= 1 && kind <= static_cast<int>(table.size())
                   ? table[static_cast<std::size_t>(kind - 1)]
                   : 99u;
    };
    Platform vy(1, Calvento::Vy::DEVICE_VY);
    Platform km(14, Calvento::Vy::DEVICE_KM40);
    for (int kind = -1; kind < 80; ++kind) {
        auto const found = selfTest.find(kind);
        EXPECT_EQ(PlatformSdkVy::lookupSelfTestAxiSubSystemIndex(type(kind)),
                  found == selfTest.end() ? 99u : found->second);
        EXPECT_EQ(vy.sdk->lookupAxiSubSystemIndex(type(kind)), at(production, kind));
        EXPECT_EQ(km.sdk->lookupAxiSubSystemIndex(type(kind)), at(km40, kind)) << kind;
    }
}

} // namespace
