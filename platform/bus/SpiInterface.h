#pragma once

// Device-level SPI access handed to the register blocks (SpiController).

#include "platform/bus/SpiTypes.h"

class SpiInterface {
public:
    virtual ~SpiInterface() = default;

    virtual bool spiWriteWord(SpiDeviceId device, unsigned int value, SpiWordSizeBits size) = 0;
    virtual unsigned int spiReadWord(SpiDeviceId device, SpiWordSizeBits size) = 0;
    virtual unsigned int spiTransceiveWord(SpiDeviceId device, unsigned int value,
                                           SpiWordSizeBits size) = 0;

protected:
    SpiInterface() = default;
    SpiInterface(SpiInterface const&) = delete;
    SpiInterface& operator=(SpiInterface const&) = delete;
};
