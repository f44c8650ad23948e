#include "platform/bus/SpiDeviceFactoryVy.h"

#include <stdexcept>
#include <utility>

#include "logging/VyLog.h"
#include "platform/bus/SdiMachXoSpiMux.h"
#include "platform/bus/SpiDevice.h"
#include "platform/bus/VyAxiSpiBus.h"

namespace {
std::shared_ptr<SpiDeviceFactoryVy>& instanceCell() {
    static std::shared_ptr<SpiDeviceFactoryVy> instance;
    return instance;
}
} // namespace

void SpiDeviceFactoryVy::initialise(std::shared_ptr<AxiInterface> axi) {
    instanceCell() = std::make_shared<SpiDeviceFactoryVy>(std::move(axi));
}

std::shared_ptr<SpiDeviceFactoryVy> SpiDeviceFactoryVy::getInstance() {
    if (!instanceCell()) {
        throw std::logic_error("You must call initialise before calling getInstance()");
    }
    return instanceCell();
}

SpiDeviceFactoryVy::SpiDeviceFactoryVy(std::shared_ptr<AxiInterface> axi)
    : axiBus_(std::make_shared<VyAxiSpiBus>(std::move(axi), kAxiBusMaxSpeedKhz)) {
    if (!axiBus_->initialise()) {
        Calvento::vyLogError("Failed to initialise AXI SPI bus");
    }
    auto const machXo = std::make_shared<SpiDevice>(
        SpiDeviceProperties{kMachXoChipSelect, kMachXoMaxSpeedKhz}, axiBus_);
    machXoBus_ = std::make_shared<SdiMachXoSpiMux>(machXo, axiBus_, kMachXoRoutedChipSelect);
    if (!machXoBus_->initialise()) {
        Calvento::vyLogError("Failed to initialise MachXO SPI bus");
    }
    devices_.emplace(SpiDeviceId::MainClockSynthesizerLmk04808,
                     std::make_shared<SpiDevice>(
                         SpiDeviceProperties{kLmk04808ChipSelect, kLmk04808MaxSpeedKhz}, axiBus_));
    devices_.emplace(SpiDeviceId::SdiMachXo, machXo);
    devices_.emplace(
        SpiDeviceId::SdiDriverM23528A,
        std::make_shared<SpiDevice>(SpiDeviceProperties{kSdiDriverChannel, kSdiDeviceMaxSpeedKhz},
                                    machXoBus_));
    devices_.emplace(
        SpiDeviceId::SdiReClockerM23145,
        std::make_shared<SpiDevice>(
            SpiDeviceProperties{kSdiReClockerChannel, kSdiDeviceMaxSpeedKhz}, machXoBus_));
}

std::shared_ptr<SpiDevice> SpiDeviceFactoryVy::getDevice(SpiDeviceId id) const {
    auto const found = devices_.find(id);
    return found == devices_.end() ? nullptr : found->second;
}
