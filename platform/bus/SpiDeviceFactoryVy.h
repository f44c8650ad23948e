#pragma once

// The SPI devices of the Vy family. The main clock synthesiser and the SDI
// MachXO sit on the FPGA's engines; the SDI cable driver and re-clocker sit
// behind the MachXO's chip-select multiplexer. One factory serves the
// process: SpiController initialises it and takes it from getInstance().

#include <map>
#include <memory>
#include <vector>

#include "platform/bus/SpiTypes.h"

class AxiInterface;
class SdiMachXoSpiMux;
class SpiDevice;
class VyAxiSpiBus;

class SpiDeviceFactoryVy {
public:
    static void initialise(std::shared_ptr<AxiInterface> axi);
    // Throws std::logic_error before initialise.
    static std::shared_ptr<SpiDeviceFactoryVy> getInstance();

    explicit SpiDeviceFactoryVy(std::shared_ptr<AxiInterface> axi);
    SpiDeviceFactoryVy(SpiDeviceFactoryVy const&) = delete;
    SpiDeviceFactoryVy& operator=(SpiDeviceFactoryVy const&) = delete;

    // Empty when no device has this id.
    std::shared_ptr<SpiDevice> getDevice(SpiDeviceId id) const;

    // Chip selects and speeds of the devices (engine chip select, or MachXO
    // channel behind the mux).
    static constexpr unsigned int kAxiBusMaxSpeedKhz = 25000;
    static constexpr int kLmk04808ChipSelect = 0;
    static constexpr unsigned int kLmk04808MaxSpeedKhz = 20000;
    static constexpr int kMachXoChipSelect = 1;
    static constexpr unsigned int kMachXoMaxSpeedKhz = 10000;
    static constexpr int kMachXoRoutedChipSelect = 2;
    static constexpr int kSdiDriverChannel = 0;
    static constexpr int kSdiReClockerChannel = 1;
    static constexpr unsigned int kSdiDeviceMaxSpeedKhz = 10000;

private:
    std::shared_ptr<VyAxiSpiBus> axiBus_;
    std::shared_ptr<SdiMachXoSpiMux> machXoBus_;
    std::map<SpiDeviceId, std::shared_ptr<SpiDevice>> devices_;
};
