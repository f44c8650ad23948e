#pragma once

// One I2C master: either the FPGA's own engine (AxiI2cSystem) or a Linux
// adapter (LinuxI2cSystem). Addresses are 7-bit; registers and data bytes are
// 8-bit. Two-byte values travel most significant byte first, the order of the
// 16-bit registers of the devices on these buses.

class I2cSystem {
public:
    virtual ~I2cSystem() = default;

    // True when the device acknowledges.
    virtual bool i2cProbe(unsigned int bus, unsigned int address) = 0;
    virtual bool i2cWrite(unsigned int bus, unsigned int address, unsigned int reg,
                          unsigned int value) = 0;
    // Returns the byte read (0 on failure); *ok, when given, tells whether the
    // transfer succeeded. quiet suppresses the failure log lines.
    virtual unsigned int i2cRead(unsigned int bus, unsigned int address, unsigned int reg, bool* ok,
                                 bool quiet) = 0;
    virtual bool i2cTwoByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                                 unsigned int value) = 0;
    virtual bool i2cMultiByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                                   unsigned char const* data, unsigned int length) = 0;
    virtual unsigned int i2cTwoByteRead(unsigned int bus, unsigned int address, unsigned int reg,
                                        bool* ok, bool quiet) = 0;

protected:
    I2cSystem() = default;
    I2cSystem(I2cSystem const&) = delete;
    I2cSystem& operator=(I2cSystem const&) = delete;
};
