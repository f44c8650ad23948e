#include "platform/sdk/PlatformSdkVy.h"

#include <cstdint>

#include "platform/descriptor/PlatformDescriptor.h"
#include "platform/registers/AesSrcTestRegisterApi.h"
#include "platform/registers/AudioSelfTestToneRegisterApi.h"
#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"
#include "platform/registers/EyeJitterAdcSelfTestRegisterApi.h"
#include "platform/registers/MainClockSynthesizerLmk04808RegisterApi.h"
#include "platform/registers/VyFrontPanelDacWm9081.h"
#include "platform/registers/VyRegisterBlocks.h"

namespace {

constexpr std::uint8_t X = 99; // no sub-system in this image

// AXI sub-system of types 0 to 73 in the self-test images. One self-test
// block often stands behind several kinds, hence the shared numbers.
// clang-format off
constexpr std::uint8_t kSelfTestSubsystems[74] = {
//  0   1   2   3   4   5   6   7   8   9
    9,  X,  X,  X,  X,  9,  X,  X,  X,  X,   //  0
    X,  9, 15,  2,  2, 14, 13, 12, 11,  X,   // 10
   14,  X,  X,  X,  X,  X,  6,  7,  0,  X,   // 20
    X,  X,  X,  9,  8,  8,  X, 10,  0,  X,   // 30
   14, 14, 14,  X,  X,  X,  X,  X,  X,  X,   // 40
    X,  X,  X,  X,  X,  X,  X,  X,  X,  X,   // 50
    X,  X,  X,  X,  X,  X,  X,  X,  X,  X,   // 60
    X,  X,  X,  X,                           // 70
};
// clang-format on

// AXI sub-system of types 1 to 46 in the production images (type 1 first).
// clang-format off
constexpr std::uint8_t kProductionSubsystems[46] = {
//  1   2   3   4   5   6   7   8   9  10
    6, 12, 16, 13,  X, 17, 10,  9, 25,  8,   //  1
    X, 22,  1,  1, 15, 23, 21, 20, 16, 15,   // 11
    8,  8,  4,  3,  5,  X,  X,  0, 16,  X,   // 21
   18, 19,  X, 11, 11,  2,  X,  0,  8, 15,   // 31
   15, 15,  7, 16, 16, 24,                   // 41
};
// clang-format on

// The Ethernet transceivers of both baseboards run from a 156.25 MHz
// reference.
constexpr unsigned int kNetworkClockHz = 156250000;

// The SFP cages, each reached through its module's ID EEPROM (0x50).
constexpr I2cDeviceId kSfpCages[4] = {I2cDeviceId{2}, I2cDeviceId{5}, I2cDeviceId{26},
                                      I2cDeviceId{28}};

} // namespace

PlatformSdkVy::PlatformSdkVy(std::shared_ptr<PlatformDescriptor const> descriptor,
                             std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                             std::shared_ptr<SpiInterface> spi)
    : PlatformSdk(std::move(descriptor), axi, i2c, spi) {
    registered = registerSubsystems(axi, i2c, spi);
}

PlatformSdkVy::~PlatformSdkVy() = default;

unsigned int PlatformSdkVy::getNetworkClockFrequency() const {
    return kNetworkClockHz;
}

bool PlatformSdkVy::inSelfTestMode() const {
    auto const features = getPlatformFeatures();
    return features && features->isSelfTestFirmware();
}

SdiEqualiserM23554Properties PlatformSdkVy::getSdiEqualiserM23554Properties(int /*input*/) const {
    // The Vy family's SDI inputs equalise in the re-clocker; no M23554.
    return {};
}

unsigned int PlatformSdkVy::lookupSelfTestAxiSubSystemIndex(SubsystemType type) {
    auto const index = toNumber(type);
    return index >= 0 && index < 74 ? kSelfTestSubsystems[index] : X;
}

unsigned int PlatformSdkVy::lookupProdFirmwareAxiSubSystemIndex(SubsystemType type) {
    auto const index = toNumber(type);
    return index >= 1 && index <= 46 ? kProductionSubsystems[index - 1] : X;
}

unsigned int PlatformSdkVy::lookupAxiSubSystemIndex(SubsystemType type) const {
    if (type == SubsystemType::MISCELLANEOUS) {
        return 0;
    }
    return inSelfTestMode() ? lookupSelfTestAxiSubSystemIndex(type)
                            : lookupProdFirmwareAxiSubSystemIndex(type);
}

