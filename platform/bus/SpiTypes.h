#pragma once

// Words, devices and device properties of the SPI layer.

#include <cstdint>

enum class SpiWordSizeBits : unsigned int {
    Bits8 = 8,
    Bits16 = 16,
    Bits24 = 24,
    Bits32 = 32,
};

// The SPI devices of the Vy family that register blocks address.
enum class SpiDeviceId : std::uint32_t {
    MainClockSynthesizerLmk04808 = 0,
    SdiMachXo = 1,
    SdiDriverM23528A = 2,
    SdiReClockerM23145 = 3,
};

inline constexpr std::uint32_t toNumber(SpiDeviceId id) {
    return static_cast<std::uint32_t>(id);
}

struct SpiDeviceProperties {
    // The engine's chip select, or for a device behind the MachXO mux the
    // mux channel that the MachXO routes its select to.
    int chipSelect = 0;
    unsigned int maxSpeedKhz = 0;
};
