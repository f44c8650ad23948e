#include "platform/bus/SdiMachXoSpiMux.h"

#include <utility>

#include "platform/bus/SpiDevice.h"

SdiMachXoSpiMux::SdiMachXoSpiMux(std::shared_ptr<SpiDevice> mux, std::shared_ptr<SpiBus> bus,
                                 int routedChipSelect)
    : mux_(std::move(mux)), bus_(std::move(bus)), routedChipSelect_(routedChipSelect) {}

bool SdiMachXoSpiMux::initialise() {
    return mux_ != nullptr && bus_ != nullptr;
}

void SdiMachXoSpiMux::lockBus() {
    mutex_.lock();
    bus_->lockBus();
}

void SdiMachXoSpiMux::unlockBus() {
    bus_->unlockBus();
    mutex_.unlock();
}

bool SdiMachXoSpiMux::setMuxCs(int cs) {
    mux_->write(static_cast<unsigned int>(cs), SpiWordSizeBits::Bits16);
    return true;
}

SpiDeviceProperties
SdiMachXoSpiMux::genSpiDeviceProperties(SpiDeviceProperties const& device) const {
    SpiDeviceProperties routed = device;
    routed.chipSelect = routedChipSelect_;
    return routed;
}

bool SdiMachXoSpiMux::write(SpiDeviceProperties const& device, unsigned int value,
                            SpiWordSizeBits size) {
    SpiBusLock lock(*this);
    setMuxCs(device.chipSelect);
    return bus_->write(genSpiDeviceProperties(device), value, size);
}

unsigned int SdiMachXoSpiMux::read(SpiDeviceProperties const& device, SpiWordSizeBits size,
                                   bool* ok) {
    SpiBusLock lock(*this);
    setMuxCs(device.chipSelect);
    return bus_->read(genSpiDeviceProperties(device), size, ok);
}

unsigned int SdiMachXoSpiMux::transceive(SpiDeviceProperties const& device, unsigned int value,
                                         SpiWordSizeBits size, bool* ok) {
    SpiBusLock lock(*this);
    setMuxCs(device.chipSelect);
    return bus_->transceive(genSpiDeviceProperties(device), value, size, ok);
}
