#include "platform/sdk/PlatformSdkFactory.h"

#include <utility>

#include "logging/VyLog.h"
#include "platform/descriptor/PlatformDescriptor.h"
#include "platform/sdk/PlatformSdkKm40.h"
#include "platform/sdk/PlatformSdkVy.h"

std::shared_ptr<PlatformSdk>
PlatformSdkFactory::create(std::shared_ptr<PlatformDescriptor const> descriptor,
                           std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                           std::shared_ptr<SpiInterface> spi) {
    if (!descriptor) {
        return nullptr;
    }
    std::shared_ptr<PlatformSdk> sdk;
    switch (descriptor->getDevice()) {
    case Calvento::Vy::DEVICE_VY:
    case Calvento::Vy::DEVICE_VYL_VYP:
        sdk = std::make_shared<PlatformSdkVy>(descriptor, std::move(axi), std::move(i2c),
                                              std::move(spi));
        break;
    case Calvento::Vy::DEVICE_KM40:
        sdk = std::make_shared<PlatformSdkKm40>(descriptor, std::move(axi), std::move(i2c),
                                                std::move(spi));
        break;
    default:
        return nullptr;
    }
    if (!sdk->registrationSucceeded()) {
        Calvento::vyLogError("ERROR: Platform subsystems could not be registered");
        return nullptr;
    }
    return sdk;
}
