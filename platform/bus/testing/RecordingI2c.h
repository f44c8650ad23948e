#pragma once

// An I2cInterface that records every operation. Writes succeed unless
// writeResult is set false; reads return readValue.

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
        return record({I2cOperation::Probe, device, 0, {}});
    }
    bool i2cWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override {
        return record({I2cOperation::Write, device, reg, {value}});
    }
    unsigned int i2cRead(I2cDeviceId device, unsigned int reg, bool* ok, bool) override {
        return read({I2cOperation::Read, device, reg, {}}, ok);
    }
    bool i2cTwoByteWrite(I2cDeviceId device, unsigned int reg, unsigned int value) override {
        return record({I2cOperation::TwoByteWrite, device, reg, {value}});
    }
    bool i2cMultiByteWrite(I2cDeviceId device, unsigned int reg, unsigned char const* data,
                           unsigned int length) override {
        return record({I2cOperation::MultiByteWrite, device, reg, {data, data + length}});
    }
    unsigned int i2cTwoByteRead(I2cDeviceId device, unsigned int reg, bool* ok, bool) override {
        return read({I2cOperation::TwoByteRead, device, reg, {}}, ok);
    }

    std::vector<I2cOperation> operations;
    std::vector<std::chrono::steady_clock::time_point> times;
    bool writeResult = true;
    unsigned int readValue = 0;

private:
    bool record(I2cOperation op) {
        operations.push_back(std::move(op));
        times.push_back(std::chrono::steady_clock::now());
        return writeResult;
    }
    unsigned int read(I2cOperation op, bool* ok) {
        record(std::move(op));
        if (ok != nullptr) {
            *ok = true;
        }
        return readValue;
    }
};

} // namespace Calvento::testing
