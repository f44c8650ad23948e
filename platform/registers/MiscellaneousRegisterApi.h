#pragma once

// The FPGA's miscellaneous register block, present in every image at AXI
// sub-system 0: which image is loaded (firmware design and version), the
// front-panel audio volume, a square-wave test pattern generator (the
// self-test image's test tone), GPIO set-up, PPS relative source and a PTP
// delay reading. Nothing is cached: every call goes to the registers.

#include <cstdint>
#include <memory>
#include <string>

#include "platform/axi/AxiSubsystem.h"

class MiscellaneousRegisterApi : public AxiSubsystem {
public:
    // The loaded image's identity (registers 0x10 and 0x11).
    struct FirmwareVersion {
        std::uint8_t flag = 0;       // bit 31 of the version word
        std::uint16_t design = 0;    // bits 30..16 of the version word
        std::uint16_t version = 0;   // bits 15..0, bytes swapped
        std::uint16_t buildHigh = 0; // build word bits 31..16
        std::uint16_t buildLow = 0;  // build word bits 15..0

        // The design code when it is a known image, else 0.
        unsigned int getFirmwareDesign() const;
        // "SDI_main", "Self_test", ... or "*unknown*".
        std::string getFirmwareDesignString() const;
    };

    enum FirmwareDesign : unsigned int {
        FW_DESIGN_SDI_MAIN = 1,
        FW_DESIGN_SELF_TEST = 2,
        FW_DESIGN_IP_2022_6 = 5,
        FW_DESIGN_IP_2110 = 8,
        FW_DESIGN_KORUSYS_PTP_ONLY = 9,
        FW_DESIGN_25G_SELF_TEST = 11,
        FW_DESIGN_25G_MASTER = 13,
        FW_DESIGN_40KM_MASTER = 14,
    };

    struct GpioSetup {
        std::uint32_t control = 0;    // written whole to the control register
        std::uint32_t select[8] = {}; // per line, low 6 bits used (0..63)
    };

    // What the PPS timing is relative to; written to the register unchanged.
    enum PpsRelativeSource : unsigned int {
        PPS_RELATIVE_FREE_RUN = 0,
        PPS_RELATIVE_REFERENCE = 1,
        PPS_RELATIVE_PTP = 2,
    };

    struct PtpDelay {
        std::uint8_t flagHigh = 0; // bit 31
        std::uint8_t flagLow = 0;  // bit 30
        std::uint32_t delay = 0;   // bits 29..0
    };

    // Clock of the test pattern generator, in hertz.
    static constexpr std::uint32_t kTestPatternClockHz = 202500000U;

    MiscellaneousRegisterApi(unsigned int subsystem, std::shared_ptr<AxiInterface> axi);
    MiscellaneousRegisterApi(unsigned int subsystem, AxiInterface* axi);

    // Reads the version word, then the build word.
    FirmwareVersion getFirmwareVersion() const;
    // Volume in percent as a 22-bit gain fraction; not clamped, so values
    // outside 0..100 wrap within the 22 bits.
    void setFrontPanelAudioVolume(int volume) const;
    // Square wave of frequencyHz (never 0) high for highPercent of the
    // period: writes the high time, then the period.
    void testPatternGeneratorFrequency(unsigned long frequencyHz, float highPercent) const;
    // Lines 0..3, lines 4..7, then the control word.
    void write_gpio(GpioSetup setup) const;
    std::uint32_t read_gpio() const;
    void setPpsRelativeSource(PpsRelativeSource source) const;
    PtpDelay readPtpDelay() const;

private:
    // Word offsets inside the block, one set for both constructors: the
    // station finds the loaded image through the first two.
    std::uint32_t firmwareVersionReg = 0x10;
    std::uint32_t firmwareBuildReg = 0x11;
    std::uint32_t frontPanelVolumeReg = 0x07;
    std::uint32_t tpgHighTimeReg = 0x08;
    std::uint32_t tpgPeriodReg = 0x09;
    std::uint32_t gpioStateReg = 0x0A;
    std::uint32_t gpioSetupLowReg = 0x0B;
    std::uint32_t gpioSetupHighReg = 0x0C;
    std::uint32_t gpioControlReg = 0x0D;
    std::uint32_t ppsRelativeSourceReg = 0x12;
    std::uint32_t ptpDelayReg = 0x13;
    std::uint32_t testPatternClockHz = kTestPatternClockHz;
};
