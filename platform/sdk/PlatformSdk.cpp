#include "platform/sdk/PlatformSdk.h"

#include "logging/VyLog.h"
#include "platform/registers/CommonAxiRegisterBlocks.h"

PlatformSdk::PlatformSdk(std::shared_ptr<PlatformDescriptor const> descriptor,
                         std::shared_ptr<AxiInterface> axi, std::shared_ptr<I2cInterface> i2c,
                         std::shared_ptr<SpiInterface> spi)
    : axiInterface(std::move(axi)), i2cInterface(std::move(i2c)), spiInterface(std::move(spi)),
      platformDescriptor(std::move(descriptor)) {}

PlatformSdk::~PlatformSdk() = default;

std::shared_ptr<PlatformFeatures const> PlatformSdk::getPlatformFeatures() const {
    return platformFeatures;
}

bool PlatformSdk::isValidAxiSubsystem(unsigned int subsystem) const {
    return subsystem != Calvento::kUnassignedAxiSubsystem;
}

bool PlatformSdk::registerSubsystem(SubsystemType type, unsigned int index,
                                    std::shared_ptr<GenericSubsystem> block) {
    if (!block) {
        Calvento::vyLogError("ERROR: Registering empty subsystem for type {} index {}",
                             toNumber(type), index);
        return false;
    }
    RegistryKey const key(type, index);
    if (registry.contains(key)) {
        Calvento::vyLogError("ERROR: Registering duplicate subsystem/index for type {} index {}",
                             toNumber(type), index);
        return false;
    }
    registry.insert(key, std::move(block));
    return true;
}

std::shared_ptr<GenericSubsystem> PlatformSdk::getSubsystem(SubsystemType type,
                                                            unsigned int index) const {
    return registry.value(RegistryKey(type, index));
}

bool PlatformSdk::hasValidAxiSubsystem(SubsystemType type) const {
    return isValidAxiSubsystem(lookupAxiSubSystemIndex(type));
}

bool PlatformSdk::registerSubsystems(std::shared_ptr<AxiInterface> axi,
                                     std::shared_ptr<I2cInterface> i2c,
                                     std::shared_ptr<SpiInterface> spi) {
    return registerCommonSubsystems(axi, i2c, spi) &&
           registerProductSpecificSubsystems(axi, i2c, spi) &&
           registerCompoundSubsystems(axi, i2c, spi) &&
           registerProductSpecificCompoundSubsystems(axi, i2c, spi);
}

bool PlatformSdk::registerCommonSubsystems(std::shared_ptr<AxiInterface> axi,
                                           std::shared_ptr<I2cInterface> /*i2c*/,
                                           std::shared_ptr<SpiInterface> spi) {
    registerEarlyCommonAxiSubsystems(axi);
    // The image's identity decides every later lookup, so it is read first.
    auto const misc = std::dynamic_pointer_cast<MiscellaneousRegisterApi>(
        getSubsystem(SubsystemType::MISCELLANEOUS, 0));
    if (misc) {
        startupFirmwareVersion = misc->getFirmwareVersion();
    }
    if (!setupPlatformFeatures()) {
        Calvento::vyLogError("ERROR: Failed to setup platform features - cannot continue");
        return false;
    }
    return registerCommonSpiSubsystems(spi) && registerCommonAxiSubsystems(axi);
}

bool PlatformSdk::registerEarlyCommonAxiSubsystems(std::shared_ptr<AxiInterface> axi) {
    return createAndRegisterAxiSubsystem<MiscellaneousRegisterApi>(SubsystemType::MISCELLANEOUS, 0,
                                                                   std::move(axi));
}

bool PlatformSdk::registerCommonSpiSubsystems(std::shared_ptr<SpiInterface> /*spi*/) {
    // No SPI device is common to every product: the SDI devices and the main
    // clock synthesiser differ per product and are registered there.
    return true;
}

