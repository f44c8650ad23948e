#pragma once

// Base of the register blocks that live in an SPI device: binds the device id
// to the shared SpiInterface.

#include <memory>

#include "platform/axi/GenericSubsystem.h"
#include "platform/bus/SpiInterface.h"

class SpiSubsystem : public GenericSubsystem {
public:
    SpiSubsystem(SpiDeviceId device, std::shared_ptr<SpiInterface> spi);
    ~SpiSubsystem() override;

    virtual bool spiWriteWord(unsigned int value, SpiWordSizeBits size);
    virtual unsigned int spiReadWord(SpiWordSizeBits size);
    virtual unsigned int spiTransceiveWord(unsigned int value, SpiWordSizeBits size);

    SpiDeviceId deviceId() const { return device_; }
    std::shared_ptr<SpiInterface> const& spiInterface() const { return spi_; }

private:
    SpiDeviceId device_;
    std::shared_ptr<SpiInterface> spi_;
};
