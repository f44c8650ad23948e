#pragma once

// An AxiInterface over plain memory for tests, in the manner of a regmap RAM
// backend: every access is recorded in order, writes land in the register
// map, and reads return what the map holds (0 for a register never set).

#include <cstdint>
#include <map>
#include <ostream>
#include <utility>
#include <vector>

#include "platform/axi/AxiInterface.h"

namespace Calvento::testing {

struct AxiTransfer {
    bool isRead;
    unsigned int subsystem;
    unsigned int offset;
    std::uint64_t value; // value written, or value returned by the read

    bool operator==(AxiTransfer const& other) const {
        return isRead == other.isRead && subsystem == other.subsystem && offset == other.offset &&
               value == other.value;
    }
};

// Readable failure messages in GoogleTest/GoogleMock.
inline void PrintTo(AxiTransfer const& access, std::ostream* os) {
    *os << (access.isRead ? "read(" : "write(") << access.subsystem << ", 0x" << std::hex
        << access.offset << ", 0x" << access.value << std::dec << ")";
}

inline AxiTransfer axiRd(unsigned int subsystem, unsigned int offset, std::uint64_t value) {
    return AxiTransfer{true, subsystem, offset, value};
}
inline AxiTransfer axiWr(unsigned int subsystem, unsigned int offset, std::uint64_t value) {
    return AxiTransfer{false, subsystem, offset, value};
}

class AxiRegisterRam : public AxiInterface {
public:
    void axiWrite(unsigned int subsystem, unsigned int offset, unsigned long value) override {
        accesses.push_back(axiWr(subsystem, offset, value));
        registers[{subsystem, offset}] = static_cast<unsigned int>(value);
    }
    unsigned int axiRead(unsigned int subsystem, unsigned int offset) override {
        auto const found = registers.find({subsystem, offset});
        unsigned int const value = found == registers.end() ? 0U : found->second;
        accesses.push_back(axiRd(subsystem, offset, value));
        return value;
    }

    // Presets a register without recording an access.
    void set(unsigned int subsystem, unsigned int offset, unsigned int value) {
        registers[{subsystem, offset}] = value;
    }

    std::vector<AxiTransfer> accesses;
    std::map<std::pair<unsigned int, unsigned int>, unsigned int> registers;
};

} // namespace Calvento::testing
