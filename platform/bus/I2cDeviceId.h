#pragma once

// Identifiers of the I2C devices that register blocks address. The device
// factory maps each to a bus number and a 7-bit slave address; only the ids
// whose role this program relies on are named, the others are used by number.

#include <cstdint>

enum class I2cDeviceId : std::uint32_t {
    FourPortControllerFpc402 = 1,
    AesSrc4382Converter0 = 16,
    AesSrc4382Converter1 = 17,
    AesSrc4382Converter2 = 18,
    AesSrc4382Converter3 = 19,
    FrontPanelDacWm9081 = 20,
    ClockSynthesizerSi5367 = 21,
};

inline constexpr std::uint32_t toNumber(I2cDeviceId id) {
    return static_cast<std::uint32_t>(id);
}
