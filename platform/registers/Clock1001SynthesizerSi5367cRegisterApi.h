#pragma once

// The Si5367 clock synthesiser that makes the 1/1.001-rate clock: its input
// clock times 1000/1001 on both outputs, from either input.

#include <memory>

#include "platform/bus/I2cSubsystem.h"

class Clock1001SynthesizerSi5367cRegisterApi : public I2cSubsystem {
public:
    explicit Clock1001SynthesizerSi5367cRegisterApi(
        std::shared_ptr<I2cInterface> i2c,
        I2cDeviceId device = I2cDeviceId::ClockSynthesizerSi5367);
    ~Clock1001SynthesizerSi5367cRegisterApi() override;

    // Writes the whole configuration, then starts the chip's calibration.
    // Nothing is read back; a caller that needs the clock settled waits.
    void setupClockSynthesizer();

    struct RegisterWrite {
        unsigned int reg;
        unsigned int value;
    };
    static constexpr unsigned int kSetupWrites = 43;
    // The configuration, in the order it is written.
    static RegisterWrite const kSetupSequence[kSetupWrites];
};
