#include "platform/bus/SpiController.h"

#include <utility>

#include "logging/VyLog.h"
#include "platform/bus/SpiDevice.h"
#include "platform/bus/SpiDeviceFactoryVy.h"

SpiController::SpiController(std::shared_ptr<AxiInterface> axi) {
    SpiDeviceFactoryVy::initialise(std::move(axi));
    factory_ = SpiDeviceFactoryVy::getInstance();
}

std::shared_ptr<SpiDevice> SpiController::getDevice(SpiDeviceId device) const {
    return factory_->getDevice(device);
}

bool SpiController::spiWriteWord(SpiDeviceId device, unsigned int value, SpiWordSizeBits size) {
    auto const found = getDevice(device);
    if (!found) {
        Calvento::vyLogError("Cannot write to non-existent device ({})", toNumber(device));
        return false;
    }
    return found->write(value, size);
}

unsigned int SpiController::spiReadWord(SpiDeviceId device, SpiWordSizeBits size) {
    auto const found = getDevice(device);
    if (!found) {
        Calvento::vyLogError("Cannot read from non-existent device ({})", toNumber(device));
        return 0;
    }
    return found->read(size, nullptr);
}

unsigned int SpiController::spiTransceiveWord(SpiDeviceId device, unsigned int value,
                                              SpiWordSizeBits size) {
    auto const found = getDevice(device);
    if (!found) {
        Calvento::vyLogError("Cannot transceive to non-existent device ({})", toNumber(device));
        return 0;
    }
    return found->transceive(value, size, nullptr);
}
