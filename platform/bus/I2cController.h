#pragma once

// The I2cInterface that register blocks use: looks the device id up in the
// product's device factory and runs the operation on that device's bus.

#include <memory>

#include "platform/axi/PlatformPaths.h"
#include "platform/bus/I2cInterface.h"

class AxiInterface;
class I2cDeviceFactory;
class I2cRawDevice;
class PlatformDescriptor;

class I2cController : public I2cInterface {
public:
    I2cController(std::shared_ptr<PlatformDescriptor const> descriptor,
                  std::shared_ptr<AxiInterface> axi,
                  Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());

    // Empty for an id the product does not carry.
    std::shared_ptr<I2cRawDevice> getDevice(I2cDeviceId device) const;

    bool i2cProbe(I2cDeviceId device) override;
    bool i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override;
    unsigned int i2cRead(I2cDeviceId device, unsigned int reg, bool* ok, bool quiet) override;
    bool i2cTwoByteWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override;
    bool i2cMultiByteWrite(I2cDeviceId device, unsigned int reg, unsigned char const* data,
                           unsigned int length) override;
    unsigned int i2cTwoByteRead(I2cDeviceId device, unsigned int reg, bool* ok,
                                bool quiet) override;

private:
    std::shared_ptr<I2cRawDevice> deviceForWrite(I2cDeviceId device) const;
    std::shared_ptr<I2cRawDevice> deviceForRead(I2cDeviceId device, bool* ok) const;

    std::shared_ptr<I2cDeviceFactory> factory_;
};
