// Process-wide state of the I2C layer, from a clean start: the device
// factory singleton and the FPGA engine's one-time timing set-up.

#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/bus/AxiI2cSystem.h"
#include "platform/bus/I2cDeviceFactoryVy.h"

using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(I2cProcessState, FactoryMustBeInitialisedAndEngineTimingIsWrittenOnce) {
    try {
        I2cDeviceFactoryVy::getInstance();
        ADD_FAILURE() << "no exception";
    } catch (std::logic_error const& error) {
        EXPECT_STREQ(error.what(), "You must call initialise before calling getInstance()");
    }
    auto first = std::make_shared<AxiRegisterRam>();
    EXPECT_TRUE(AxiI2cSystem(first).i2cInit());
    EXPECT_THAT(first->accesses, ElementsAre(axiWr(0, 0x2D, 0x032A03B8), axiWr(0, 0x2E, 0x01FB03F6),
                                             axiWr(0, 0x2F, 0x03B8032A), axiWr(0, 0x2C, 1)));
    auto second = std::make_shared<AxiRegisterRam>();
    EXPECT_TRUE(AxiI2cSystem(second).i2cInit());
    EXPECT_THAT(second->accesses, IsEmpty());
}
