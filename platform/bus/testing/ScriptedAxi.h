#pragma once

// The recording register RAM of the AXI tests, plus scripted reads: for a
// register with a script, each read takes the next scripted value and the
// last one then repeats (a status register that goes busy, then ready).
// Registers without a script read back what was written.

#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "platform/axi/testing/AxiRegisterRam.h"

namespace Calvento::testing {

class ScriptedAxi : public AxiRegisterRam {
public:
    unsigned int axiRead(unsigned int subsystem, unsigned int offset) override {
        auto script = scripts.find({subsystem, offset});
        if (script == scripts.end() || script->second.empty()) {
            return AxiRegisterRam::axiRead(subsystem, offset);
        }
        unsigned int const value = script->second.front();
        if (script->second.size() > 1) {
            script->second.pop_front();
        }
        accesses.push_back(axiRd(subsystem, offset, value));
        return value;
    }

    void script(unsigned int subsystem, unsigned int offset, std::vector<unsigned int> values) {
        scripts[{subsystem, offset}] = std::deque<unsigned int>(values.begin(), values.end());
    }

    std::vector<AxiTransfer> writes() const {
        std::vector<AxiTransfer> result;
        for (auto const& access : accesses) {
            if (!access.isRead) {
                result.push_back(access);
            }
        }
        return result;
    }

    std::size_t readCount(unsigned int subsystem, unsigned int offset) const {
        std::size_t count = 0;
        for (auto const& access : accesses) {
            count += access.isRead && access.subsystem == subsystem && access.offset == offset;
        }
        return count;
    }

    std::map<std::pair<unsigned int, unsigned int>, std::deque<unsigned int>> scripts;
};

} // namespace Calvento::testing
