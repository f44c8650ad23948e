#pragma once

// One SRC4382 AES sample-rate converter on I2C (four of them, devices 16 to
// 19). The master clock it is given depends on the loaded FPGA image.

#include <memory>

#include "platform/bus/I2cSubsystem.h"

class AesSrc4382RegisterApi : public I2cSubsystem {
public:
    enum MclkRate : int {
        MCLK_RATE_PRODUCTION_IMAGE = 0,
        MCLK_RATE_SELF_TEST_IMAGE = 1,
    };

    static std::shared_ptr<AesSrc4382RegisterApi>
    create(I2cDeviceId device, std::shared_ptr<I2cInterface> i2c, MclkRate mclkRate);

    AesSrc4382RegisterApi(I2cDeviceId device, std::shared_ptr<I2cInterface> i2c, MclkRate mclkRate)
        : I2cSubsystem(device, std::move(i2c)), mclkRate_(mclkRate) {}

    MclkRate getMclkRate() const { return mclkRate_; }

private:
    MclkRate mclkRate_;
};

inline std::shared_ptr<AesSrc4382RegisterApi>
AesSrc4382RegisterApi::create(I2cDeviceId device, std::shared_ptr<I2cInterface> i2c,
                              MclkRate mclkRate) {
    return std::make_shared<AesSrc4382RegisterApi>(device, std::move(i2c), mclkRate);
}
