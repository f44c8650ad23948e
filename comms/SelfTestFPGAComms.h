#pragma once

// Test-tone control through the FPGA self-test image: opens the platform
// library, checks the loaded image is the self-test design (11), brings up
// the audio clock, then sets volume and pitch through the miscellaneous
// register block.

#include <memory>

#include "platform/axi/PlatformPaths.h"

class PlatformSdk;
class MiscellaneousRegisterApi;

class SelfTestFPGAComms {
public:
    // Builds the platform at the instrument's real device paths. Never throws
    // for a missing board: valid stays false.
    SelfTestFPGAComms();
    // The same over other kernel interfaces (a register-window file, a GPIO
    // tree of its own).
    explicit SelfTestFPGAComms(Calvento::PlatformPaths const& paths);
    virtual ~SelfTestFPGAComms();
    SelfTestFPGAComms(SelfTestFPGAComms const&) = delete;
    SelfTestFPGAComms& operator=(SelfTestFPGAComms const&) = delete;

    // Virtual so that the application's tests can record the requests.
    virtual void setVolume(int volume);
    virtual void setPitch(int index);

    // 256 Hz times the equal-tempered semitone ratio to the index, truncated.
    static int pitchToFrequency(int index);

    bool valid = false;
    int volume = 0;
    int pitch = 0;
    std::shared_ptr<PlatformSdk> platformSdk;
    MiscellaneousRegisterApi* misc = nullptr;

protected:
    // For test doubles: builds no platform and leaves valid false.
    struct NoPlatform {};
    explicit SelfTestFPGAComms(NoPlatform) {}
};
