#pragma once

// One device on one I2C master: a bus number and a 7-bit address bound to
// the system that reaches them.

#include <memory>

#include "platform/bus/I2cSystem.h"

class I2cRawDevice {
public:
    I2cRawDevice(std::shared_ptr<I2cSystem> system, unsigned int bus, unsigned int address);

    bool probe() const;
    bool write(unsigned int reg, unsigned int value) const;
    unsigned int read(unsigned int reg, bool* ok, bool quiet) const;
    bool twoByteWrite(unsigned int reg, unsigned int value) const;
    bool multiByteWrite(unsigned int reg, unsigned char const* data, unsigned int length) const;
    unsigned int twoByteRead(unsigned int reg, bool* ok, bool quiet) const;

    unsigned int bus() const { return bus_; }
    unsigned int address() const { return address_; }
    std::shared_ptr<I2cSystem> const& system() const { return system_; }

private:
    std::shared_ptr<I2cSystem> system_;
    unsigned int bus_;
    unsigned int address_;
};
