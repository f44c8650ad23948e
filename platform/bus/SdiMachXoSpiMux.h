#pragma once

// The SDI devices sit behind a chip-select multiplexer in the SDI MachXO:
// the MachXO is told which device to route its select line to (one 16-bit
// word to the MachXO itself), then the transfer runs on the wrapped bus on
// the select line that the MachXO drives.

#include <memory>
#include <mutex>

#include "platform/bus/SpiBus.h"

class SpiDevice;

class SdiMachXoSpiMux : public SpiBus {
public:
    // mux: the MachXO's own SPI device; bus: the bus it hangs on;
    // routedChipSelect: the chip select of that bus which the MachXO passes
    // to the selected device.
    SdiMachXoSpiMux(std::shared_ptr<SpiDevice> mux, std::shared_ptr<SpiBus> bus,
                    int routedChipSelect);

    bool initialise() override;
    void lockBus() override;
    void unlockBus() override;

    bool write(SpiDeviceProperties const& device, unsigned int value,
               SpiWordSizeBits size) override;
    unsigned int read(SpiDeviceProperties const& device, SpiWordSizeBits size, bool* ok) override;
    unsigned int transceive(SpiDeviceProperties const& device, unsigned int value,
                            SpiWordSizeBits size, bool* ok) override;

    // Routes the MachXO's select to device channel cs.
    bool setMuxCs(int cs);
    // The properties of a transfer to a device behind the mux as the wrapped
    // bus sees it: the routed chip select at the device's speed.
    SpiDeviceProperties genSpiDeviceProperties(SpiDeviceProperties const& device) const;

private:
    std::shared_ptr<SpiDevice> mux_;
    std::shared_ptr<SpiBus> bus_;
    int routedChipSelect_;
    std::recursive_mutex mutex_;
};
