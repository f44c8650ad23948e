#pragma once

// The LMK04808 main clock synthesiser (SPI) that clocks the FPGA's video and
// network reference domains. Each baseboard has its own variant.

#include <memory>

#include "platform/bus/SpiSubsystem.h"

class MainClockSynthesizerLmk04808RegisterApi : public SpiSubsystem {
public:
    explicit MainClockSynthesizerLmk04808RegisterApi(
        std::shared_ptr<SpiInterface> spi,
        SpiDeviceId device = SpiDeviceId::MainClockSynthesizerLmk04808)
        : SpiSubsystem(device, std::move(spi)) {}

    // Brings the synthesiser's outputs up for the loaded image.
    virtual void setupClockSynthesizer() = 0;
};

// The LMK04808 on the CV069 Vy baseboard and on the CV079 VyL/VyP baseboard.
// Their programming tables belong to the instrument's clock service, which
// runs at boot before any test program; this program must not reprogram the
// reference clocks under it (the test tone runs from the FPGA's own pattern
// clock and the Si5367), so set-up leaves the chip as the instrument's
// start-up configured it and says so in the log.
class VyMainClockSynthesizerLmk04808RegisterApi : public MainClockSynthesizerLmk04808RegisterApi {
public:
    using MainClockSynthesizerLmk04808RegisterApi::MainClockSynthesizerLmk04808RegisterApi;
    void setupClockSynthesizer() override;
};

class VylMainClockSynthesizerLmk04808RegisterApi : public MainClockSynthesizerLmk04808RegisterApi {
public:
    using MainClockSynthesizerLmk04808RegisterApi::MainClockSynthesizerLmk04808RegisterApi;
    void setupClockSynthesizer() override;
};
