#pragma once

// The FPGA's SPI engines, reached through registers of AXI sub-system 0.
// Chip selects 0 to 15 are wired to six engines; one register set drives
// them, the engine being named in the control word of each transfer.

#include <memory>
#include <mutex>

#include "platform/bus/SpiBus.h"

class AxiInterface;

class VyAxiSpiBus : public SpiBus {
public:
    // maxBusSpeedKhz: the fastest clock the board's wiring allows.
    VyAxiSpiBus(std::shared_ptr<AxiInterface> axi, unsigned int maxBusSpeedKhz);

    bool initialise() override;
    void lockBus() override;
    void unlockBus() override;

    bool write(SpiDeviceProperties const& device, unsigned int value,
               SpiWordSizeBits size) override;
    unsigned int read(SpiDeviceProperties const& device, SpiWordSizeBits size, bool* ok) override;
    unsigned int transceive(SpiDeviceProperties const& device, unsigned int value,
                            SpiWordSizeBits size, bool* ok) override;

    // Polls the busy bit at most kBusyTries times; false (and a log line)
    // when it stays set.
    bool waitForSpiNotBusy();
    // The engine wired to a chip select, -1 (and a log line) for none.
    int lookupBusFromChipSelect(int cs) const;
    // Waits for the engine to be idle, then writes the clock divider.
    void setSpeed(int value);
    unsigned int getMaxBusSpeedKhz(SpiDeviceProperties const& device) const;
    // The divider that keeps the clock at or below speedKhz.
    static int dividerForSpeedKhz(unsigned int speedKhz);

    // Register map of the engine (word offsets in AXI sub-system 0), placed
    // between the miscellaneous block's registers and the I2C engine's.
    static constexpr unsigned int kSubsystem = 0;
    static constexpr unsigned int kControlRegister = 0x20;
    static constexpr unsigned int kTransmitRegister = 0x21;
    static constexpr unsigned int kReceiveRegister = 0x22;
    static constexpr unsigned int kStatusRegister = 0x23;
    static constexpr unsigned int kSpeedRegister = 0x24;
    // Control word: start bit, engine in bits 18..16, chip select in bits
    // 11..8, word length in bits 5..0.
    static constexpr unsigned int kStartBit = 0x80000000;
    static constexpr unsigned int kBusyBit = 0x1;
    static constexpr unsigned int kSpeedMask = 0x3FF;
    static constexpr unsigned int kBusyTries = 1000;
    // SCK = engine clock / (2 x divider); the engine runs on the 100 MHz
    // AXI clock.
    static constexpr unsigned int kEngineClockKhz = 100000;

private:
    unsigned int transfer(SpiDeviceProperties const& device, unsigned int value,
                          SpiWordSizeBits size, bool readBack, bool* ok);

    std::shared_ptr<AxiInterface> axi_;
    unsigned int maxBusSpeedKhz_;
    std::recursive_mutex mutex_;
};
