#include "platform/registers/MiscellaneousRegisterApi.h"

#include <utility>

namespace {

constexpr std::uint32_t kVolumeFullScaleStep = 41943; // 2^22 / 100, rounded down
constexpr std::uint32_t kVolumeMask = 0x3FFFFF;       // 22-bit gain fraction
constexpr std::uint32_t kTpgCountMask = 0x0FFFFFFF;   // 28-bit generator counters
constexpr std::uint32_t kGpioSelectMask = 0x3F;
constexpr unsigned int kGpioSelectBits = 6;

std::uint32_t packGpioSelects(std::uint32_t const* select) {
    std::uint32_t word = 0;
    for (unsigned int line = 0; line < 4; ++line) {
        word |= (select[line] & kGpioSelectMask) << (line * kGpioSelectBits);
    }
    return word;
}

} // namespace

unsigned int MiscellaneousRegisterApi::FirmwareVersion::getFirmwareDesign() const {
    switch (design) {
    case FW_DESIGN_SDI_MAIN:
    case FW_DESIGN_SELF_TEST:
    case FW_DESIGN_IP_2022_6:
    case FW_DESIGN_IP_2110:
    case FW_DESIGN_KORUSYS_PTP_ONLY:
    case FW_DESIGN_25G_SELF_TEST:
    case FW_DESIGN_25G_MASTER:
    case FW_DESIGN_40KM_MASTER:
        return design;
    default:
        return 0;
    }
}

std::string MiscellaneousRegisterApi::FirmwareVersion::getFirmwareDesignString() const {
    switch (getFirmwareDesign()) {
    case FW_DESIGN_SDI_MAIN:
        return "SDI_main";
    case FW_DESIGN_SELF_TEST:
        return "Self_test";
    case FW_DESIGN_IP_2022_6:
        return "IP_2022_6";
    case FW_DESIGN_IP_2110:
        return "IP_2110";
    case FW_DESIGN_KORUSYS_PTP_ONLY:
        return "Korusys_ptp_only";
    case FW_DESIGN_25G_SELF_TEST:
        return "25G_Self_Test";
    case FW_DESIGN_25G_MASTER:
        return "25G_Master";
    case FW_DESIGN_40KM_MASTER:
        return "40KM_Master";
    default:
        return "*unknown*";
    }
}

MiscellaneousRegisterApi::MiscellaneousRegisterApi(unsigned int subsystemNumber,
                                                   std::shared_ptr<AxiInterface> axi)
    : AxiSubsystem(subsystemNumber, std::move(axi)) {}

MiscellaneousRegisterApi::MiscellaneousRegisterApi(unsigned int subsystemNumber, AxiInterface* axi)
    : AxiSubsystem(subsystemNumber, axi) {}

MiscellaneousRegisterApi::FirmwareVersion MiscellaneousRegisterApi::getFirmwareVersion() const {
    std::uint32_t const versionWord = axiRead(firmwareVersionReg);
    std::uint32_t const buildWord = axiRead(firmwareBuildReg);

    FirmwareVersion firmware;
    firmware.flag = static_cast<std::uint8_t>(versionWord >> 31);
    firmware.design = static_cast<std::uint16_t>((versionWord >> 16) & 0x7FFF);
    // The FPGA presents its version number little-end first in the low half
    // of the word; swap it back into a plain 16-bit number.
    firmware.version =
        static_cast<std::uint16_t>(((versionWord & 0xFF) << 8) | ((versionWord >> 8) & 0xFF));
    firmware.buildHigh = static_cast<std::uint16_t>(buildWord >> 16);
    firmware.buildLow = static_cast<std::uint16_t>(buildWord & 0xFFFF);
    return firmware;
}

void MiscellaneousRegisterApi::setFrontPanelAudioVolume(int volume) const {
    // Unsigned 32-bit arithmetic on purpose: out-of-range volumes wrap within
    // the register's 22 bits rather than being clamped.
    std::uint32_t const gain =
        (kVolumeFullScaleStep * static_cast<std::uint32_t>(volume)) & kVolumeMask;
    axiWrite(frontPanelVolumeReg, gain);
}

void MiscellaneousRegisterApi::testPatternGeneratorFrequency(unsigned long frequencyHz,
                                                             float highPercent) const {
    // The generator counts period + 1 clock cycles per cycle of its output.
    std::uint32_t const period = static_cast<std::uint32_t>(testPatternClockHz / frequencyHz) - 1U;
    float const highFraction = highPercent * 0.01F;
    // Single precision throughout, as the FPGA tools computed it; truncates.
    // The value may exceed 2^31 (period 0 - 1), so convert through 64 bits.
    float const highCycles = static_cast<float>(period) * highFraction;
    std::uint32_t const high = static_cast<std::uint32_t>(static_cast<std::uint64_t>(highCycles));
    axiWrite(tpgHighTimeReg, high & kTpgCountMask);
    axiWrite(tpgPeriodReg, period & kTpgCountMask);
}

void MiscellaneousRegisterApi::write_gpio(GpioSetup setup) const {
    axiWrite(gpioSetupLowReg, packGpioSelects(&setup.select[0]));
    axiWrite(gpioSetupHighReg, packGpioSelects(&setup.select[4]));
    axiWrite(gpioControlReg, setup.control);
}

std::uint32_t MiscellaneousRegisterApi::read_gpio() const {
    return axiRead(gpioStateReg);
}

void MiscellaneousRegisterApi::setPpsRelativeSource(PpsRelativeSource source) const {
    axiWrite(ppsRelativeSourceReg, static_cast<unsigned int>(source));
}

MiscellaneousRegisterApi::PtpDelay MiscellaneousRegisterApi::readPtpDelay() const {
    std::uint32_t const word = axiRead(ptpDelayReg);
    PtpDelay delay;
    delay.flagHigh = static_cast<std::uint8_t>((word >> 31) & 1U);
    delay.flagLow = static_cast<std::uint8_t>((word >> 30) & 1U);
    delay.delay = word & 0x3FFFFFFF;
    return delay;
}
