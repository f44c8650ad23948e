#pragma once

// The registry of register blocks through which the application reaches the
// hardware. A product subclass fills it at construction with one object per
// block that the loaded FPGA image and the fitted boards provide, filed under
// (SubsystemType, instance index). Callers fetch a block with getSubsystem
// and cast it to its register API; a block the image lacks is absent.
//
// Products are made by PlatformSdkFactory and deleted through their own type,
// so the base has no virtual destructor.

#include <memory>
#include <optional>
#include <utility>

#include <QMap>
#include <QPair>

#include "platform/axi/AxiInterface.h"
#include "platform/axi/GenericSubsystem.h"
#include "platform/bus/I2cInterface.h"
#include "platform/bus/SpiInterface.h"
#include "platform/registers/MiscellaneousRegisterApi.h"
#include "platform/sdk/PlatformFeatures.h"
#include "platform/sdk/SubsystemType.h"

class PlatformDescriptor;

// Whether an SDI input has an M23554 adaptive equaliser in front of it.
struct SdiEqualiserM23554Properties {
    bool fitted = false;
};

class PlatformSdk {
public:
    using RegistryKey = QPair<SubsystemType, unsigned int>;
    using Registry = QMap<RegistryKey, std::shared_ptr<GenericSubsystem>>;

    PlatformSdk(PlatformSdk const&) = delete;
    PlatformSdk& operator=(PlatformSdk const&) = delete;

    virtual unsigned int getNetworkClockFrequency() const = 0;
    virtual bool inSelfTestMode() const = 0;
    // Empty until the firmware version has been read.
    virtual std::shared_ptr<PlatformFeatures const> getPlatformFeatures() const;
    virtual SdiEqualiserM23554Properties getSdiEqualiserM23554Properties(int input) const = 0;
    // The block's AXI sub-system in the loaded image, or 99 when it has none.
    virtual unsigned int lookupAxiSubSystemIndex(SubsystemType type) const = 0;
    virtual bool registerProductSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                                   std::shared_ptr<I2cInterface> i2c,
                                                   std::shared_ptr<SpiInterface> spi) = 0;
    virtual bool registerProductSpecificCompoundSubsystems(std::shared_ptr<AxiInterface> axi,
                                                           std::shared_ptr<I2cInterface> i2c,
                                                           std::shared_ptr<SpiInterface> spi) = 0;
    // Builds the features object from the firmware version; false when
    // that is not possible.
    virtual bool setupPlatformFeatures() = 0;
    virtual bool isValidAxiSubsystem(unsigned int subsystem) const;

    // False (and a log line) for an empty block or a key already present;
    // the first block stays.
    bool registerSubsystem(SubsystemType type, unsigned int index,
                           std::shared_ptr<GenericSubsystem> block);
    // Empty when nothing is registered under the key.
    std::shared_ptr<GenericSubsystem> getSubsystem(SubsystemType type, unsigned int index) const;
    bool hasValidAxiSubsystem(SubsystemType type) const;

    // Builds block T on the type's AXI sub-system, with the extra constructor
    // arguments, and registers it; false without a log line when the image
    // has no such sub-system.
    template <class T, class... Extra>
    bool createAndRegisterAxiSubsystem(SubsystemType type, unsigned int index,
                                       std::shared_ptr<AxiInterface> axi, Extra... extra) {
        unsigned int const subsystem = lookupAxiSubSystemIndex(type);
        if (!isValidAxiSubsystem(subsystem)) {
            return false;
        }
        return registerSubsystem(
            type, index, std::make_shared<T>(subsystem, std::move(axi), std::move(extra)...));
    }

    Registry const& getRegistry() const { return registry; }
    std::shared_ptr<PlatformDescriptor const> const& getPlatformDescriptor() const {
        return platformDescriptor;
    }
    // The result of the start-up registration.
    bool registrationSucceeded() const { return registered; }

protected:
    PlatformSdk(std::shared_ptr<PlatformDescriptor const> descriptor,
                std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                std::shared_ptr<SpiInterface> spi);
    ~PlatformSdk();

    // The whole start-up; products call it from their constructors.
    bool registerSubsystems(std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                            std::shared_ptr<SpiInterface> spi);
    bool registerCommonSubsystems(std::shared_ptr<AxiInterface> axi,
                                  std::shared_ptr<I2cInterface> i2c,
                                  std::shared_ptr<SpiInterface> spi);
    bool registerEarlyCommonAxiSubsystems(std::shared_ptr<AxiInterface> axi);
    bool registerCommonSpiSubsystems(std::shared_ptr<SpiInterface> spi);
    bool registerCommonAxiSubsystems(std::shared_ptr<AxiInterface> axi);
    bool registerCompoundSubsystems(std::shared_ptr<AxiInterface> axi,
                                    std::shared_ptr<I2cInterface> i2c,
                                    std::shared_ptr<SpiInterface> spi);

    // createAndRegisterAxiSubsystem for a block that may be absent: true when
    // the image lacks it, else the registration's result.
    template <class T, class... Extra>
    bool registerAxiIfPresent(SubsystemType type, unsigned int index,
                              std::shared_ptr<AxiInterface> axi, Extra... extra) {
        return !hasValidAxiSubsystem(type) ||
               createAndRegisterAxiSubsystem<T>(type, index, std::move(axi), std::move(extra)...);
    }

    // The version that the miscellaneous block reported at start-up.
    std::optional<MiscellaneousRegisterApi::FirmwareVersion> const&
    getStartupFirmwareVersion() const {
        return startupFirmwareVersion;
    }
    void setPlatformFeatures(std::shared_ptr<PlatformFeatures const> features) {
        platformFeatures = std::move(features);
    }

    std::shared_ptr<AxiInterface> axiInterface;
    std::shared_ptr<I2cInterface> i2cInterface;
    std::shared_ptr<SpiInterface> spiInterface;
    bool registered = false;

private:
    Registry registry;
    std::shared_ptr<PlatformDescriptor const> platformDescriptor;
    std::shared_ptr<PlatformFeatures const> platformFeatures;
    std::optional<MiscellaneousRegisterApi::FirmwareVersion> startupFirmwareVersion;
};
