#include "platform/bus/I2cDeviceFactoryVy.h"

#include <stdexcept>
#include <utility>

#include "logging/VyLog.h"
#include "platform/bus/AxiI2cSystem.h"
#include "platform/bus/LinuxI2cSystem.h"
#include "platform/descriptor/PlatformDescriptor.h"

namespace {

std::shared_ptr<I2cDeviceFactoryVy>& instanceCell() {
    static std::shared_ptr<I2cDeviceFactoryVy> instance;
    return instance;
}

struct DeviceRow {
    std::uint32_t id;
    unsigned int bus;
    unsigned int address;
};

// Every Vy-family product, in this order. Ids 22 and 25 are one chip under
// two ids; both entries are kept because blocks address it by either.
constexpr DeviceRow kVyDevices[] = {
    {25, 5, 0x37}, {26, 5, 0x50},  {22, 5, 0x37}, {27, 6, 0x37}, {28, 6, 0x50}, {2, 3, 0x50},
    {3, 3, 0x51},  {4, 3, 0x59},   {5, 4, 0x50},  {6, 4, 0x51},  {7, 4, 0x59},  {8, 9, 0x1C},
    {9, 9, 0x1D},  {10, 9, 0x1E},  {11, 9, 0x1F}, {12, 9, 0x1A}, {13, 9, 0x1B}, {14, 9, 0x18},
    {15, 9, 0x19}, {16, 4, 0x70},  {17, 4, 0x71}, {18, 4, 0x72}, {19, 4, 0x73}, {20, 6, 0x6F},
    {21, 1, 0x68}, {23, 10, 0x2B}, {24, 0, 0x39},
};

} // namespace

void I2cDeviceFactoryVy::initialise(std::shared_ptr<PlatformDescriptor const> descriptor,
                                    std::shared_ptr<AxiInterface> axi,
                                    Calvento::PlatformPaths const& paths) {
    instanceCell() = std::make_shared<I2cDeviceFactoryVy>(descriptor, std::move(axi), paths);
}

std::shared_ptr<I2cDeviceFactoryVy> I2cDeviceFactoryVy::getInstance() {
    if (!instanceCell()) {
        throw std::logic_error("You must call initialise before calling getInstance()");
    }
    return instanceCell();
}

I2cDeviceFactoryVy::I2cDeviceFactoryVy(std::shared_ptr<PlatformDescriptor const> const& descriptor,
                                       std::shared_ptr<AxiInterface> axi,
                                       Calvento::PlatformPaths const& paths)
    : axiSystem_(std::make_shared<AxiI2cSystem>(std::move(axi))),
      i2cDevicePrefix_(paths.i2cDevicePrefix) {
    if (!axiSystem_->i2cInit()) {
        Calvento::vyLogError("Failed to initialise AXI I2C bus");
    }
    if (descriptor && descriptor->getDevice() == Calvento::Vy::DEVICE_VYL_VYP) {
        createFpc();
    }
    for (DeviceRow const& row : kVyDevices) {
        addRawDevice(I2cDeviceId{row.id}, row.bus, row.address);
    }
}

std::shared_ptr<I2cSystem> I2cDeviceFactoryVy::systemForBus(unsigned int bus) {
    if (bus <= AxiI2cSystem::kMaxBus) {
        return axiSystem_;
    }
    auto& system = linuxSystems_[bus];
    if (!system) {
        system = std::make_shared<LinuxI2cSystem>(i2cDevicePrefix_);
    }
    return system;
}

void I2cDeviceFactoryVy::addRawDevice(I2cDeviceId id, unsigned int bus, unsigned int address) {
    addDevice(id, std::make_shared<I2cRawDevice>(systemForBus(bus), bus, address));
}

void I2cDeviceFactoryVy::createFpc() {
    auto device =
        std::make_shared<I2cRawDevice>(systemForBus(kFpc402Bus), kFpc402Bus, kFpc402Address);
    if (!device->probe()) {
        Calvento::vyLogError("Failed to find four port controller!");
        return;
    }
    addDevice(I2cDeviceId::FourPortControllerFpc402, std::move(device));
}
