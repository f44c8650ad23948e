#pragma once

// The record in which the FPGA's audio processing block hands over one AES3
// channel-status block. The register block that captures and fills it lives
// with the instrument's other register blocks, not in this library; only the
// record is needed here, by the channel-status decoder.

#include <array>
#include <cstddef>
#include <cstdint>

class AudioProcessingRegisterApi {
public:
    // 24 channel-status bytes, four to a word.
    static constexpr std::size_t kCsWordCount = 6;

    struct ChannelStatus {
        // 1 when a complete channel-status block was captured.
        uint8_t valid = 0;
        // Word i holds bytes 4i..4i+3, the lowest-numbered byte in bits 31..24.
        std::array<uint32_t, kCsWordCount> csWords{};
        // Non-zero when the captured block failed its CRC check.
        uint32_t crcError = 0;
    };
};
