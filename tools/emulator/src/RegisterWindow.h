#pragma once

// The FPGA's AXI user register space as the XDMA driver exposes it: an
// 8 MiB window at /dev/xdma0_user that the program maps shared. Here it is
// a file on tmpfs bound over the device path; the emulation maps the same
// file and watches the miscellaneous block (AXI sub-system 0) for the
// front-panel audio volume and the test tone generator.

#include "EventLoop.h"

#include <cstdint>
#include <deque>
#include <string>

namespace emu {

class RegisterWindow {
public:
    static constexpr size_t kSize = 0x800000;
    // Miscellaneous block, sub-system 0: word offsets.
    static constexpr uint32_t kVolume = 0x07;
    static constexpr uint32_t kToneHigh = 0x08;
    static constexpr uint32_t kTonePeriod = 0x09;
    static constexpr uint32_t kFirmwareVersion = 0x10;
    static constexpr uint32_t kFirmwareBuild = 0x11;
    // The FPGA's own I2C engine, also in sub-system 0.
    static constexpr uint32_t kI2cStatus = 0x2A;
    static constexpr uint32_t kI2cStatusIdleAcked = 0x800; // not busy, data valid, no NAK
    static constexpr uint32_t kToneClockHz = 202500000;
    static constexpr uint32_t kVolumeStep = 41943; // 2^22 / 100: one percent of gain

    struct Tone {
        int64_t timeUs;
        uint32_t volumeRaw;
        uint32_t high;
        uint32_t period;
    };

    RegisterWindow(EventLoop& loop, std::string backingFile);
    ~RegisterWindow();

    // Creates the window with the given firmware design loaded and binds it
    // over `devicePath`.
    bool start(std::string const& devicePath, unsigned design, unsigned version, uint32_t build);

    uint32_t word(uint32_t subsystem, uint32_t offset) const;
    Tone current() const;
    std::deque<Tone> const& history() const { return history_; }

    static double volumePercent(uint32_t raw) { return double(raw) / kVolumeStep; }
    static double frequencyHz(uint32_t period) {
        return period == 0 ? 0.0 : double(kToneClockHz) / (double(period) + 1.0);
    }

private:
    void poll();

    EventLoop& loop_;
    std::string backingFile_;
    int fd_ = -1;
    volatile uint32_t* base_ = nullptr;
    Tone last_{};
    std::deque<Tone> history_;
};

} // namespace emu
