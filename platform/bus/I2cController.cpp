#include "platform/bus/I2cController.h"

#include <utility>

#include "logging/VyLog.h"
#include "platform/bus/I2cDeviceFactoryVy.h"
#include "platform/bus/I2cRawDevice.h"

I2cController::I2cController(std::shared_ptr<PlatformDescriptor const> descriptor,
                             std::shared_ptr<AxiInterface> axi,
                             Calvento::PlatformPaths const& paths) {
    I2cDeviceFactoryVy::initialise(std::move(descriptor), std::move(axi), paths);
    factory_ = I2cDeviceFactoryVy::getInstance();
}

std::shared_ptr<I2cRawDevice> I2cController::getDevice(I2cDeviceId device) const {
    return factory_->getDevice(device);
}

std::shared_ptr<I2cRawDevice> I2cController::deviceForWrite(I2cDeviceId device) const {
    auto found = getDevice(device);
    if (!found) {
        Calvento::vyLogError("Cannot write to non-existent device ({})", toNumber(device));
    }
    return found;
}

std::shared_ptr<I2cRawDevice> I2cController::deviceForRead(I2cDeviceId device, bool* ok) const {
    if (ok != nullptr) {
        *ok = false;
    }
    auto found = getDevice(device);
    if (!found) {
        Calvento::vyLogError("Cannot read from non-existent device ({})", toNumber(device));
    }
    return found;
}

bool I2cController::i2cProbe(I2cDeviceId device) {
    auto const found = deviceForRead(device, nullptr);
    return found && found->probe();
}

bool I2cController::i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) {
    auto const found = deviceForWrite(device);
    return found && found->write(reg, value);
}

unsigned int I2cController::i2cRead(I2cDeviceId device, unsigned int reg, bool* ok, bool quiet) {
    auto const found = deviceForRead(device, ok);
    return found ? found->read(reg, ok, quiet) : 0;
}

bool I2cController::i2cTwoByteWrite(I2cDeviceId device, unsigned int reg, unsigned int value) {
    auto const found = deviceForWrite(device);
    return found && found->twoByteWrite(reg, value);
}

bool I2cController::i2cMultiByteWrite(I2cDeviceId device, unsigned int reg,
                                      unsigned char const* data, unsigned int length) {
    auto const found = deviceForWrite(device);
    return found && found->multiByteWrite(reg, data, length);
}

unsigned int I2cController::i2cTwoByteRead(I2cDeviceId device, unsigned int reg, bool* ok,
                                           bool quiet) {
    auto const found = deviceForRead(device, ok);
    return found ? found->twoByteRead(reg, ok, quiet) : 0;
}
