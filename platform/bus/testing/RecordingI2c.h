#pragma once

// An I2cInterface that records every single-byte write as (device, register,
// value) and counts every other operation. Writes succeed unless writeResult
// is false; reads give 0.

#include <tuple>
#include <vector>

#include "platform/bus/I2cInterface.h"

namespace Calvento::testing {

class RecordingI2c : public I2cInterface {
public:
    using Write = std::tuple<unsigned int, unsigned int, unsigned int>;

    bool i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override {
        writes.emplace_back(toNumber(device), reg, value);
        return writeResult;
    }
    bool i2cProbe(I2cDeviceId) override { return other(); }
    unsigned int i2cRead(I2cDeviceId, unsigned int, bool*, bool) override { return other(); }
    bool i2cTwoByteWrite(I2cDeviceId, unsigned int, unsigned int) override { return other(); }
    bool i2cMultiByteWrite(I2cDeviceId, unsigned int, unsigned char const*, unsigned int) override {
        return other();
    }
    unsigned int i2cTwoByteRead(I2cDeviceId, unsigned int, bool*, bool) override { return other(); }

    std::vector<Write> writes;
    int otherOperations = 0;
    bool writeResult = true;

private:
    bool other() {
        ++otherOperations;
        return false;
    }
};

} // namespace Calvento::testing
