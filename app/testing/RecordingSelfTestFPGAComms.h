#pragma once

// The FPGA tone control for tests: no platform is built; volume and pitch
// requests are recorded in order ("volume 0", "pitch 48").

#include <string>
#include <vector>

#include "comms/SelfTestFPGAComms.h"

namespace fpt::testing {

class RecordingSelfTestFPGAComms : public SelfTestFPGAComms {
public:
    // valid: whether the self-test image is taken as loaded.
    explicit RecordingSelfTestFPGAComms(bool imageLoaded = true) : SelfTestFPGAComms(NoPlatform{}) {
        valid = imageLoaded;
    }

    void setVolume(int value) override {
        calls.push_back("volume " + std::to_string(value));
        volume = value;
    }
    void setPitch(int index) override {
        calls.push_back("pitch " + std::to_string(index));
        pitch = index;
    }

    // The calls with consecutive repeats dropped: the manager hands the
    // encoder's value over on every poll, changed or not.
    std::vector<std::string> distinctCalls() const {
        std::vector<std::string> out;
        for (auto const& c : calls)
            if (out.empty() || out.back() != c)
                out.push_back(c);
        return out;
    }

    std::vector<std::string> calls;
};

} // namespace fpt::testing
