#include "platform/bus/I2cSubsystem.h"

#include <utility>

I2cSubsystem::I2cSubsystem(I2cDeviceId device, std::shared_ptr<I2cInterface> i2c)
    : device_(device), i2c_(std::move(i2c)) {}

I2cSubsystem::~I2cSubsystem() = default;

// Without an interface every write fails and every read gives 0, as a block
// whose bus is absent.
bool I2cSubsystem::i2cProbe() {
    return i2c_ && i2c_->i2cProbe(device_);
}

bool I2cSubsystem::i2cWrite(unsigned int reg, unsigned int value) {
    return i2c_ && i2c_->i2cWrite(device_, reg, value);
}

unsigned int I2cSubsystem::i2cRead(unsigned int reg, bool* ok, bool quiet) {
    if (!i2c_) {
        if (ok != nullptr) {
            *ok = false;
        }
        return 0;
    }
    return i2c_->i2cRead(device_, reg, ok, quiet);
}

bool I2cSubsystem::i2cTwoByteWrite(unsigned int reg, unsigned int value) {
    return i2c_ && i2c_->i2cTwoByteWrite(device_, reg, value);
}

bool I2cSubsystem::i2cMultiByteWrite(unsigned int reg, unsigned char const* data,
                                     unsigned int length) {
    return i2c_ && i2c_->i2cMultiByteWrite(device_, reg, data, length);
}

unsigned int I2cSubsystem::i2cTwoByteRead(unsigned int reg, bool* ok, bool quiet) {
    if (!i2c_) {
        if (ok != nullptr) {
            *ok = false;
        }
        return 0;
    }
    return i2c_->i2cTwoByteRead(device_, reg, ok, quiet);
}
