#include "platform/bus/I2cController.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/bus/AxiI2cSystem.h"
#include "platform/bus/I2cDeviceFactoryVy.h"
#include "platform/bus/I2cRawDevice.h"
#include "platform/bus/LinuxI2cSystem.h"
#include "platform/bus/testing/ScriptedAxi.h"
#include "platform/descriptor/PlatformDescriptor.h"

using Calvento::testing::axiRd;
using Calvento::testing::axiWr;
using Calvento::testing::ScopedRecordingLogger;
using Calvento::testing::ScriptedAxi;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr unsigned int kStatus = 0x2A;

std::shared_ptr<PlatformDescriptor const> descriptorOfKind(Calvento::Vy::Device kind) {
    return std::make_shared<PlatformDescriptor const>(kind);
}

Calvento::PlatformPaths noLinuxAdapters() {
    Calvento::PlatformPaths paths;
    paths.i2cDevicePrefix = "/nonexistent/i2c-";
    return paths;
}

TEST(I2cDeviceFactoryVy, MakesTheVyDeviceTableInOrder) {
    struct Row {
        std::uint32_t id;
        unsigned int bus;
        unsigned int address;
    };
    std::vector<Row> const expected = {
        {25, 5, 0x37}, {26, 5, 0x50},  {22, 5, 0x37}, {27, 6, 0x37}, {28, 6, 0x50}, {2, 3, 0x50},
        {3, 3, 0x51},  {4, 3, 0x59},   {5, 4, 0x50},  {6, 4, 0x51},  {7, 4, 0x59},  {8, 9, 0x1C},
        {9, 9, 0x1D},  {10, 9, 0x1E},  {11, 9, 0x1F}, {12, 9, 0x1A}, {13, 9, 0x1B}, {14, 9, 0x18},
        {15, 9, 0x19}, {16, 4, 0x70},  {17, 4, 0x71}, {18, 4, 0x72}, {19, 4, 0x73}, {20, 6, 0x6F},
        {21, 1, 0x68}, {23, 10, 0x2B}, {24, 0, 0x39},
    };
    auto axi = std::make_shared<ScriptedAxi>();
    I2cDeviceFactoryVy factory(descriptorOfKind(Calvento::Vy::DEVICE_VY), axi, noLinuxAdapters());

    std::vector<I2cDeviceId> expectedIds;
    for (Row const& row : expected) {
        SCOPED_TRACE(row.id);
        expectedIds.push_back(I2cDeviceId{row.id});
        auto const device = factory.getDevice(I2cDeviceId{row.id});
        ASSERT_TRUE(device);
        EXPECT_EQ(device->bus(), row.bus);
        EXPECT_EQ(device->address(), row.address);
        // The FPGA engine has channels 0..7; higher buses are Linux adapters.
        if (row.bus <= 7) {
            EXPECT_TRUE(std::dynamic_pointer_cast<AxiI2cSystem>(device->system()));
        } else {
            EXPECT_TRUE(std::dynamic_pointer_cast<LinuxI2cSystem>(device->system()));
        }
    }
    EXPECT_EQ(factory.deviceIds(), expectedIds);
    EXPECT_FALSE(factory.getDevice(I2cDeviceId::FourPortControllerFpc402));
    EXPECT_FALSE(factory.getDevice(I2cDeviceId{29}));
    // One chip under two ids: two device objects, same place.
    EXPECT_NE(factory.getDevice(I2cDeviceId{22}), factory.getDevice(I2cDeviceId{25}));
    // Nothing was probed for the Vy.
    EXPECT_EQ(axi->readCount(0, kStatus), 0u);
}