bool PlatformSdkVy::isValidAxiSubsystem(unsigned int subsystem) const {
    return PlatformSdk::isValidAxiSubsystem(subsystem);
}

bool PlatformSdkVy::setupPlatformFeatures() {
    auto const& version = getStartupFirmwareVersion();
    if (!version) {
        return false;
    }
    setPlatformFeatures(std::make_shared<PlatformFeatures const>(*version));
    return true;
}

AesSrc4382RegisterApi::MclkRate PlatformSdkVy::getAesSrcMclkFreq() const {
    return inSelfTestMode() ? AesSrc4382RegisterApi::MCLK_RATE_SELF_TEST_IMAGE
                            : AesSrc4382RegisterApi::MCLK_RATE_PRODUCTION_IMAGE;
}

bool PlatformSdkVy::hasFrontPanelDac() const {
    auto const& descriptor = getPlatformDescriptor();
    if (!descriptor) {
        return false;
    }
    auto const board = descriptor->getBoardDescriptor(BoardDescriptor::CV072_VY_VYL_FRONT_PANEL);
    // The DAC is fitted on the CV072 builds whose second attribute word is 3
    // or 4.
    return board && (board->getStrapId() == 3 || board->getStrapId() == 4);
}

bool PlatformSdkVy::registerProductSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                                      std::shared_ptr<I2cInterface> i2c,
                                                      std::shared_ptr<SpiInterface> spi) {
    if (!registerVyFamilyCommonSubsystems(axi, i2c, spi)) {
        return false;
    }
    auto const& descriptor = getPlatformDescriptor();
    auto const kind = descriptor ? descriptor->getDevice() : Calvento::Vy::DEVICE_VY;
    if (kind == Calvento::Vy::DEVICE_VY) {
        return registerVySpecificSubsystems(axi, i2c, spi);
    }
    if (kind == Calvento::Vy::DEVICE_VYL_VYP) {
        return registerVylSpecificSubsystems(axi, i2c, spi);
    }
    return true;
}

bool PlatformSdkVy::registerVyFamilyCommonSubsystems(std::shared_ptr<AxiInterface> axi,
                                                     std::shared_ptr<I2cInterface> i2c,
                                                     std::shared_ptr<SpiInterface> spi) {
    using T = SubsystemType;
    bool ok = registerSubsystem(T::CLOCK_1001_SYNTHESIZER, 0,
                                std::make_shared<Clock1001SynthesizerSi5367cRegisterApi>(i2c));
    if (hasFrontPanelDac()) {
        ok &=
            registerSubsystem(T::FRONT_PANEL_DAC, 0, std::make_shared<VyFrontPanelDacWm9081>(i2c));
    }

    AesSrcTestRegisterApi::Converters converters;
    I2cDeviceId const converterIds[4] = {
        I2cDeviceId::AesSrc4382Converter0, I2cDeviceId::AesSrc4382Converter1,
        I2cDeviceId::AesSrc4382Converter2, I2cDeviceId::AesSrc4382Converter3};
    for (unsigned int i = 0; i < 4; ++i) {
        converters[i] = AesSrc4382RegisterApi::create(converterIds[i], i2c, getAesSrcMclkFreq());
        ok &= registerSubsystem(T::AES_SRC_4382, i, converters[i]);
    }

    ok &= registerAxiIfPresent<AesSrcTestRegisterApi, AesSrcTestRegisterApi::Converters>(
        T::AES_SRC_TEST, 0, axi, converters);
    ok &= registerAxiIfPresent<AudioSelfTestToneRegisterApi>(T::AUDIO_SELF_TEST_TONE, 0, axi);
    ok &=
        registerAxiIfPresent<EyeJitterAdcSelfTestRegisterApi>(T::EYE_JITTER_ADC_SELF_TEST, 0, axi);
    ok &= registerAxiIfPresent<VyEyeRegisterApi>(T::EYE, 0, axi);
    ok &= registerAxiIfPresent<GthPhyRegisterApi>(T::GTH_PHY, 0, axi);

    ok &= registerSubsystem(T::SDI_MACHXO, 0, std::make_shared<VySdiMachXo>(spi));
    ok &= registerSubsystem(T::SDI_DRIVER, 0, std::make_shared<SdiDriverM23528A>(spi));
    ok &= registerSubsystem(T::SDI_RECLOCKER, 0, std::make_shared<SdiReClockerM23145>(spi));
    for (unsigned int cage = 0; cage < 4; ++cage) {
        ok &=
            registerSubsystem(T::SFP, cage, std::make_shared<SfpRegisterApi>(kSfpCages[cage], i2c));
    }

    if (hasValidAxiSubsystem(T::REFERENCE_LOCKING)) {
        auto generator = std::make_shared<ReferenceLockingClockGeneratorVyRegisterApi>(
            lookupAxiSubSystemIndex(T::REFERENCE_LOCKING), axi);
        ok &= createAndRegisterAxiSubsystem<
            ReferenceLockingRegisterApi,
            std::shared_ptr<ReferenceLockingClockGeneratorVyRegisterApi>>(T::REFERENCE_LOCKING, 0,
                                                                          axi, generator);
    }
    return ok;
}

