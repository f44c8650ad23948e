#pragma once

// Register blocks that the Vy family's registration creates besides the
// audio and clock blocks this program uses. Their registers are driven by the
// instrument's own services; here the registry holds them so that it shows
// what the loaded image and the fitted boards provide.

#include <memory>

#include "platform/axi/AxiSubsystem.h"
#include "platform/bus/I2cSubsystem.h"
#include "platform/bus/SpiSubsystem.h"

class UniversalFrequencyTranslatorRenesis8A34041;

class VyEyeRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class GthPhyRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class GtyPhyRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
// The IP network statistics block of the Vy and VyL images.
class IpStatisticsRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class TwoChannel10GEthernetSystemRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class TwoChannel25GEthernetSystemRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class VySdiGtManager : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class VyLSdiGtManager : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};

class RefAdcRegisterApi {
public:
    // The LTC2257 reference ADC behind the FPGA's reference input block.
    class RefAdcLtc2257RegisterApi : public AxiSubsystem {
    public:
        using AxiSubsystem::AxiSubsystem;
    };
};

class ReferenceOutRegisterApi : public AxiSubsystem {
public:
    // The ADV7393 encoder that makes the analogue reference output, driven
    // through the same FPGA block.
    class Adv7393RegisterApi : public AxiSubsystem {
    public:
        using AxiSubsystem::AxiSubsystem;
    };

    ReferenceOutRegisterApi(unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi,
                            std::shared_ptr<Adv7393RegisterApi> encoder)
        : AxiSubsystem(axiSubsystem, std::move(axi)), encoder_(std::move(encoder)) {}

    std::shared_ptr<Adv7393RegisterApi> const& encoder() const { return encoder_; }

private:
    std::shared_ptr<Adv7393RegisterApi> encoder_;
};

// The Vy's reference clock generator, part of the reference locking block.
class ReferenceLockingClockGeneratorVyRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};

// Locks the instrument to its reference; the Vy family locks through its
// clock generator, the KM40 through a Renesas frequency translator.
class ReferenceLockingRegisterApi : public AxiSubsystem {
public:
    ReferenceLockingRegisterApi(
        unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi,
        std::shared_ptr<ReferenceLockingClockGeneratorVyRegisterApi> generator)
        : AxiSubsystem(axiSubsystem, std::move(axi)), generator_(std::move(generator)) {}
    ReferenceLockingRegisterApi(
        unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi,
        std::shared_ptr<UniversalFrequencyTranslatorRenesis8A34041> translator)
        : AxiSubsystem(axiSubsystem, std::move(axi)), translator_(std::move(translator)) {}

    std::shared_ptr<ReferenceLockingClockGeneratorVyRegisterApi> const& generator() const {
        return generator_;
    }
    std::shared_ptr<UniversalFrequencyTranslatorRenesis8A34041> const& translator() const {
        return translator_;
    }

private:
    std::shared_ptr<ReferenceLockingClockGeneratorVyRegisterApi> generator_;
    std::shared_ptr<UniversalFrequencyTranslatorRenesis8A34041> translator_;
};

// The SDI MachXO itself (it also multiplexes the SDI devices' chip select).
class VySdiMachXo : public SpiSubsystem {
public:
    explicit VySdiMachXo(std::shared_ptr<SpiInterface> spi)
        : SpiSubsystem(SpiDeviceId::SdiMachXo, std::move(spi)) {}
};
class SdiDriverM23528A : public SpiSubsystem {
public:
    explicit SdiDriverM23528A(std::shared_ptr<SpiInterface> spi)
        : SpiSubsystem(SpiDeviceId::SdiDriverM23528A, std::move(spi)) {}
};
class SdiReClockerM23145 : public SpiSubsystem {
public:
    explicit SdiReClockerM23145(std::shared_ptr<SpiInterface> spi)
        : SpiSubsystem(SpiDeviceId::SdiReClockerM23145, std::move(spi)) {}
};

// One SFP cage, reached through its module's ID EEPROM (A0h page, 0x50).
class SfpRegisterApi : public I2cSubsystem {
public:
    using I2cSubsystem::I2cSubsystem;
};

// The VyL front panel's DMT070 TFT LCD controller.
class TftLcdDmt070RegisterApi : public I2cSubsystem {
public:
    using I2cSubsystem::I2cSubsystem;
};
