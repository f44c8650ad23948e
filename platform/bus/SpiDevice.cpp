#include "platform/bus/SpiDevice.h"

#include <utility>

SpiDevice::SpiDevice(SpiDeviceProperties properties, std::shared_ptr<SpiBus> bus)
    : properties_(properties), bus_(std::move(bus)) {}

bool SpiDevice::write(unsigned int value, SpiWordSizeBits size) const {
    SpiBusLock lock(*bus_);
    return bus_->write(properties_, value, size);
}

unsigned int SpiDevice::read(SpiWordSizeBits size, bool* ok) const {
    SpiBusLock lock(*bus_);
    return bus_->read(properties_, size, ok);
}

unsigned int SpiDevice::transceive(unsigned int value, SpiWordSizeBits size, bool* ok) const {
    SpiBusLock lock(*bus_);
    return bus_->transceive(properties_, value, size, ok);
}
