#pragma once

// Device-level I2C access handed to the register blocks: a device is named by
// its id, and the implementation (I2cController) finds its bus and address.

#include "platform/bus/I2cDeviceId.h"

class I2cInterface {
public:
    virtual ~I2cInterface() = default;

    virtual bool i2cProbe(I2cDeviceId device) = 0;
    virtual bool i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) = 0;
    virtual unsigned int i2cRead(I2cDeviceId device, unsigned int reg, bool* ok, bool quiet) = 0;
    virtual bool i2cTwoByteWrite(I2cDeviceId device, unsigned int reg, unsigned int value) = 0;
    virtual bool i2cMultiByteWrite(I2cDeviceId device, unsigned int reg, unsigned char const* data,
                                   unsigned int length) = 0;
    virtual unsigned int i2cTwoByteRead(I2cDeviceId device, unsigned int reg, bool* ok,
                                        bool quiet) = 0;

protected:
    I2cInterface() = default;
    I2cInterface(I2cInterface const&) = delete;
    I2cInterface& operator=(I2cInterface const&) = delete;
};
