#pragma once

// One SPI master. A transfer selects the device's chip select, runs at the
// lower of the device's and the bus's speed, and shifts one word out while
// shifting one word in.

#include "platform/bus/SpiTypes.h"

class SpiBus {
public:
    virtual ~SpiBus() = default;

    // True when the master is usable.
    virtual bool initialise() = 0;

    // Held across a sequence of transfers that must not be interleaved.
    virtual void lockBus() = 0;
    virtual void unlockBus() = 0;

    virtual bool write(SpiDeviceProperties const& device, unsigned int value,
                       SpiWordSizeBits size) = 0;
    // *ok, when given, tells whether the transfer completed.
    virtual unsigned int read(SpiDeviceProperties const& device, SpiWordSizeBits size,
                              bool* ok) = 0;
    virtual unsigned int transceive(SpiDeviceProperties const& device, unsigned int value,
                                    SpiWordSizeBits size, bool* ok) = 0;

protected:
    SpiBus() = default;
    SpiBus(SpiBus const&) = delete;
    SpiBus& operator=(SpiBus const&) = delete;
};

// Holds a bus's lock for a scope.
class SpiBusLock {
public:
    explicit SpiBusLock(SpiBus& bus) : bus_(bus) { bus_.lockBus(); }
    ~SpiBusLock() { bus_.unlockBus(); }
    SpiBusLock(SpiBusLock const&) = delete;
    SpiBusLock& operator=(SpiBusLock const&) = delete;

private:
    SpiBus& bus_;
};
