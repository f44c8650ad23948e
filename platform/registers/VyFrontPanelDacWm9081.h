#pragma once

// The WM9081 audio DAC of the CV072 front panel, on I2C. The front panel
// test drives the audio through the FPGA's miscellaneous block; the registry
// only holds this block.

#include <memory>

#include "platform/bus/I2cSubsystem.h"

class VyFrontPanelDacWm9081 : public I2cSubsystem {
public:
    explicit VyFrontPanelDacWm9081(std::shared_ptr<I2cInterface> i2c,
                                   I2cDeviceId device = I2cDeviceId::FrontPanelDacWm9081)
        : I2cSubsystem(device, std::move(i2c)) {}
};
