#include "platform/bus/I2cController.h"

#include <memory>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/bus/I2cDeviceFactoryVy.h"
#include "platform/bus/I2cRawDevice.h"
#include "platform/descriptor/PlatformDescriptor.h"

using Calvento::testing::AxiRegisterRam;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

Calvento::PlatformPaths noLinuxAdapters() {
    Calvento::PlatformPaths paths;
    paths.i2cDevicePrefix = "/nonexistent/i2c-";
    return paths;
}

TEST(I2cDeviceFactoryVy, TheVyDeviceTableAndTheVyLFourPortController) {
    std::vector<std::vector<unsigned int>> const table = {
        {25, 5, 0x37}, {26, 5, 0x50},  {22, 5, 0x37}, {27, 6, 0x37}, {28, 6, 0x50}, {2, 3, 0x50},
        {3, 3, 0x51},  {4, 3, 0x59},   {5, 4, 0x50},  {6, 4, 0x51},  {7, 4, 0x59},  {8, 9, 0x1C},
        {9, 9, 0x1D},  {10, 9, 0x1E},  {11, 9, 0x1F}, {12, 9, 0x1A}, {13, 9, 0x1B}, {14, 9, 0x18},
        {15, 9, 0x19}, {16, 4, 0x70},  {17, 4, 0x71}, {18, 4, 0x72}, {19, 4, 0x73}, {20, 6, 0x6F},
        {21, 1, 0x68}, {23, 10, 0x2B}, {24, 0, 0x39}};
    // Kind 1 probes for the FPC402 first; here it answers only on the VyL.
    for (auto const kind : {Calvento::Vy::DEVICE_VY, Calvento::Vy::DEVICE_VYL_VYP}) {
        auto axi = std::make_shared<AxiRegisterRam>();
        axi->script(0, 0x2A, {0x800});
        I2cDeviceFactoryVy factory(std::make_shared<PlatformDescriptor const>(kind), axi,
                                   noLinuxAdapters());
        std::vector<std::vector<unsigned int>> expected = table, found;
        if (kind == Calvento::Vy::DEVICE_VYL_VYP) {
            expected.insert(expected.begin(), {1});
        }
        for (I2cDeviceId const id : factory.deviceIds()) {
            auto const device = factory.getDevice(id);
            found.push_back({toNumber(id)});
            if (id != I2cDeviceId::FourPortControllerFpc402) {
                found.back().insert(found.back().end(), {device->bus(), device->address()});
            }
        }
        EXPECT_EQ(found, expected);
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

TEST(I2cController, UnknownDeviceIdsAreRefusedWithoutBusTraffic) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<AxiRegisterRam>();
    I2cController controller(std::make_shared<PlatformDescriptor const>(Calvento::Vy::DEVICE_VY),
                             axi, noLinuxAdapters());
    axi->accesses.clear();
    I2cDeviceId const unknown = I2cDeviceId::FourPortControllerFpc402;
    bool ok = true;
    EXPECT_FALSE(controller.i2cTwoByteWrite(unknown, 0, 0));
    EXPECT_EQ(controller.i2cRead(unknown, 0, &ok, false), 0u);
    EXPECT_FALSE(ok);
    EXPECT_FALSE(controller.i2cProbe(unknown));
    EXPECT_THAT(log.lines(), ElementsAre("Cannot write to non-existent device (1)",
                                         "Cannot read from non-existent device (1)",
                                         "Cannot read from non-existent device (1)"));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

} // namespace
