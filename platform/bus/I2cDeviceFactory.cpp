#include "platform/bus/I2cDeviceFactory.h"

#include <utility>

#include "logging/VyLog.h"

std::shared_ptr<I2cRawDevice> I2cDeviceFactory::getDevice(I2cDeviceId id) const {
    auto const found = devices_.find(id);
    return found == devices_.end() ? nullptr : found->second;
}

bool I2cDeviceFactory::addDevice(I2cDeviceId id, std::shared_ptr<I2cRawDevice> device) {
    if (devices_.count(id) != 0) {
        Calvento::vyLogError("Cannot add duplicate device for id {}", toNumber(id));
        return false;
    }
    devices_.emplace(id, std::move(device));
    order_.push_back(id);
    return true;
}