bool PlatformSdkVy::registerVySpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                                 std::shared_ptr<I2cInterface> /*i2c*/,
                                                 std::shared_ptr<SpiInterface> spi) {
    using T = SubsystemType;
    bool ok = registerAxiIfPresent<IpStatisticsRegisterApi>(T::IP_STATISTICS, 0, axi);
    ok &= registerAxiIfPresent<TwoChannel10GEthernetSystemRegisterApi>(
        T::TWO_CHANNEL_ETHERNET_SYSTEM, 0, axi);
    ok &= registerSubsystem(T::MAIN_CLOCK_SYNTHESIZER, 0,
                            std::make_shared<VyMainClockSynthesizerLmk04808RegisterApi>(spi));
    ok &= registerAxiIfPresent<RefAdcRegisterApi::RefAdcLtc2257RegisterApi>(T::REF_ADC, 0, axi);
    ok &= registerAxiIfPresent<VySdiGtManager>(T::SDI_GT_MANAGER, 0, axi);
    return ok;
}

bool PlatformSdkVy::registerVylSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                                  std::shared_ptr<I2cInterface> i2c,
                                                  std::shared_ptr<SpiInterface> spi) {
    using T = SubsystemType;
    bool ok = registerSubsystem(T::TFT_LCD, 0,
                                std::make_shared<TftLcdDmt070RegisterApi>(kTftLcdDevice, i2c));
    ok &= registerAxiIfPresent<IpStatisticsRegisterApi>(T::IP_STATISTICS, 0, axi);
    if (hasValidAxiSubsystem(T::REFERENCE_OUT)) {
        auto encoder = std::make_shared<ReferenceOutRegisterApi::Adv7393RegisterApi>(
            lookupAxiSubSystemIndex(T::REFERENCE_OUT), axi);
        ok &= createAndRegisterAxiSubsystem<
            ReferenceOutRegisterApi, std::shared_ptr<ReferenceOutRegisterApi::Adv7393RegisterApi>>(
            T::REFERENCE_OUT, 0, axi, encoder);
    }
    ok &= registerAxiIfPresent<TwoChannel25GEthernetSystemRegisterApi>(
        T::TWO_CHANNEL_ETHERNET_SYSTEM, 0, axi);
    ok &= registerSubsystem(T::MAIN_CLOCK_SYNTHESIZER, 0,
                            std::make_shared<VylMainClockSynthesizerLmk04808RegisterApi>(spi));
    ok &= registerAxiIfPresent<GtyPhyRegisterApi>(T::GTY_PHY_0, 0, axi);
    ok &= registerAxiIfPresent<GtyPhyRegisterApi>(T::GTY_PHY_1, 0, axi);
    ok &= registerAxiIfPresent<VyLSdiGtManager>(T::SDI_GT_MANAGER, 0, axi);
    return ok;
}

bool PlatformSdkVy::registerProductSpecificCompoundSubsystems(
    std::shared_ptr<AxiInterface> /*axi*/, std::shared_ptr<I2cInterface> /*i2c*/,
    std::shared_ptr<SpiInterface> /*spi*/) {
    // The Vy family's compound blocks are built by the instrument's video
    // services from the blocks above; the registry holds none of them.
    return true;
}
