#pragma once

// The registry of the Vy family: Vy (device kind 0) and VyL/VyP (kind 1).

#include "platform/registers/AesSrc4382RegisterApi.h"
#include "platform/sdk/PlatformSdk.h"

class PlatformSdkVy final : public PlatformSdk {
public:
    // Registers every block at once; registrationSucceeded() tells the result.
    PlatformSdkVy(std::shared_ptr<PlatformDescriptor const> descriptor,
                  std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                  std::shared_ptr<SpiInterface> spi);
    ~PlatformSdkVy();

    unsigned int getNetworkClockFrequency() const override;
    bool inSelfTestMode() const override;
    SdiEqualiserM23554Properties getSdiEqualiserM23554Properties(int input) const override;
    // Type 28 is sub-system 0 in every image; otherwise the self-test or the
    // production table, by the loaded image.
    unsigned int lookupAxiSubSystemIndex(SubsystemType type) const override;
    bool registerProductSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                           std::shared_ptr<I2cInterface> i2c,
                                           std::shared_ptr<SpiInterface> spi) override;
    bool registerProductSpecificCompoundSubsystems(std::shared_ptr<AxiInterface> axi,
                                                   std::shared_ptr<I2cInterface> i2c,
                                                   std::shared_ptr<SpiInterface> spi) override;
    bool setupPlatformFeatures() override;
    bool isValidAxiSubsystem(unsigned int subsystem) const override;

    static unsigned int lookupSelfTestAxiSubSystemIndex(SubsystemType type);
    static unsigned int lookupProdFirmwareAxiSubSystemIndex(SubsystemType type);

    // The AES converters' master clock for the loaded image.
    AesSrc4382RegisterApi::MclkRate getAesSrcMclkFreq() const;

    // The VyL/VyP front panel's TFT LCD controller on I2C.
    static constexpr I2cDeviceId kTftLcdDevice = I2cDeviceId{23};

private:
    bool registerVyFamilyCommonSubsystems(std::shared_ptr<AxiInterface> axi,
                                          std::shared_ptr<I2cInterface> i2c,
                                          std::shared_ptr<SpiInterface> spi);
    bool registerVySpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                      std::shared_ptr<I2cInterface> i2c,
                                      std::shared_ptr<SpiInterface> spi);
    bool registerVylSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                       std::shared_ptr<I2cInterface> i2c,
                                       std::shared_ptr<SpiInterface> spi);
    bool hasFrontPanelDac() const;
};
