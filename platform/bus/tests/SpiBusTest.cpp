#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/testing/RecordingSink.h"
#include "platform/bus/SdiMachXoSpiMux.h"
#include "platform/bus/SpiController.h"
#include "platform/bus/SpiDevice.h"
#include "platform/bus/SpiDeviceFactoryVy.h"
#include "platform/bus/VyAxiSpiBus.h"
#include "platform/bus/testing/ScriptedAxi.h"

using Calvento::testing::axiRd;
using Calvento::testing::axiWr;
using Calvento::testing::ScopedRecordingLogger;
using Calvento::testing::ScriptedAxi;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr unsigned int kStatus = VyAxiSpiBus::kStatusRegister;

TEST(VyAxiSpiBus, ChipSelectTable) {
    ScopedRecordingLogger log;
    VyAxiSpiBus bus(std::make_shared<ScriptedAxi>(), 25000);
    std::vector<int> const expected = {0, 1, 1, 2, 3, 2, 2, 4, 4, -1, -1, -1, -1, -1, -1, 5};
    for (int cs = 0; cs < 16; ++cs) {
        EXPECT_EQ(bus.lookupBusFromChipSelect(cs), expected[static_cast<std::size_t>(cs)]) << cs;
    }
    EXPECT_EQ(bus.lookupBusFromChipSelect(16), -1);
    EXPECT_EQ(bus.lookupBusFromChipSelect(-1), -1);
    auto const lines = log.lines();
    ASSERT_EQ(lines.size(), 8u); // six unwired selects, 16 and -1
    EXPECT_EQ(lines.front(), "ERROR: Cannot identify bus for cs 9");
    EXPECT_EQ(lines.back(), "ERROR: Cannot identify bus for cs -1");
}

TEST(VyAxiSpiBus, SpeedIsMaskedToTenBitsAfterTheEngineIsIdle) {
    struct Case {
        int value;
        unsigned long written;
    };
    for (Case const c :
         {Case{2, 2}, Case{0x3FF, 0x3FF}, Case{0x400, 0}, Case{0x7FF, 0x3FF}, Case{-1, 0x3FF}}) {
        auto axi = std::make_shared<ScriptedAxi>();
        axi->script(0, kStatus, {1, 1, 0});
        VyAxiSpiBus bus(axi, 25000);
        bus.setSpeed(c.value);
        EXPECT_THAT(axi->accesses, ElementsAre(axiRd(0, kStatus, 1), axiRd(0, kStatus, 1),
                                               axiRd(0, kStatus, 0), axiWr(0, 0x24, c.written)))
            << c.value;
    }
}

TEST(VyAxiSpiBus, BusyWaitGivesUpWithALogLine) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<ScriptedAxi>();
    axi->script(0, kStatus, {1});
    VyAxiSpiBus bus(axi, 25000);
    EXPECT_FALSE(bus.waitForSpiNotBusy());
    EXPECT_EQ(axi->readCount(0, kStatus), VyAxiSpiBus::kBusyTries);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR: SPI still busy after 1000 tries"));
    EXPECT_FALSE(bus.initialise());
}

TEST(VyAxiSpiBus, TransfersRunAtTheLowerSpeedOnTheEngineOfTheChipSelect) {
    auto axi = std::make_shared<ScriptedAxi>();
    axi->set(0, VyAxiSpiBus::kReceiveRegister, 0xA5);
    VyAxiSpiBus bus(axi, 25000);
    EXPECT_EQ(bus.getMaxBusSpeedKhz({7, 5000}), 5000u);
    EXPECT_EQ(bus.getMaxBusSpeedKhz({7, 50000}), 25000u);

    bool ok = false;
    // cs 7 is engine 4; 5 MHz from 100 MHz is a divider of 10.
    EXPECT_EQ(bus.transceive({7, 5000}, 0x1234, SpiWordSizeBits::Bits16, &ok), 0xA5u);
    EXPECT_TRUE(ok);
    EXPECT_THAT(axi->accesses, ElementsAre(axiRd(0, kStatus, 0), axiWr(0, 0x24, 10),
                                           axiWr(0, 0x21, 0x1234), axiWr(0, 0x20, 0x80040710),
                                           axiRd(0, kStatus, 0), axiRd(0, 0x22, 0xA5)));

    axi->accesses.clear();
    EXPECT_TRUE(bus.write({15, 50000}, 0xABCDEF, SpiWordSizeBits::Bits24));
    EXPECT_THAT(axi->accesses,
                ElementsAre(axiRd(0, kStatus, 0), axiWr(0, 0x24, 2), axiWr(0, 0x21, 0xABCDEF),
                            axiWr(0, 0x20, 0x80050F18), axiRd(0, kStatus, 0)));

    ScopedRecordingLogger log;
    axi->accesses.clear();
    EXPECT_FALSE(bus.write({9, 1000}, 1, SpiWordSizeBits::Bits8));
    EXPECT_THAT(axi->accesses, IsEmpty());
}

