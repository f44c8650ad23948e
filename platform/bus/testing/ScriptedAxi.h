#pragma once

// The recording register RAM of the AXI tests, plus scripted reads: for a
// register with a script, each read takes the next scripted value and the
// last one then repeats (a status register that goes busy, then ready).
// Registers without a script read back what was written.

#include <algorithm>
#include <deque>
#include <iterator>
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
        std::copy_if(accesses.begin(), accesses.end(), std::back_inserter(result),
                     [](AxiTransfer const& access) { return !access.isRead; });
        return result;
    }

    std::size_t readCount(unsigned int subsystem, unsigned int offset) const {
        return static_cast<std::size_t>(
            std::count_if(accesses.begin(), accesses.end(), [&](AxiTransfer const& access) {
                return access.isRead && access.subsystem == subsystem && access.offset == offset;
            }));
    }

    std::map<std::pair<unsigned int, unsigned int>, std::deque<unsigned int>> scripts;
};

} // namespace Calvento::testing
