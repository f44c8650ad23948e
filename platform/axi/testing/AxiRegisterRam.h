#pragma once

// An AxiInterface over plain memory for tests, in the manner of a regmap RAM
// backend: every access is recorded in order, writes land in the register
// map and reads return what it holds (0 for a register never set). A
// register can instead be given a script: each read takes the next value
// and the last one then repeats (a status register that is busy, then ready).

#include <cstdint>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "platform/axi/AxiInterface.h"

namespace Calvento::testing {

struct AxiTransfer {
    bool isRead;
    unsigned int subsystem;
    unsigned int offset;
    std::uint64_t value; // value written, or value returned by the read

    bool operator==(AxiTransfer const& o) const {
        return isRead == o.isRead && subsystem == o.subsystem && offset == o.offset &&
               value == o.value;
    }
};

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
        unsigned int value = registers[{subsystem, offset}];
        auto& script = scripts[{subsystem, offset}];
        if (!script.empty()) {
            value = script.front();
            if (script.size() > 1) {
                script.pop_front();
            }
        }
        accesses.push_back(axiRd(subsystem, offset, value));
        return value;
    }

    // Presets a register without recording an access.
    void set(unsigned int subsystem, unsigned int offset, unsigned int value) {
        registers[{subsystem, offset}] = value;
    }
    void script(unsigned int subsystem, unsigned int offset, std::vector<unsigned int> values) {
        scripts[{subsystem, offset}].assign(values.begin(), values.end());
    }

    std::vector<AxiTransfer> accesses;

private:
    std::map<std::pair<unsigned int, unsigned int>, unsigned int> registers;
    std::map<std::pair<unsigned int, unsigned int>, std::deque<unsigned int>> scripts;
};

} // namespace Calvento::testing
