#pragma once

// An I2cInterface that records every operation, for tests of register blocks
// that live in I2C devices. Writes succeed unless writeResult is set false;
// reads return readValue.

#include <chrono>
#include <ostream>
#include <utility>
#include <vector>

#include "platform/bus/I2cInterface.h"

namespace Calvento::testing {

struct I2cOperation {
    enum Kind { Probe, Write, Read, TwoByteWrite, MultiByteWrite, TwoByteRead };
    Kind kind;
    I2cDeviceId device;
    unsigned int reg;
    std::vector<unsigned int> data;

    bool operator==(I2cOperation const& other) const {
        return kind == other.kind && device == other.device && reg == other.reg &&
               data == other.data;
    }
};

inline std::ostream& operator<<(std::ostream& out, I2cOperation const& op) {
    out << "{kind " << op.kind << ", device " << toNumber(op.device) << ", reg " << op.reg
        << ", data [";
    for (unsigned int value : op.data) {
        out << " 0x" << std::hex << value << std::dec;
    }
    return out << " ]}";
}

inline I2cOperation i2cWriteOp(I2cDeviceId device, unsigned int reg, unsigned int value) {
    return {I2cOperation::Write, device, reg, {value}};
}

class RecordingI2c : public I2cInterface {
public:
    bool i2cProbe(I2cDeviceId device) override {
        record({I2cOperation::Probe, device, 0, {}});
        return writeResult;
    }
    bool i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override {
        record({I2cOperation::Write, device, reg, {value}});
        return writeResult;
    }
    unsigned int i2cRead(I2cDeviceId device, unsigned int reg, bool* ok, bool) override {
        record({I2cOperation::Read, device, reg, {}});
        if (ok != nullptr) {
            *ok = true;
        }
        return readValue;
    }
    bool i2cTwoByteWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override {
        record({I2cOperation::TwoByteWrite, device, reg, {value}});
        return writeResult;
    }
    bool i2cMultiByteWrite(I2cDeviceId device, unsigned int reg, unsigned char const* data,
                           unsigned int length) override {
        record({I2cOperation::MultiByteWrite, device, reg,
                std::vector<unsigned int>(data, data + length)});
        return writeResult;
    }
    unsigned int i2cTwoByteRead(I2cDeviceId device, unsigned int reg, bool* ok, bool) override {
        record({I2cOperation::TwoByteRead, device, reg, {}});
        if (ok != nullptr) {
            *ok = true;
        }
        return readValue;
    }

    std::vector<I2cOperation> operations;
    std::vector<std::chrono::steady_clock::time_point> times;
    bool writeResult = true;
    unsigned int readValue = 0;

private:
    void record(I2cOperation op) {
        operations.push_back(std::move(op));
        times.push_back(std::chrono::steady_clock::now());
    }
};

} // namespace Calvento::testing
