#pragma once

// The SpiInterface that register blocks use: looks the device id up in the
// product's SPI device factory and runs the transfer on that device's bus.

#include <memory>

#include "platform/bus/SpiInterface.h"

class AxiInterface;
class SpiDevice;
class SpiDeviceFactoryVy;

class SpiController : public SpiInterface {
public:
    explicit SpiController(std::shared_ptr<AxiInterface> axi);

    // Empty for an id the product does not carry.
    std::shared_ptr<SpiDevice> getDevice(SpiDeviceId device) const;

    bool spiWriteWord(SpiDeviceId device, unsigned int value, SpiWordSizeBits size) override;
    unsigned int spiReadWord(SpiDeviceId device, SpiWordSizeBits size) override;
    unsigned int spiTransceiveWord(SpiDeviceId device, unsigned int value,
                                   SpiWordSizeBits size) override;

private:
    std::shared_ptr<SpiDeviceFactoryVy> factory_;
};
