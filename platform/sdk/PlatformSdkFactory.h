#pragma once

// Makes the product's PlatformSdk for the instrument kind: Vy and VyL/VyP
// (kinds 0 and 1) get PlatformSdkVy, KM40 (kind 2) PlatformSdkKm40.

#include <memory>

class AxiInterface;
class I2cInterface;
class PlatformDescriptor;
class PlatformSdk;
class SpiInterface;

class PlatformSdkFactory {
public:
    // Empty for an unknown kind, or (with a log line) when the registration
    // failed: a platform without its blocks cannot be used.
    static std::shared_ptr<PlatformSdk> create(std::shared_ptr<PlatformDescriptor const> descriptor,
                                               std::shared_ptr<AxiInterface> axi,
                                               std::shared_ptr<I2cInterface> i2c,
                                               std::shared_ptr<SpiInterface> spi);
};
