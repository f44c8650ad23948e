#pragma once

// The FPGA register blocks that every product's registry creates alongside
// the miscellaneous block. The front panel test uses none of their
// registers; the registry holds them so that it reflects the loaded image.

#include "platform/axi/AxiSubsystem.h"

class AncillaryInsertionRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class AncillaryProcessingRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class Audio2110_30RegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class AudioProcessingRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class BouncingBoxGeneratorRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class CircularBufferRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class DecimatedPictureRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class VpssRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class FrontHdmiRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class Hdmi2PhyRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class Hdmi2ssRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class IpFilterRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class JitterRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class JitterInsertionAnalysisRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class LayeringEngineRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class LayeringEngineOutputMuxRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class LvdsBridgeRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
// Registered twice, once per memory controller.
class MigRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class MediaIpTxRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class SdiPhyRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class StressTestRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class SystemInterruptRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class TestWfmGeneratorRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class VectorCieRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class Video2110_40MeasurementRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class VideoIpRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
class WaveformsEnhancedRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