bool PlatformSdk::registerCommonAxiSubsystems(std::shared_ptr<AxiInterface> axi) {
    using T = SubsystemType;
    bool ok = true;
    ok &= registerAxiIfPresent<AncillaryInsertionRegisterApi>(T::ANCILLARY_INSERTION, 0, axi);
    ok &= registerAxiIfPresent<AncillaryProcessingRegisterApi>(T::ANCILLARY_PROCESSING, 0, axi);
    ok &= registerAxiIfPresent<Audio2110_30RegisterApi>(T::AUDIO_2110_30, 0, axi);
    ok &= registerAxiIfPresent<AudioProcessingRegisterApi>(T::AUDIO_PROCESSING, 0, axi);
    ok &= registerAxiIfPresent<BouncingBoxGeneratorRegisterApi>(T::BOUNCING_BOX_GENERATOR, 0, axi);
    ok &= registerAxiIfPresent<CircularBufferRegisterApi>(T::CIRCULAR_BUFFER, 0, axi);
    ok &= registerAxiIfPresent<DecimatedPictureRegisterApi>(T::DECIMATED_PICTURE, 0, axi);
    ok &= registerAxiIfPresent<VpssRegisterApi>(T::VPSS, 0, axi);
    ok &= registerAxiIfPresent<JitterRegisterApi>(T::JITTER, 0, axi);
    ok &= registerAxiIfPresent<JitterInsertionAnalysisRegisterApi>(T::JITTER_INSERTION_ANALYSIS, 0,
                                                                   axi);
    ok &= registerAxiIfPresent<TestWfmGeneratorRegisterApi>(T::TEST_WFM_GENERATOR, 0, axi);
    ok &= registerAxiIfPresent<FrontHdmiRegisterApi>(T::FRONT_HDMI, 0, axi);
    ok &= registerAxiIfPresent<Hdmi2PhyRegisterApi>(T::HDMI2_PHY, 0, axi);
    ok &= registerAxiIfPresent<Hdmi2ssRegisterApi>(T::HDMI2_SS, 0, axi);
    ok &= registerAxiIfPresent<IpFilterRegisterApi>(T::IP_FILTER, 0, axi);
    ok &= registerAxiIfPresent<VideoIpRegisterApi>(T::VIDEO_IP, 0, axi);
    ok &= registerAxiIfPresent<LayeringEngineRegisterApi>(T::LAYERING_ENGINE, 0, axi);
    ok &= registerAxiIfPresent<LayeringEngineOutputMuxRegisterApi>(T::LAYERING_ENGINE_OUTPUT_MUX, 0,
                                                                   axi);
    ok &= registerAxiIfPresent<LvdsBridgeRegisterApi>(T::LVDS_BRIDGE, 0, axi);
    ok &= registerAxiIfPresent<MediaIpTxRegisterApi>(T::MEDIA_IP_TX, 0, axi);
    ok &= registerAxiIfPresent<MigRegisterApi>(T::MIG_0, 0, axi);
    ok &= registerAxiIfPresent<MigRegisterApi>(T::MIG_1, 0, axi);
    ok &= registerAxiIfPresent<SdiPhyRegisterApi>(T::SDI_PHY, 0, axi);
    ok &= registerAxiIfPresent<StressTestRegisterApi>(T::STRESS_TEST, 0, axi);
    ok &= registerAxiIfPresent<SystemInterruptRegisterApi>(T::SYSTEM_INTERRUPT, 0, axi);
    ok &= registerAxiIfPresent<VectorCieRegisterApi>(T::VECTOR_CIE, 0, axi);
    ok &= registerAxiIfPresent<Video2110_40MeasurementRegisterApi>(T::VIDEO_2110_40_MEASUREMENT, 0,
                                                                   axi);
    ok &= registerAxiIfPresent<WaveformsEnhancedRegisterApi>(T::WAVEFORMS_ENHANCED, 0, axi);
    return ok;
}

bool PlatformSdk::registerCompoundSubsystems(std::shared_ptr<AxiInterface> /*axi*/,
                                             std::shared_ptr<I2cInterface> /*i2c*/,
                                             std::shared_ptr<SpiInterface> /*spi*/) {
    return true;
}
