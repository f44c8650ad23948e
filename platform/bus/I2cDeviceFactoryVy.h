#pragma once

// The I2C devices of the Vy family (Vy, VyL, VyP). Buses 0 to 7 are the mux
// channels of the FPGA's I2C engine (three bits of channel in its command
// word); higher bus numbers are the processor's own adapters, each reached
// through its "/dev/i2c-<bus>" node.
//
// One factory serves the process: I2cController initialises it and takes it
// from getInstance().

#include <map>
#include <memory>

#include "platform/axi/PlatformPaths.h"
#include "platform/bus/I2cDeviceFactory.h"

class AxiInterface;
class AxiI2cSystem;
class I2cSystem;
class LinuxI2cSystem;
class PlatformDescriptor;

class I2cDeviceFactoryVy : public I2cDeviceFactory {
public:
    // Builds the process's factory, replacing any earlier one.
    static void initialise(std::shared_ptr<PlatformDescriptor const> descriptor,
                           std::shared_ptr<AxiInterface> axi,
                           Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());
    // Throws std::logic_error before initialise.
    static std::shared_ptr<I2cDeviceFactoryVy> getInstance();

    I2cDeviceFactoryVy(std::shared_ptr<PlatformDescriptor const> const& descriptor,
                       std::shared_ptr<AxiInterface> axi, Calvento::PlatformPaths const& paths);

    // The master that serves a bus number.
    std::shared_ptr<I2cSystem> systemForBus(unsigned int bus);

    // The FPC402 sits on the VyL/VyP baseboard only. The table gives no
    // place for it; bus 2, which no other device uses, address 0x1C (its
    // address pins strapped low).
    static constexpr unsigned int kFpc402Bus = 2;
    static constexpr unsigned int kFpc402Address = 0x1C;

private:
    void createFpc();
    void addRawDevice(I2cDeviceId id, unsigned int bus, unsigned int address);

    std::shared_ptr<AxiI2cSystem> axiSystem_;
    std::map<unsigned int, std::shared_ptr<LinuxI2cSystem>> linuxSystems_;
    std::string i2cDevicePrefix_;
};
