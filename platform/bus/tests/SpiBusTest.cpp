#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/axi/testing/AxiRegisterRam.h"
#include "platform/bus/SpiController.h"
#include "platform/bus/VyAxiSpiBus.h"

using Calvento::testing::axiRd;
using Calvento::testing::AxiRegisterRam;
using Calvento::testing::axiWr;
using Calvento::testing::ScopedRecordingLogger;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr unsigned int kStatus = VyAxiSpiBus::kStatusRegister;

TEST(VyAxiSpiBus, ChipSelectTableSpeedMaskAndBusyLimit) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<AxiRegisterRam>();
    VyAxiSpiBus bus(axi, 25000);
    std::vector<int> const engines = {0, 1, 1, 2, 3, 2, 2, 4, 4, -1, -1, -1, -1, -1, -1, 5, -1};
    for (int cs = 0; cs <= 16; ++cs) {
        EXPECT_EQ(bus.lookupBusFromChipSelect(cs), engines[static_cast<std::size_t>(cs)]) << cs;
    }
    auto const lines = log.lines();
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines.back(), "ERROR: Cannot identify bus for cs 16");

    axi->script(0, kStatus, {1, 0});
    bus.setSpeed(0x7FE);
    EXPECT_THAT(axi->accesses, ElementsAre(axiRd(0, kStatus, 1), axiRd(0, kStatus, 0),
                                           axiWr(0, VyAxiSpiBus::kSpeedRegister, 0x3FE)));
    axi->script(0, kStatus, {1});
    EXPECT_FALSE(bus.waitForSpiNotBusy());
    EXPECT_EQ(log.lines().back(), "ERROR: SPI still busy after 1000 tries");
}

TEST(SpiController, UnknownDeviceIdsAreRefusedWithoutBusTraffic) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<AxiRegisterRam>();
    SpiController spi(axi);
    axi->accesses.clear();
    SpiDeviceId const unknown{42};
    EXPECT_FALSE(spi.spiWriteWord(unknown, 1, SpiWordSizeBits::Bits8));
    EXPECT_EQ(spi.spiReadWord(unknown, SpiWordSizeBits::Bits8), 0u);
    EXPECT_EQ(spi.spiTransceiveWord(unknown, 1, SpiWordSizeBits::Bits8), 0u);
    EXPECT_THAT(log.lines(), ElementsAre("Cannot write to non-existent device (42)",
                                         "Cannot read from non-existent device (42)",
                                         "Cannot transceive to non-existent device (42)"));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

} // namespace
