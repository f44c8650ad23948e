#include "platform/bus/I2cRawDevice.h"

#include <utility>

I2cRawDevice::I2cRawDevice(std::shared_ptr<I2cSystem> system, unsigned int bus,
                           unsigned int address)
    : system_(std::move(system)), bus_(bus), address_(address) {}

bool I2cRawDevice::probe() const {
    return system_->i2cProbe(bus_, address_);
}

bool I2cRawDevice::write(unsigned int reg, unsigned int value) const {
    return system_->i2cWrite(bus_, address_, reg, value);
}

unsigned int I2cRawDevice::read(unsigned int reg, bool* ok, bool quiet) const {
    return system_->i2cRead(bus_, address_, reg, ok, quiet);
}

bool I2cRawDevice::twoByteWrite(unsigned int reg, unsigned int value) const {
    return system_->i2cTwoByteWrite(bus_, address_, reg, value);
}

bool I2cRawDevice::multiByteWrite(unsigned int reg, unsigned char const* data,
                                  unsigned int length) const {
    return system_->i2cMultiByteWrite(bus_, address_, reg, data, length);
}

unsigned int I2cRawDevice::twoByteRead(unsigned int reg, bool* ok, bool quiet) const {
    return system_->i2cTwoByteRead(bus_, address_, reg, ok, quiet);
}
