#pragma once

// An I2C master of the processor, reached through its Linux character device
// ("/dev/i2c-<bus>") with one I2C_RDWR transfer per operation.

#include <functional>
#include <mutex>
#include <string>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include "platform/bus/I2cSystem.h"

class LinuxI2cSystem : public I2cSystem {
public:
    // Carries one I2C_RDWR request on an open descriptor; returns the ioctl's
    // result. The default is the real ioctl.
    using Transfer = std::function<int(int fd, i2c_rdwr_ioctl_data& request)>;
    using ErrorCallback = std::function<void()>;

    static int ioctlTransfer(int fd, i2c_rdwr_ioctl_data& request);

    explicit LinuxI2cSystem(std::string devicePrefix = "/dev/i2c-",
                            Transfer transfer = &LinuxI2cSystem::ioctlTransfer);
    ~LinuxI2cSystem() override;

    // Called with no arguments whenever a transfer fails.
    void setErrorCallback(ErrorCallback callback);

    // Opens "<prefix><bus>" unless this bus is already open.
    bool i2cOpen(unsigned int bus);

    bool i2cProbe(unsigned int bus, unsigned int address) override;
    bool i2cWrite(unsigned int bus, unsigned int address, unsigned int reg,
                  unsigned int value) override;
    unsigned int i2cRead(unsigned int bus, unsigned int address, unsigned int reg, bool* ok,
                         bool quiet) override;
    bool i2cTwoByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                         unsigned int value) override;
    bool i2cMultiByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                           unsigned char const* data, unsigned int length) override;
    unsigned int i2cTwoByteRead(unsigned int bus, unsigned int address, unsigned int reg, bool* ok,
                                bool quiet) override;

    // Register byte then data, as one message. -19 (no device) when no bus is
    // open, else the transfer's result.
    virtual int i2cWriteBytes(unsigned char address, unsigned char reg, unsigned char const* data,
                              int length);
    // Register byte written, then length bytes read, as one two-message
    // transfer. Same results as i2cWriteBytes.
    virtual int i2cReadBytes(unsigned char address, unsigned char reg, unsigned char* data,
                             int length);

private:
    void closeDevice();
    int runTransfer(i2c_rdwr_ioctl_data& request);

    int fd_ = -1;
    int bus_ = -1;
    ErrorCallback errorCallback_;
    std::recursive_mutex mutex_;
    std::string devicePrefix_;
    Transfer transfer_;
};
