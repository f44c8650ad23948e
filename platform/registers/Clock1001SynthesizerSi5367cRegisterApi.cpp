#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"

#include <chrono>
#include <thread>
#include <utility>

// Dividers (Si5367 fields hold the divider minus one; the high-speed ones
// the divider minus four):
//   N1_HS 6 (reg 25), NC1_LS 6 (31..33), NC2_LS 6 (34..36),
//   N2_HS 9 (reg 40 bits 7..5), N2_LS 4000 (40..42),
//   N31 1001 (43..45), N32 1001 (46..48)
// so f_out = f_in x (9 x 4000) / (1001 x 6 x 6) = f_in x 1000/1001.
// The other registers are the board designers' choice of input priority,
// output formats and alarms, written as they stand.
// clang-format off
Clock1001SynthesizerSi5367cRegisterApi::RegisterWrite const
    Clock1001SynthesizerSi5367cRegisterApi::kSetupSequence[kSetupWrites] = {
    // Configuration
    {0, 0x34}, {1, 0xE4}, {2, 0x72}, {3, 0x15}, {4, 0x12}, {5, 0xED},
    {6, 0x3F}, {7, 0x2A}, {8, 0x00}, {9, 0xC0}, {10, 0x00}, {11, 0x42},
    {19, 0x29}, {20, 0x37}, {21, 0xFF}, {22, 0xDD}, {23, 0x1F}, {24, 0x3F},
    // N1_HS; NC1_LS; NC2_LS
    {25, 0x40},
    {31, 0x00}, {32, 0x00}, {33, 0x05},
    {34, 0x00}, {35, 0x00}, {36, 0x05},
    // N2_HS and N2_LS
    {40, 0xA0}, {41, 0x0F}, {42, 0x9F},
    // N31; N32
    {43, 0x00}, {44, 0x03}, {45, 0xE8},
    {46, 0x00}, {47, 0x03}, {48, 0xE8},
    {55, 0x00}, {131, 0x1F}, {132, 0x02}, {137, 0x00}, {138, 0x0D}, {139, 0xDD},
    {142, 0x00}, {143, 0x00},
    // ICAL last: calibrate with everything above in place.
    {136, 0x40},
};
// clang-format on

Clock1001SynthesizerSi5367cRegisterApi::Clock1001SynthesizerSi5367cRegisterApi(
    std::shared_ptr<I2cInterface> i2c, I2cDeviceId device)
    : I2cSubsystem(device, std::move(i2c)) {}

Clock1001SynthesizerSi5367cRegisterApi::~Clock1001SynthesizerSi5367cRegisterApi() = default;

void Clock1001SynthesizerSi5367cRegisterApi::setupClockSynthesizer() {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    // A failed write is not acted on: the sequence always runs to the end.
    for (RegisterWrite const& write : kSetupSequence) {
        i2cWrite(write.reg, write.value);
    }
}
