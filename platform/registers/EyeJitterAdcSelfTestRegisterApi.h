#pragma once

// The self-test image's eye/jitter ADC test block (AXI).

#include "platform/axi/AxiSubsystem.h"

class EyeJitterAdcSelfTestRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