TEST(I2cDeviceFactoryVy, TheVyLHasAFourPortControllerWhenItAnswers) {
    for (bool const answers : {true, false}) {
        SCOPED_TRACE(answers);
        ScopedRecordingLogger log;
        auto axi = std::make_shared<ScriptedAxi>();
        axi->script(0, kStatus, {answers ? 0x800u : 0x900u});
        I2cDeviceFactoryVy factory(descriptorOfKind(Calvento::Vy::DEVICE_VYL_VYP), axi,
                                   noLinuxAdapters());
        EXPECT_THAT(axi->writes(), Contains(axiWr(0, 0x2B, (2u << 24) | (0x1Cu << 17) | 0x10000)));
        auto const fpc = factory.getDevice(I2cDeviceId::FourPortControllerFpc402);
        if (!answers) {
            EXPECT_FALSE(fpc);
            EXPECT_EQ(factory.deviceIds().size(), 27u);
            EXPECT_THAT(log.lines(), ElementsAre("Failed to find four port controller!"));
            continue;
        }
        ASSERT_TRUE(fpc);
        EXPECT_EQ(factory.deviceIds().size(), 28u);
        EXPECT_EQ(factory.deviceIds().front(), I2cDeviceId::FourPortControllerFpc402);
        EXPECT_EQ(fpc->bus(), I2cDeviceFactoryVy::kFpc402Bus);
        EXPECT_EQ(fpc->address(), I2cDeviceFactoryVy::kFpc402Address);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST(I2cController, RoutesDeviceIdsToTheirBusAndRefusesUnknownIds) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<ScriptedAxi>();
    axi->script(0, kStatus, {0x800});
    I2cController controller(descriptorOfKind(Calvento::Vy::DEVICE_VY), axi, noLinuxAdapters());
    axi->accesses.clear();

    EXPECT_TRUE(controller.i2cWrite(I2cDeviceId::ClockSynthesizerSi5367, 136, 0x40));
    EXPECT_THAT(axi->accesses, ElementsAre(axiRd(0, kStatus, 0x800), axiWr(0, 0x2B, 0x01D18840),
                                           axiRd(0, kStatus, 0x800)));
    EXPECT_EQ(controller.getDevice(I2cDeviceId::FrontPanelDacWm9081)->address(), 0x6Fu);
    axi->accesses.clear();

    struct Case {
        char const* name;
        std::function<void()> operation;
        std::string line;
    };
    I2cDeviceId const unknown = I2cDeviceId::FourPortControllerFpc402;
    unsigned char const data[1] = {0};
    std::vector<Case> const cases = {
        {"write", [&] { EXPECT_FALSE(controller.i2cWrite(unknown, 0, 0)); },
         "Cannot write to non-existent device (1)"},
        {"two-byte write", [&] { EXPECT_FALSE(controller.i2cTwoByteWrite(unknown, 0, 0)); },
         "Cannot write to non-existent device (1)"},
        {"multi-byte write",
         [&] { EXPECT_FALSE(controller.i2cMultiByteWrite(unknown, 0, data, 1)); },
         "Cannot write to non-existent device (1)"},
        {"read",
         [&] {
             bool ok = true;
             EXPECT_EQ(controller.i2cRead(unknown, 0, &ok, false), 0u);
             EXPECT_FALSE(ok);
         },
         "Cannot read from non-existent device (1)"},
        {"two-byte read",
         [&] {
             bool ok = true;
             EXPECT_EQ(controller.i2cTwoByteRead(unknown, 0, &ok, false), 0u);
             EXPECT_FALSE(ok);
         },
         "Cannot read from non-existent device (1)"},
        {"probe", [&] { EXPECT_FALSE(controller.i2cProbe(unknown)); },
         "Cannot read from non-existent device (1)"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        c.operation();
        EXPECT_THAT(log.lines(), ElementsAre(c.line));
        EXPECT_THAT(axi->accesses, IsEmpty());
    }

    // A device on a Linux adapter whose node is missing fails without
    // touching the FPGA engine.
    log.clear();
    EXPECT_FALSE(controller.i2cWrite(I2cDeviceId{23}, 1, 2));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

} // namespace
