#include "platform/sdk/PlatformSdkKm40.h"

#include <cstdint>

#include "platform/registers/Km40RegisterBlocks.h"
#include "platform/registers/VyRegisterBlocks.h"

namespace {

constexpr std::uint8_t X = 99;

// AXI sub-system of types 1 to 47 (type 1 first).
// clang-format off
constexpr std::uint8_t kKm40Subsystems[47] = {
//  1   2   3   4   5   6   7   8   9  10
    6, 12, 16, 13,  X, 17, 10,  9, 27,  8,   //  1
    X, 22,  1,  X, 15, 23, 21, 20, 16, 15,   // 11
    8,  8,  4,  3,  5,  X,  X,  0, 16, 25,   // 21
   18, 19,  X, 11,  X,  2,  X,  0,  8, 15,   // 31
    X, 15,  7, 16, 16, 24, 15,               // 41
};
// clang-format on

constexpr unsigned int kNetworkClockHz = 156250000;

} // namespace

PlatformSdkKm40::PlatformSdkKm40(std::shared_ptr<PlatformDescriptor const> descriptor,
                                 std::shared_ptr<AxiInterface> axi,
                                 std::shared_ptr<I2cInterface> i2c,
                                 std::shared_ptr<SpiInterface> spi)
    : PlatformSdk(std::move(descriptor), axi, i2c, spi) {
    registered = registerSubsystems(axi, i2c, spi);
}

PlatformSdkKm40::~PlatformSdkKm40() = default;

unsigned int PlatformSdkKm40::getNetworkClockFrequency() const {
    return kNetworkClockHz;
}

bool PlatformSdkKm40::inSelfTestMode() const {
    auto const features = getPlatformFeatures();
    return features && features->supportsMigTester();
}

SdiEqualiserM23554Properties PlatformSdkKm40::getSdiEqualiserM23554Properties(int /*input*/) const {
    return {};
}

unsigned int PlatformSdkKm40::lookupAxiSubSystemIndex(SubsystemType type) const {
    auto const index = toNumber(type);
    return index >= 1 && index <= 47 ? kKm40Subsystems[index - 1] : X;
}

bool PlatformSdkKm40::isValidAxiSubsystem(unsigned int subsystem) const {
    return PlatformSdk::isValidAxiSubsystem(subsystem);
}

bool PlatformSdkKm40::setupPlatformFeatures() {
    auto const& version = getStartupFirmwareVersion();
    if (!version) {
        return false;
    }
    setPlatformFeatures(std::make_shared<PlatformFeatures const>(*version));
    return true;
}

bool PlatformSdkKm40::registerProductSpecificSubsystems(std::shared_ptr<AxiInterface> axi,
                                                        std::shared_ptr<I2cInterface> i2c,
                                                        std::shared_ptr<SpiInterface> spi) {
    using T = SubsystemType;
    bool ok = true;
    auto const machXo = std::make_shared<Km40SdiMachXo>(spi);
    ok &= registerSubsystem(T::SDI_MACHXO, 0, machXo);
    ok &= registerAxiIfPresent<Km40EyeRegisterApi, std::shared_ptr<Km40SdiMachXo>>(T::EYE, 0, axi,
                                                                                   machXo);
    auto const translator = std::make_shared<UniversalFrequencyTranslatorRenesis8A34041>(
        kFrequencyTranslatorDevice, i2c);
    ok &= registerAxiIfPresent<ReferenceLockingRegisterApi,
                               std::shared_ptr<UniversalFrequencyTranslatorRenesis8A34041>>(
        T::REFERENCE_LOCKING, 0, axi, translator);
    ok &= registerAxiIfPresent<Mac25GRegisterApi, int>(T::MAC_25G, 0, axi, 0);
    ok &= registerAxiIfPresent<Mac10GRegisterApi, int>(T::MAC_10G, 0, axi, 0);
    ok &= registerAxiIfPresent<PtpRegisterApi>(T::PTP, 0, axi);
    return ok;
}

bool PlatformSdkKm40::registerProductSpecificCompoundSubsystems(
    std::shared_ptr<AxiInterface> /*axi*/, std::shared_ptr<I2cInterface> /*i2c*/,
    std::shared_ptr<SpiInterface> /*spi*/) {
    return true;
}
