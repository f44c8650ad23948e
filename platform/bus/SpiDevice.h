#pragma once

// One SPI device: its properties bound to the bus that reaches it. Each
// transfer holds the bus's lock.

#include <memory>

#include "platform/bus/SpiBus.h"

class SpiDevice {
public:
    SpiDevice(SpiDeviceProperties properties, std::shared_ptr<SpiBus> bus);

    bool write(unsigned int value, SpiWordSizeBits size) const;
    unsigned int read(SpiWordSizeBits size, bool* ok) const;
    unsigned int transceive(unsigned int value, SpiWordSizeBits size, bool* ok) const;

    SpiDeviceProperties const& properties() const { return properties_; }
    std::shared_ptr<SpiBus> const& bus() const { return bus_; }

private:
    SpiDeviceProperties properties_;
    std::shared_ptr<SpiBus> bus_;
};
