#pragma once

// The registry of the KM40 instruments (device kind 2). This program never
// runs on one; the product exists so that the factory covers every kind.

#include "platform/sdk/PlatformSdk.h"

class PlatformSdkKm40 final : public PlatformSdk {
public:
    PlatformSdkKm40(std::shared_ptr<PlatformDescriptor const> descriptor,
                    std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                    std::shared_ptr<SpiInterface> spi);
    ~PlatformSdkKm40();

    unsigned int getNetworkClockFrequency() const override;
    // The KM40's self-test images are the ones carrying the MIG tester.
    bool inSelfTestMode() const override;
    SdiEqualiserM23554Properties getSdiEqualiserM23554Properties(int input) const override;
    unsigned int lookupAxiSubSystemIndex(SubsystemType type) const override;
    bool registerProductSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                           std::shared_ptr<I2cInterface> i2c,
                                           std::shared_ptr<SpiInterface> spi) override;
    bool registerProductSpecificCompoundSubsystems(std::shared_ptr<AxiInterface> axi,
                                                   std::shared_ptr<I2cInterface> i2c,
                                                   std::shared_ptr<SpiInterface> spi) override;
    bool setupPlatformFeatures() override;
    bool isValidAxiSubsystem(unsigned int subsystem) const override;

    // The frequency translator's place in the KM40's own I2C table, which
    // this program does not carry.
    static constexpr I2cDeviceId kFrequencyTranslatorDevice = I2cDeviceId{30};
};
