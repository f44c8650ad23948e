#pragma once

// Base of the register blocks that live in an I2C device: binds the device id
// to the shared I2cInterface so that a block only passes register numbers.

#include <memory>

#include "platform/axi/GenericSubsystem.h"
#include "platform/bus/I2cDeviceId.h"
#include "platform/bus/I2cInterface.h"

class I2cSubsystem : public GenericSubsystem {
public:
    I2cSubsystem(I2cDeviceId device, std::shared_ptr<I2cInterface> i2c);
    ~I2cSubsystem() override;

    virtual bool i2cProbe();
    virtual bool i2cWrite(unsigned int reg, unsigned int value);
    virtual unsigned int i2cRead(unsigned int reg, bool* ok = nullptr, bool quiet = false);
    virtual bool i2cTwoByteWrite(unsigned int reg, unsigned int value);
    virtual bool i2cMultiByteWrite(unsigned int reg, unsigned char const* data,
                                   unsigned int length);
    virtual unsigned int i2cTwoByteRead(unsigned int reg, bool* ok = nullptr, bool quiet = false);

    I2cDeviceId deviceId() const { return device_; }
    std::shared_ptr<I2cInterface> const& i2cInterface() const { return i2c_; }

private:
    I2cDeviceId device_;
    std::shared_ptr<I2cInterface> i2c_;
};