// Records what reaches the bus below the mux.
class RecordingSpiBus : public SpiBus {
public:
    // Chip select, speed in kHz, value, word size, lock depth.
    using Transfer = std::tuple<int, unsigned int, unsigned int, SpiWordSizeBits, int>;
    bool initialise() override { return true; }
    void lockBus() override { ++lockDepth; }
    void unlockBus() override { --lockDepth; }
    bool write(SpiDeviceProperties const& d, unsigned int v, SpiWordSizeBits s) override {
        transfers.push_back({d.chipSelect, d.maxSpeedKhz, v, s, lockDepth});
        return true;
    }
    unsigned int read(SpiDeviceProperties const& d, SpiWordSizeBits s, bool* ok) override {
        return transceive(d, 0, s, ok);
    }
    unsigned int transceive(SpiDeviceProperties const& d, unsigned int v, SpiWordSizeBits s,
                            bool* ok) override {
        transfers.push_back({d.chipSelect, d.maxSpeedKhz, v, s, lockDepth});
        if (ok != nullptr) {
            *ok = true;
        }
        return 0x5A;
    }
    std::vector<Transfer> transfers;
    int lockDepth = 0;
};

TEST(SdiMachXoSpiMux, SelectsTheChannelThenTransfersOnTheRoutedChipSelect) {
    auto wrapped = std::make_shared<RecordingSpiBus>();
    auto machXo = std::make_shared<SpiDevice>(SpiDeviceProperties{1, 10000}, wrapped);
    auto mux = std::make_shared<SdiMachXoSpiMux>(machXo, wrapped, 2);
    SpiDevice reclocker({5, 8000}, mux);

    bool ok = false;
    EXPECT_EQ(reclocker.transceive(0x8001, SpiWordSizeBits::Bits16, &ok), 0x5Au);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(reclocker.write(0x42, SpiWordSizeBits::Bits8));
    using T = RecordingSpiBus::Transfer;
    // Both transfers of each pair run while the wrapped bus is held (the
    // channel word through the MachXO's own device takes one more hold).
    EXPECT_THAT(wrapped->transfers, ElementsAre(T{1, 10000, 5, SpiWordSizeBits::Bits16, 3},
                                                T{2, 8000, 0x8001, SpiWordSizeBits::Bits16, 2},
                                                T{1, 10000, 5, SpiWordSizeBits::Bits16, 3},
                                                T{2, 8000, 0x42, SpiWordSizeBits::Bits8, 2}));
    EXPECT_EQ(wrapped->lockDepth, 0);
    EXPECT_TRUE(mux->setMuxCs(3));
    EXPECT_EQ(std::get<2>(wrapped->transfers.back()), 3u);
}

TEST(SpiController, ReachesTheFactoryDevicesAndRefusesUnknownIds) {
    ScopedRecordingLogger log;
    auto axi = std::make_shared<ScriptedAxi>();
    SpiController spi(axi);
    EXPECT_THAT(log.lines(), IsEmpty());
    auto const lmk = spi.getDevice(SpiDeviceId::MainClockSynthesizerLmk04808);
    ASSERT_TRUE(lmk);
    EXPECT_EQ(lmk->properties().chipSelect, SpiDeviceFactoryVy::kLmk04808ChipSelect);
    EXPECT_TRUE(std::dynamic_pointer_cast<SdiMachXoSpiMux>(
        spi.getDevice(SpiDeviceId::SdiDriverM23528A)->bus()));

    axi->accesses.clear();
    EXPECT_TRUE(spi.spiWriteWord(SpiDeviceId::MainClockSynthesizerLmk04808, 0x00020000,
                                 SpiWordSizeBits::Bits32));
    // 20 MHz from the 100 MHz engine clock: divider 3 (16.7 MHz).
    EXPECT_THAT(axi->writes(), ElementsAre(axiWr(0, 0x24, 3), axiWr(0, 0x21, 0x00020000),
                                           axiWr(0, 0x20, 0x80000020)));
    // Behind the mux: the channel word to the MachXO (cs 1, engine 1), then
    // the device's word on the routed select (cs 2, engine 1).
    axi->accesses.clear();
    spi.spiWriteWord(SpiDeviceId::SdiReClockerM23145, 0x77, SpiWordSizeBits::Bits8);
    EXPECT_THAT(axi->writes(),
                ElementsAre(axiWr(0, 0x24, 5), axiWr(0, 0x21, 1), axiWr(0, 0x20, 0x80010110),
                            axiWr(0, 0x24, 5), axiWr(0, 0x21, 0x77), axiWr(0, 0x20, 0x80010208)));

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
