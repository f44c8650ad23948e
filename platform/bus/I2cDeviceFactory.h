#pragma once

// The I2C devices a product carries, each under its device id. Products
// derive from this and fill it in their constructors.

#include <map>
#include <memory>
#include <vector>

#include "platform/bus/I2cDeviceId.h"
#include "platform/bus/I2cRawDevice.h"

class I2cDeviceFactory {
public:
    virtual ~I2cDeviceFactory() = default;
    I2cDeviceFactory(I2cDeviceFactory const&) = delete;
    I2cDeviceFactory& operator=(I2cDeviceFactory const&) = delete;

    // Empty when no device has this id.
    std::shared_ptr<I2cRawDevice> getDevice(I2cDeviceId id) const;
    // Ids in the order the devices were added.
    std::vector<I2cDeviceId> const& deviceIds() const { return order_; }

protected:
    I2cDeviceFactory() = default;
    // Refuses (logs, returns false) a second device under one id.
    bool addDevice(I2cDeviceId id, std::shared_ptr<I2cRawDevice> device);

private:
    std::map<I2cDeviceId, std::shared_ptr<I2cRawDevice>> devices_;
    std::vector<I2cDeviceId> order_;
};
