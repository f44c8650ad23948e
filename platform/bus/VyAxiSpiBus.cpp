#include "platform/bus/VyAxiSpiBus.h"

#include <algorithm>
#include <utility>

#include "logging/VyLog.h"
#include "platform/axi/AxiInterface.h"

namespace {
// Engine of each chip select 0..15; -1 where nothing is wired.
constexpr int kChipSelectToBus[16] = {0, 1, 1, 2, 3, 2, 2, 4, 4, -1, -1, -1, -1, -1, -1, 5};
} // namespace

VyAxiSpiBus::VyAxiSpiBus(std::shared_ptr<AxiInterface> axi, unsigned int maxBusSpeedKhz)
    : axi_(std::move(axi)), maxBusSpeedKhz_(maxBusSpeedKhz) {}

bool VyAxiSpiBus::initialise() {
    return axi_ != nullptr && waitForSpiNotBusy();
}

void VyAxiSpiBus::lockBus() {
    mutex_.lock();
}

void VyAxiSpiBus::unlockBus() {
    mutex_.unlock();
}

bool VyAxiSpiBus::waitForSpiNotBusy() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (!axi_) {
        return false;
    }
    for (unsigned int tries = 0; tries < kBusyTries; ++tries) {
        if ((axi_->axiRead(kSubsystem, kStatusRegister) & kBusyBit) == 0) {
            return true;
        }
    }
    Calvento::vyLogError("ERROR: SPI still busy after {} tries", kBusyTries);
    return false;
}

int VyAxiSpiBus::lookupBusFromChipSelect(int cs) const {
    int const bus = cs >= 0 && cs < 16 ? kChipSelectToBus[cs] : -1;
    if (bus < 0) {
        Calvento::vyLogError("ERROR: Cannot identify bus for cs {}", cs);
    }
    return bus;
}

void VyAxiSpiBus::setSpeed(int value) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    waitForSpiNotBusy();
    if (axi_) {
        axi_->axiWrite(kSubsystem, kSpeedRegister, static_cast<unsigned int>(value) & kSpeedMask);
    }
}

unsigned int VyAxiSpiBus::getMaxBusSpeedKhz(SpiDeviceProperties const& device) const {
    return std::min(device.maxSpeedKhz, maxBusSpeedKhz_);
}

int VyAxiSpiBus::dividerForSpeedKhz(unsigned int speedKhz) {
    if (speedKhz == 0) {
        return static_cast<int>(kSpeedMask);
    }
    unsigned int const twice = 2 * speedKhz;
    unsigned int const divider = (kEngineClockKhz + twice - 1) / twice;
    return static_cast<int>(std::clamp(divider, 1u, kSpeedMask));
}

unsigned int VyAxiSpiBus::transfer(SpiDeviceProperties const& device, unsigned int value,
                                   SpiWordSizeBits size, bool readBack, bool* ok) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (ok != nullptr) {
        *ok = false;
    }
    int const bus = lookupBusFromChipSelect(device.chipSelect);
    if (bus < 0 || !axi_) {
        return 0;
    }
    setSpeed(dividerForSpeedKhz(getMaxBusSpeedKhz(device)));
    axi_->axiWrite(kSubsystem, kTransmitRegister, value);
    unsigned int const control = kStartBit | (static_cast<unsigned int>(bus) << 16) |
                                 (static_cast<unsigned int>(device.chipSelect) << 8) |
                                 static_cast<unsigned int>(size);
    axi_->axiWrite(kSubsystem, kControlRegister, control);
    if (!waitForSpiNotBusy()) {
        return 0;
    }
    if (ok != nullptr) {
        *ok = true;
    }
    return readBack ? axi_->axiRead(kSubsystem, kReceiveRegister) : 0;
}

bool VyAxiSpiBus::write(SpiDeviceProperties const& device, unsigned int value,
                        SpiWordSizeBits size) {
    bool ok = false;
    transfer(device, value, size, false, &ok);
    return ok;
}

unsigned int VyAxiSpiBus::read(SpiDeviceProperties const& device, SpiWordSizeBits size, bool* ok) {
    return transfer(device, 0, size, true, ok);
}

unsigned int VyAxiSpiBus::transceive(SpiDeviceProperties const& device, unsigned int value,
                                     SpiWordSizeBits size, bool* ok) {
    return transfer(device, value, size, true, ok);
}
