#pragma once

// The self-test image's tone generator block (AXI). Held by the registry so
// that a self-test image shows its full set of blocks.

#include "platform/axi/AxiSubsystem.h"

class AudioSelfTestToneRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
