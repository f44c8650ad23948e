// Process-wide state of the I2C layer: the device factory singleton and the
// FPGA engine's one-time timing set-up. Kept in an executable of its own so
// that nothing else in the process has touched that state first.

#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bus/AxiI2cSystem.h"
#include "platform/bus/I2cDeviceFactoryVy.h"
#include "platform/bus/testing/ScriptedAxi.h"
#include "platform/descriptor/PlatformDescriptor.h"

using Calvento::testing::axiWr;
using Calvento::testing::ScriptedAxi;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

TEST(I2cProcessState, FactoryMustBeInitialisedAndEngineTimingIsWrittenOnce) {
    try {
        I2cDeviceFactoryVy::getInstance();
        FAIL() << "getInstance before initialise must throw";
    } catch (std::logic_error const& error) {
        EXPECT_EQ(std::string(error.what()),
                  "You must call initialise before calling getInstance()");
    }

    auto first = std::make_shared<ScriptedAxi>();
    AxiI2cSystem firstEngine(first);
    EXPECT_TRUE(firstEngine.i2cInit());
    EXPECT_THAT(first->accesses, ElementsAre(axiWr(0, 0x2D, 0x032A03B8), axiWr(0, 0x2E, 0x01FB03F6),
                                             axiWr(0, 0x2F, 0x03B8032A), axiWr(0, 0x2C, 1)));
    EXPECT_TRUE(firstEngine.i2cInit());
    EXPECT_EQ(first->accesses.size(), 4u);

    // Another engine object, even over another interface, finds it done.
    auto second = std::make_shared<ScriptedAxi>();
    AxiI2cSystem secondEngine(second);
    EXPECT_TRUE(secondEngine.i2cInit());
    EXPECT_THAT(second->accesses, IsEmpty());

    auto descriptor = std::make_shared<PlatformDescriptor const>(Calvento::Vy::DEVICE_VY);
    I2cDeviceFactoryVy::initialise(descriptor, second);
    auto const factory = I2cDeviceFactoryVy::getInstance();
    ASSERT_TRUE(factory);
    EXPECT_THAT(second->accesses, IsEmpty());
    I2cDeviceFactoryVy::initialise(descriptor, second);
    EXPECT_NE(I2cDeviceFactoryVy::getInstance(), factory);
}

} // namespace
